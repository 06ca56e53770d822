#include "object_finder.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace mirvane {
namespace sim {
namespace ai {

namespace {

constexpr int kNeutral = 128;
// A sample whose chroma lies this far off the grey-to-class line belongs to no class.
constexpr float kMaxResidual = 20.0f;
// Shares below this are background chroma noise.
constexpr float kMinShare = 0.12f;
constexpr int kMinObjectPixels = 4;
// The stripes inside an object swing this far either side of the class luma.
constexpr int kStripeSwing = 12;

// Share of class colour c in chroma (u, v): the projection on the grey-to-class line, or 0 when
// the chroma lies off that line (another class, or a mix of two).
float ShareOf(int class_id, int u, int v) {
  const ClassColour& c = kClassColours[dva::ClassIndex(class_id)];
  const float du = static_cast<float>(u - kNeutral), dv = static_cast<float>(v - kNeutral);
  const float cu = static_cast<float>(c.u - kNeutral), cv = static_cast<float>(c.v - kNeutral);
  const float share = (du * cu + dv * cv) / (cu * cu + cv * cv);
  const float ru = du - share * cu, rv = dv - share * cv;
  if (ru * ru + rv * rv > kMaxResidual * kMaxResidual) return 0.0f;
  if (share < kMinShare) return 0.0f;
  return std::min(share, 1.0f);
}

// Luma at or above this is an object's interior, below it its border (half the class luma),
// halfway between the border and the darker stripes.
int InteriorLuma(int class_id) {
  const int y = kClassColours[dva::ClassIndex(class_id)].y;
  return (y / 2 + y - kStripeSwing + 1) / 2 + 1;
}

float Median(std::vector<float>* values) {
  if (values->empty()) return std::numeric_limits<float>::quiet_NaN();
  const size_t mid = values->size() / 2;
  std::nth_element(values->begin(), values->begin() + mid, values->end());
  float m = (*values)[mid];
  if (values->size() % 2 == 0) {
    m = (m + *std::max_element(values->begin(), values->begin() + mid)) * 0.5f;
  }
  return m;
}

// Four-connected flood fill over a w x h grid from start (already claimed): claim(n) takes a
// neighbour into the region and says whether it did; visit(x, y) sees every cell of the region.
template <typename Claim, typename Visit>
void FloodFill(int start, int w, int h, std::vector<int32_t>* stack, Claim claim, Visit visit) {
  stack->assign(1, start);
  while (!stack->empty()) {
    const int i = stack->back();
    stack->pop_back();
    const int x = i % w, y = i / w;
    visit(x, y);
    const int next[4] = {x > 0 ? i - 1 : -1, x + 1 < w ? i + 1 : -1, y > 0 ? i - w : -1,
                         y + 1 < h ? i + w : -1};
    for (int n : next) {
      if (n >= 0 && claim(n)) stack->push_back(n);
    }
  }
}

struct PixelBox {
  int x0, y0, x1, y1;  // x1, y1 exclusive
  int area;
};

}  // namespace

float ObjectFinder::Share(int class_id, int x, int y) const {
  if (x < 0 || y < 0 || x >= cw_ || y >= ch_) return 0.0f;
  const uint8_t* s = uv_ + static_cast<size_t>(y) * stride_ + 2 * x;
  return ShareOf(class_id, s[0], s[1]);
}

void ObjectFinder::LabelChroma(const Nv12Picture& picture) {
  cw_ = picture.width / 2;
  ch_ = picture.height / 2;
  uv_ = picture.uv;
  stride_ = picture.stride;
  const size_t samples = static_cast<size_t>(cw_) * ch_;
  class_of_.assign(samples, 0);
  label_.assign(samples, 0);
  components_.clear();
  for (int y = 0; y < ch_; ++y) {
    const uint8_t* row = uv_ + static_cast<size_t>(y) * stride_;
    for (int x = 0; x < cw_; ++x) {
      const int u = row[2 * x], v = row[2 * x + 1];
      if (std::abs(u - kNeutral) + std::abs(v - kNeutral) < 16) continue;  // grey: fast path
      for (const int c : dva::kClassIds) {
        if (ShareOf(c, u, v) >= 0.5f) {
          class_of_[static_cast<size_t>(y) * cw_ + x] = static_cast<uint8_t>(c);
          break;
        }
      }
    }
  }
  // Connected components of equal class, four-connected, numbered in raster order of their
  // first sample.
  for (int start = 0; start < static_cast<int>(samples); ++start) {
    if (class_of_[start] == 0 || label_[start] != 0) continue;
    const int class_id = class_of_[start];
    const int32_t label = static_cast<int32_t>(components_.size()) + 1;
    Component comp{class_id, cw_, ch_, -1, -1};
    label_[start] = label;
    FloodFill(
        start, cw_, ch_, &stack_,
        [&](int n) {
          if (label_[n] != 0 || class_of_[n] != class_id) return false;
          label_[n] = label;
          return true;
        },
        [&comp](int x, int y) {
          comp.x0 = std::min(comp.x0, x), comp.x1 = std::max(comp.x1, x);
          comp.y0 = std::min(comp.y0, y), comp.y1 = std::max(comp.y1, y);
        });
    components_.push_back(comp);
  }
}

// The component's sides from the class shares next to its outermost samples: across a blurred
// or sample-splitting edge the shares add up to the covered length.
void ObjectFinder::SubpixelBox(int label, const Component& comp, float box[4]) const {
  const int c = comp.class_id;
  const int kx = comp.x1 - comp.x0 + 1 >= 4 ? 1 : 0;
  const int ky = comp.y1 - comp.y0 + 1 >= 4 ? 1 : 0;
  std::vector<float> left, right, top, bottom;
  for (int y = comp.y0; y <= comp.y1; ++y) {
    const int32_t* row = &label_[static_cast<size_t>(y) * cw_];
    if (row[comp.x0] == label) {
      float s = 0;
      for (int x = comp.x0 - 1; x <= comp.x0 + kx; ++x) s += Share(c, x, y);
      left.push_back(static_cast<float>(comp.x0 + kx + 1) - s);
    }
    if (row[comp.x1] == label) {
      float s = 0;
      for (int x = comp.x1 - kx; x <= comp.x1 + 1; ++x) s += Share(c, x, y);
      right.push_back(static_cast<float>(comp.x1 - kx) + s);
    }
  }
  for (int x = comp.x0; x <= comp.x1; ++x) {
    if (label_[static_cast<size_t>(comp.y0) * cw_ + x] == label) {
      float s = 0;
      for (int y = comp.y0 - 1; y <= comp.y0 + ky; ++y) s += Share(c, x, y);
      top.push_back(static_cast<float>(comp.y0 + ky + 1) - s);
    }
    if (label_[static_cast<size_t>(comp.y1) * cw_ + x] == label) {
      float s = 0;
      for (int y = comp.y1 - ky; y <= comp.y1 + 1; ++y) s += Share(c, x, y);
      bottom.push_back(static_cast<float>(comp.y1 - ky) + s);
    }
  }
  box[0] = 2.0f * Median(&left);
  box[1] = 2.0f * Median(&top);
  box[2] = 2.0f * Median(&right);
  box[3] = 2.0f * Median(&bottom);
}

// A sharp edge at an odd pixel position falls inside a chroma sample: the sample's outer pixel
// line keeps the background's luma while the next one holds the border's. side: 0 left, 1 top,
// 2 right, 3 bottom.
float ObjectFinder::RefineSharpEdge(const Nv12Picture& picture, int label, const Component& comp,
                                    int side, float edge) const {
  const int p = static_cast<int>(std::lround(edge));
  if (std::fabs(edge - static_cast<float>(p)) > 0.05f || p % 2 != 0) return edge;
  const bool vertical = side == 0 || side == 2;
  const int outer = side < 2 ? p : p - 1;
  const int inner = side < 2 ? p + 1 : p - 2;
  const int limit = vertical ? picture.width : picture.height;
  if (outer < 0 || inner < 0 || outer >= limit || inner >= limit) return edge;
  const int border = kClassColours[dva::ClassIndex(comp.class_id)].y / 2;
  const int along0 = 2 * (vertical ? comp.y0 : comp.x0) + 3;
  const int along1 = 2 * (vertical ? comp.y1 : comp.x1) - 2;
  int lines = 0, outer_border = 0, inner_border = 0;
  for (int a = along0; a < along1; ++a) {
    const int x_in = vertical ? inner : a, y_in = vertical ? a : inner;
    if (label_[static_cast<size_t>(y_in / 2) * cw_ + x_in / 2] != label) continue;
    const int x_out = vertical ? outer : a, y_out = vertical ? a : outer;
    ++lines;
    outer_border +=
        std::abs(picture.y[static_cast<size_t>(y_out) * picture.stride + x_out] - border) <= 3;
    inner_border +=
        std::abs(picture.y[static_cast<size_t>(y_in) * picture.stride + x_in] - border) <= 3;
  }
  if (lines < 4 || outer_border * 2 >= lines || inner_border * 4 < lines * 3) return edge;
  return side < 2 ? edge + 1.0f : edge - 1.0f;
}

void ObjectFinder::SplitComponent(const Nv12Picture& picture, int label, const Component& comp,
                                  std::vector<FoundObject>* out) {
  float outline[4];
  SubpixelBox(label, comp, outline);
  for (int side = 0; side < 4; ++side) {
    outline[side] = RefineSharpEdge(picture, label, comp, side, outline[side]);
  }
  auto emit = [out, &comp](float x0, float y0, float x1, float y1) {
    if (x1 - x0 >= kMinObjectPixels && y1 - y0 >= kMinObjectPixels) {
      FoundObject o;
      o.class_id = comp.class_id;
      o.x0 = x0, o.y0 = y0, o.x1 = x1, o.y1 = y1;
      out->push_back(o);
    }
  };

  // Interior areas inside the component's pixels, four-connected.
  const int px0 = 2 * comp.x0, py0 = 2 * comp.y0;
  const int w = std::min(2 * comp.x1 + 2, picture.width) - px0;
  const int h = std::min(2 * comp.y1 + 2, picture.height) - py0;
  const int threshold = InteriorLuma(comp.class_id);
  interior_.assign(static_cast<size_t>(w) * h, 0);
  for (int y = 0; y < h; ++y) {
    const uint8_t* luma = picture.y + static_cast<size_t>(py0 + y) * picture.stride + px0;
    const int32_t* labels = &label_[static_cast<size_t>((py0 + y) / 2) * cw_];
    for (int x = 0; x < w; ++x) {
      if (labels[(px0 + x) / 2] == label && luma[x] >= threshold) {
        interior_[static_cast<size_t>(y) * w + x] = -1;
      }
    }
  }
  std::vector<PixelBox> areas;
  for (int start = 0; start < w * h; ++start) {
    if (interior_[start] != -1) continue;
    const int32_t id = static_cast<int32_t>(areas.size()) + 1;
    PixelBox a{w, h, 0, 0, 0};
    interior_[start] = id;
    FloodFill(
        start, w, h, &stack_,
        [&](int n) {
          if (interior_[n] != -1) return false;
          interior_[n] = id;
          return true;
        },
        [&a](int x, int y) {
          a.x0 = std::min(a.x0, x), a.x1 = std::max(a.x1, x + 1);
          a.y0 = std::min(a.y0, y), a.y1 = std::max(a.y1, y + 1);
          ++a.area;
        });
    areas.push_back(a);
  }
  int largest = 0;
  for (const PixelBox& a : areas) largest = std::max(largest, a.area);
  areas.erase(std::remove_if(areas.begin(), areas.end(),
                             [largest](const PixelBox& a) {
                               return a.area < 4 || a.x1 - a.x0 < 2 || a.y1 - a.y0 < 2 ||
                                      a.area * 10 < largest;
                             }),
              areas.end());
  if (areas.size() <= 1) {
    emit(outline[0], outline[1], outline[2], outline[3]);
    return;
  }

  // Several objects: each interior grown by the border width, except on the sides where it
  // reaches the component's outline, which the chroma places more exactly.
  PixelBox all{w, h, 0, 0, 0};
  for (const PixelBox& a : areas) {
    all.x0 = std::min(all.x0, a.x0), all.y0 = std::min(all.y0, a.y0);
    all.x1 = std::max(all.x1, a.x1), all.y1 = std::max(all.y1, a.y1);
  }
  std::vector<float> gaps = {
      static_cast<float>(px0 + all.x0) - outline[0], static_cast<float>(py0 + all.y0) - outline[1],
      outline[2] - static_cast<float>(px0 + all.x1), outline[3] - static_cast<float>(py0 + all.y1)};
  const float border = std::min(std::max(Median(&gaps), 0.0f), 8.0f);
  for (const PixelBox& a : areas) {
    const float x0 = a.x0 - all.x0 <= 1 ? outline[0] : static_cast<float>(px0 + a.x0) - border;
    const float y0 = a.y0 - all.y0 <= 1 ? outline[1] : static_cast<float>(py0 + a.y0) - border;
    const float x1 = all.x1 - a.x1 <= 1 ? outline[2] : static_cast<float>(px0 + a.x1) + border;
    const float y1 = all.y1 - a.y1 <= 1 ? outline[3] : static_cast<float>(py0 + a.y1) + border;
    emit(x0, y0, x1, y1);
  }
}

std::vector<FoundObject> ObjectFinder::Find(const Nv12Picture& picture) {
  LabelChroma(picture);
  std::vector<FoundObject> found;
  for (const int c : dva::kClassIds) {
    for (size_t i = 0; i < components_.size(); ++i) {
      const Component& comp = components_[i];
      if (comp.class_id != c || comp.x1 - comp.x0 < 1 || comp.y1 - comp.y0 < 1) continue;
      SplitComponent(picture, static_cast<int>(i) + 1, comp, &found);
    }
  }
  return found;
}

std::vector<int> MatchPrevious(const std::vector<FoundObject>& current,
                               const std::vector<FoundObject>& previous) {
  struct Pair {
    float overlap;
    float distance;
    int cur, prev;
  };
  std::vector<Pair> pairs;
  for (size_t i = 0; i < current.size(); ++i) {
    const FoundObject& a = current[i];
    const float reach = std::max(a.x1 - a.x0, a.y1 - a.y0);
    for (size_t j = 0; j < previous.size(); ++j) {
      const FoundObject& b = previous[j];
      if (a.class_id != b.class_id) continue;
      const float iw = std::min(a.x1, b.x1) - std::max(a.x0, b.x0);
      const float ih = std::min(a.y1, b.y1) - std::max(a.y0, b.y0);
      const float inter = iw > 0 && ih > 0 ? iw * ih : 0.0f;
      const float uni = (a.x1 - a.x0) * (a.y1 - a.y0) + (b.x1 - b.x0) * (b.y1 - b.y0) - inter;
      const float distance = std::hypot(a.cx() - b.cx(), a.cy() - b.cy());
      if (inter <= 0 && distance > reach) continue;
      pairs.push_back(
          Pair{uni > 0 ? inter / uni : 0.0f, distance, static_cast<int>(i), static_cast<int>(j)});
    }
  }
  std::sort(pairs.begin(), pairs.end(), [](const Pair& p, const Pair& q) {
    if (p.overlap != q.overlap) return p.overlap > q.overlap;
    if (p.distance != q.distance) return p.distance < q.distance;
    return p.cur != q.cur ? p.cur < q.cur : p.prev < q.prev;
  });
  std::vector<int> match(current.size(), -1);
  std::vector<bool> taken(previous.size(), false);
  for (const Pair& p : pairs) {
    if (match[p.cur] != -1 || taken[p.prev]) continue;
    match[p.cur] = p.prev;
    taken[p.prev] = true;
  }
  return match;
}

}  // namespace ai
}  // namespace sim
}  // namespace mirvane
