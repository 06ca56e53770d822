#include "reference_network.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace mirvane {
namespace sim {
namespace ai {

namespace {

constexpr int kBins = 8;
constexpr float kMaxDistance = kBins - 1;
// Heat falls off around the peak like a Gaussian of this many cells; beyond one cell it is zero.
constexpr float kHeatSigma = 0.5f;
// Spread of the regression logits around the side's distance, in bins.
constexpr float kBinSigma = 0.7f;

// Deterministic generator (SplitMix64) for the imperfections.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t Next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  float Unit() { return static_cast<float>(Next() >> 40) / static_cast<float>(1u << 24); }
  float Between(float lo, float hi) { return lo + (hi - lo) * Unit(); }

 private:
  uint64_t state_;
};

// Representable range of a format, in real values.
void RangeOf(const FixedFormat& f, float ratio, float* lo, float* hi, float* step) {
  *step = std::ldexp(1.0f, -static_cast<int>(f.fraction)) * ratio;
  const float levels = std::ldexp(1.0f, static_cast<int>(f.bits));
  *lo = f.is_signed ? -levels / 2 * *step : 0.0f;
  *hi = (f.is_signed ? levels / 2 - 1 : levels - 1) * *step;
}

// The daemon's reading of 8 bins: softmax expectation in bin units.
float Expectation(const float logits[kBins]) {
  float top = logits[0];
  for (int j = 1; j < kBins; ++j) top = std::max(top, logits[j]);
  float sum = 0, weighted = 0;
  for (int j = 0; j < kBins; ++j) {
    const float p = std::exp(logits[j] - top);
    sum += p;
    weighted += static_cast<float>(j) * p;
  }
  return weighted / sum;
}

float Clamp(float v, float lo, float hi) {
  return std::min(std::max(v, lo), hi);
}

}  // namespace

ReferenceNetwork::ReferenceNetwork(const ModelDescription& model) : model_(model) {
  outputs_.resize(model_.outputs.size());
  formats_.resize(model_.outputs.size());
  for (size_t i = 0; i < model_.outputs.size(); ++i) {
    const OutputPath& out = model_.outputs[i];
    DecodeFixedFormat(out.format, &formats_[i]);
    outputs_[i].assign(static_cast<size_t>(out.width) * out.height * out.channels, 0.0f);
    Slot& slot = slots_[out.scale];
    slot.grid = static_cast<int>(out.width);
    slot.stride = static_cast<float>(model_.inputs[0].width) / static_cast<float>(out.width);
    const int index = static_cast<int>(i);
    switch (out.kind) {
      case OutputKind::kHeatmap:
        slot.heatmap = index;
        break;
      case OutputKind::kRegression:
        slot.regression = index;
        break;
      case OutputKind::kTracking:
        slot.tracking = index;
        break;
    }
  }
  owner_heat_.resize(3);
}

const std::vector<FoundObject>& ReferenceNetwork::ObjectsOf(const Nv12Picture& previous) {
  const size_t luma = static_cast<size_t>(previous.stride) * previous.height;
  const bool same = last_picture_.size() == luma + luma / 2 &&
                    std::memcmp(last_picture_.data(), previous.y, luma) == 0 &&
                    std::memcmp(last_picture_.data() + luma, previous.uv, luma / 2) == 0;
  if (same) return last_objects_;
  previous_objects_ = finder_.Find(previous);
  return previous_objects_;
}

void ReferenceNetwork::Run(const Nv12Picture& current, const Nv12Picture& previous) {
  const std::vector<FoundObject> now = finder_.Find(current);
  const std::vector<FoundObject>& before = ObjectsOf(previous);
  const std::vector<int> match = MatchPrevious(now, before);

  encoded_.clear();
  for (size_t i = 0; i < now.size(); ++i) {
    EncodedObject e;
    e.box = now[i];
    e.score = model_.settings.score;
    if (match[i] >= 0) {
      e.dx = before[match[i]].cx() - now[i].cx();
      e.dy = before[match[i]].cy() - now[i].cy();
    }
    encoded_.push_back(e);
  }
  ApplyImperfections(&encoded_);
  EncodeObjects(std::move(encoded_));

  // Keep this picture for the next run, where it normally comes back as the previous one.
  const size_t luma = static_cast<size_t>(current.stride) * current.height;
  last_picture_.resize(luma + luma / 2);
  std::memcpy(last_picture_.data(), current.y, luma);
  std::memcpy(last_picture_.data() + luma, current.uv, luma / 2);
  last_objects_ = now;
  ++runs_;
}

void ReferenceNetwork::EncodeObjects(std::vector<EncodedObject> objects) {
  encoded_ = std::move(objects);
  for (auto& tensor : outputs_) std::fill(tensor.begin(), tensor.end(), 0.0f);
  for (int s = 0; s < 3; ++s) {
    owner_heat_[s].assign(static_cast<size_t>(slots_[s].grid) * slots_[s].grid, 0.0f);
  }
  // Weaker objects first, so that a cell claimed by two keeps the stronger one's box.
  std::vector<size_t> order(encoded_.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [this](size_t a, size_t b) { return encoded_[a].score < encoded_[b].score; });
  for (size_t i : order) Encode(encoded_[i]);
}

void ReferenceNetwork::ApplyImperfections(std::vector<EncodedObject>* objects) {
  const NetworkSettings& s = model_.settings;
  Random random(s.seed * 0x2545f4914f6cdd1dull + runs_);
  std::vector<EncodedObject> kept;
  for (EncodedObject e : *objects) {
    const bool missed = random.Unit() < s.miss_rate;
    e.score = Clamp(s.score + random.Between(-s.score_jitter, s.score_jitter), 0.0f, 1.0f);
    e.box.x0 += random.Between(-s.box_jitter, s.box_jitter);
    e.box.y0 += random.Between(-s.box_jitter, s.box_jitter);
    e.box.x1 += random.Between(-s.box_jitter, s.box_jitter);
    e.box.y1 += random.Between(-s.box_jitter, s.box_jitter);
    if (!missed && e.box.x1 > e.box.x0 && e.box.y1 > e.box.y0) kept.push_back(e);
  }
  // False detections: a whole number of them plus one more with the remaining chance.
  const float whole = std::floor(s.false_rate);
  const int count = static_cast<int>(whole) + (random.Unit() < s.false_rate - whole ? 1 : 0);
  const float size = static_cast<float>(model_.inputs[0].width);
  for (int i = 0; i < count; ++i) {
    EncodedObject e;
    e.box.class_id = dva::ClassIdOfList(static_cast<size_t>(random.Next() % kClassCount));
    const float w = random.Between(8.0f, size / 4), h = random.Between(8.0f, size / 4);
    e.box.x0 = random.Between(0.0f, size - w);
    e.box.y0 = random.Between(0.0f, size - h);
    e.box.x1 = e.box.x0 + w;
    e.box.y1 = e.box.y0 + h;
    e.score = Clamp(s.score + random.Between(-s.score_jitter, s.score_jitter), 0.0f, 1.0f);
    kept.push_back(e);
  }
  *objects = std::move(kept);
}

// Gaussian logits around mu, moved until their quantised softmax expectation is the distance.
void ReferenceNetwork::SolveLogits(float distance, const OutputPath& out, float logits[8]) const {
  FixedFormat f;
  DecodeFixedFormat(out.format, &f);
  float lo, hi, step;
  RangeOf(f, out.scale_ratio, &lo, &hi, &step);
  auto fill = [&](float mu, float result[kBins]) {
    for (int j = 0; j < kBins; ++j) {
      const float d = (static_cast<float>(j) - mu) / kBinSigma;
      const float v = Clamp(hi - 0.5f * d * d, lo, hi);
      result[j] = std::nearbyint(v / step) * step;
    }
  };
  float a = -8.0f, b = kMaxDistance + 8.0f;
  float best_error = INFINITY;
  for (int iteration = 0; iteration < 32; ++iteration) {
    const float mu = 0.5f * (a + b);
    float trial[kBins];
    fill(mu, trial);
    const float e = Expectation(trial);
    const float error = std::fabs(e - distance);
    if (error < best_error) {
      best_error = error;
      std::copy(trial, trial + kBins, logits);
    }
    (e < distance ? a : b) = mu;
  }
}

void ReferenceNetwork::Encode(const EncodedObject& object) {
  const FoundObject& box = object.box;
  // The finest scale whose centre cell reaches every side within the last bin.
  int scale = 2;
  for (int s = 0; s < 3; ++s) {
    const float stride = slots_[s].stride;
    const float col = std::floor(box.cx() / stride), row = std::floor(box.cy() / stride);
    const float cx = col + 0.5f, cy = row + 0.5f;
    const float reach = std::max(std::max(cx - box.x0 / stride, box.x1 / stride - cx),
                                 std::max(cy - box.y0 / stride, box.y1 / stride - cy));
    if (reach <= kMaxDistance) {
      scale = s;
      break;
    }
  }
  const Slot& slot = slots_[scale];
  const int grid = slot.grid;
  const int col = static_cast<int>(std::floor(box.cx() / slot.stride));
  const int row = static_cast<int>(std::floor(box.cy() / slot.stride));
  std::vector<float>& heat = outputs_[slot.heatmap];
  std::vector<float>& reg = outputs_[slot.regression];
  std::vector<float>& track = outputs_[slot.tracking];
  const OutputPath& heat_path = model_.outputs[slot.heatmap];
  const FixedFormat& heat_format = formats_[slot.heatmap];
  const FixedFormat& track_format = formats_[slot.tracking];
  float lo, hi, heat_step, track_lo, track_hi, track_step;
  RangeOf(heat_format, heat_path.scale_ratio, &lo, &hi, &heat_step);
  RangeOf(track_format, model_.outputs[slot.tracking].scale_ratio, &track_lo, &track_hi,
          &track_step);
  const size_t cells = static_cast<size_t>(grid) * grid;
  const size_t channel = dva::ClassIndex(box.class_id) * cells;

  for (int y = std::max(row - 1, 0); y <= std::min(row + 1, grid - 1); ++y) {
    for (int x = std::max(col - 1, 0); x <= std::min(col + 1, grid - 1); ++x) {
      const float d2 = static_cast<float>((x - col) * (x - col) + (y - row) * (y - row));
      const float value = object.score * std::exp(-d2 / (2 * kHeatSigma * kHeatSigma));
      const float q = Clamp(std::nearbyint(value / heat_step) * heat_step, lo, hi);
      const size_t cell = static_cast<size_t>(y) * grid + x;
      if (q <= 0.0f) continue;
      heat[channel + cell] = std::max(heat[channel + cell], q);
      if (value <= owner_heat_[scale][cell]) continue;
      owner_heat_[scale][cell] = value;
      const float cx = static_cast<float>(x) + 0.5f, cy = static_cast<float>(y) + 0.5f;
      const float sides[4] = {cx - box.x0 / slot.stride, cy - box.y0 / slot.stride,
                              box.x1 / slot.stride - cx, box.y1 / slot.stride - cy};
      for (int side = 0; side < 4; ++side) {
        float logits[kBins];
        SolveLogits(Clamp(sides[side], 0.0f, kMaxDistance), model_.outputs[slot.regression],
                    logits);
        for (int j = 0; j < kBins; ++j)
          reg[static_cast<size_t>(side * kBins + j) * cells + cell] = logits[j];
      }
      track[cell] = Clamp(std::nearbyint(object.dx / track_step) * track_step, track_lo, track_hi);
      track[cells + cell] =
          Clamp(std::nearbyint(object.dy / track_step) * track_step, track_lo, track_hi);
    }
  }
}

}  // namespace ai
}  // namespace sim
}  // namespace mirvane
