#include "model_file.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <set>

#include "fixed_point.h"
#include "hd_type.h"

namespace mirvane {
namespace sim {
namespace ai {

namespace {

constexpr uint32_t Tag(char a, char b, char c, char d) {
  return static_cast<uint32_t>(static_cast<uint8_t>(a)) |
         static_cast<uint32_t>(static_cast<uint8_t>(b)) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(c)) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(d)) << 24;
}

constexpr uint32_t kMagic = Tag('M', 'V', 'N', 'M');
constexpr uint32_t kNameTag = Tag('N', 'A', 'M', 'E');
constexpr uint32_t kInputsTag = Tag('I', 'N', 'P', 'T');
constexpr uint32_t kOutputsTag = Tag('O', 'U', 'T', 'P');
constexpr uint32_t kSettingsTag = Tag('S', 'E', 'T', 'T');
constexpr uint32_t kOnnxTag = Tag('O', 'N', 'N', 'X');
constexpr size_t kInputRecordSize = 16;
constexpr size_t kOutputRecordSize = 32;
constexpr size_t kSettingsSize = 32;
constexpr uint32_t kInputSize = 384;
constexpr uint32_t kYuv420 = 0x520c0420u;

class Writer {
 public:
  void U32(uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes_.push_back(static_cast<uint8_t>(v >> (8 * i)));
  }
  void U64(uint64_t v) {
    U32(static_cast<uint32_t>(v));
    U32(static_cast<uint32_t>(v >> 32));
  }
  void F32(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof(bits));
    U32(bits);
  }
  void Bytes(const void* data, size_t size) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    bytes_.insert(bytes_.end(), p, p + size);
  }
  // Starts a chunk; EndChunk fills in its length and pads it.
  size_t BeginChunk(uint32_t tag) {
    U32(tag);
    U32(0);
    return bytes_.size();
  }
  void EndChunk(size_t start) {
    const uint32_t length = static_cast<uint32_t>(bytes_.size() - start);
    for (int i = 0; i < 4; ++i) bytes_[start - 4 + i] = static_cast<uint8_t>(length >> (8 * i));
    while (bytes_.size() % 4 != 0) bytes_.push_back(0);
  }
  void PatchU32(size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes_[at + i] = static_cast<uint8_t>(v >> (8 * i));
  }
  std::vector<uint8_t>& bytes() { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

// Reads little-endian fields from a bounded span; every read is checked against the end.
class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool U32(uint32_t* v) {
    if (size_ - pos_ < 4) return false;
    *v = 0;
    for (int i = 0; i < 4; ++i) *v |= static_cast<uint32_t>(data_[pos_ + i]) << (8 * i);
    pos_ += 4;
    return true;
  }
  bool U64(uint64_t* v) {
    uint32_t lo, hi;
    if (!U32(&lo) || !U32(&hi)) return false;
    *v = static_cast<uint64_t>(hi) << 32 | lo;
    return true;
  }
  bool F32(float* v) {
    uint32_t bits;
    if (!U32(&bits)) return false;
    std::memcpy(v, &bits, sizeof(*v));
    return true;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

ModelCheck Fail(int code, std::string reason) {
  return ModelCheck{code, std::move(reason)};
}

std::string Hex(uint32_t v) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08x", static_cast<unsigned>(v));
  return text;
}

const char* KindName(OutputKind kind) {
  switch (kind) {
    case OutputKind::kHeatmap:
      return "heatmap";
    case OutputKind::kRegression:
      return "regression";
    case OutputKind::kTracking:
      return "tracking";
  }
  return "?";
}

uint32_t ChannelsOf(OutputKind kind) {
  switch (kind) {
    case OutputKind::kHeatmap:
      return 4;
    case OutputKind::kRegression:
      return 32;
    case OutputKind::kTracking:
      return 2;
  }
  return 0;
}

bool InRange01(float v) {
  return v >= 0.0f && v <= 1.0f;
}

// The reference network's own limits on what a model may say.
ModelCheck CheckContents(const ModelDescription& model) {
  if (model.name != kReferenceNetworkName && model.name != kMotionNetworkName &&
      model.name != kOnnxNetworkName) {
    return Fail(HD_ERR_NOT_SUPPORT, "unknown network \"" + model.name + "\"");
  }
  if ((model.name == kOnnxNetworkName) != !model.onnx.empty()) {
    return Fail(HD_ERR_INV, model.onnx.empty() ? "an onnx-float model without its ONNX chunk"
                                               : "an ONNX chunk in a model of " + model.name);
  }
  std::set<uint32_t> ids;
  if (model.inputs.size() != 2) return Fail(HD_ERR_INV, "the network takes 2 inputs");
  for (const InputPath& in : model.inputs) {
    if ((in.path_id & 0xf0000000u) != 0x90000000u) {
      return Fail(HD_ERR_INV, "input path id " + Hex(in.path_id) + " is not an input id");
    }
    if (in.width != kInputSize || in.height != kInputSize || in.format != kYuv420) {
      return Fail(HD_ERR_INV, "input " + Hex(in.path_id) + " is not 384x384 YUV 4:2:0");
    }
    if (!ids.insert(in.path_id).second)
      return Fail(HD_ERR_INV, "path id " + Hex(in.path_id) + " twice");
  }
  if (model.outputs.size() != 9) return Fail(HD_ERR_INV, "the network has 9 outputs");
  std::set<std::pair<uint32_t, uint32_t>> slots;
  for (const OutputPath& out : model.outputs) {
    const std::string which = "output " + Hex(out.path_id);
    if ((out.path_id & 0xf0000000u) != 0xa0000000u)
      return Fail(HD_ERR_INV, which + " is not an output id");
    if (!ids.insert(out.path_id).second)
      return Fail(HD_ERR_INV, "path id " + Hex(out.path_id) + " twice");
    const uint32_t kind = static_cast<uint32_t>(out.kind);
    if (kind < 1 || kind > 3 || out.scale > 2)
      return Fail(HD_ERR_INV, which + ": unknown kind or scale");
    if (!slots.insert({kind, out.scale}).second) {
      return Fail(HD_ERR_INV, which + ": a second " + KindName(out.kind) + " of scale " +
                                  std::to_string(out.scale + 1));
    }
    const uint32_t grid = kInputSize / (8u << out.scale);
    if (out.width != grid || out.height != grid || out.channels != ChannelsOf(out.kind)) {
      return Fail(HD_ERR_INV, which + ": shape is not " + std::to_string(ChannelsOf(out.kind)) +
                                  "x" + std::to_string(grid) + "x" + std::to_string(grid));
    }
    FixedFormat format;
    if (!DecodeFixedFormat(out.format, &format)) {
      return Fail(HD_ERR_NOT_SUPPORT, which + ": format " + Hex(out.format) + " not supported");
    }
    if (!(std::isfinite(out.scale_ratio) && out.scale_ratio > 0.0f)) {
      return Fail(HD_ERR_INV, which + ": scale ratio must be positive");
    }
  }
  const NetworkSettings& s = model.settings;
  if (!InRange01(s.score) || !(s.score_jitter >= 0.0f && s.score_jitter <= 1.0f) ||
      !InRange01(s.miss_rate) || !(s.false_rate >= 0.0f && s.false_rate <= 100.0f) ||
      !(s.box_jitter >= 0.0f && s.box_jitter <= 64.0f) || s.delay_ms > 10000) {
    return Fail(HD_ERR_INV, "network settings out of range");
  }
  return ModelCheck{};
}

OutputPath Output(uint32_t id, OutputKind kind, uint32_t scale, uint32_t format, float ratio) {
  OutputPath out;
  out.path_id = id;
  out.kind = kind;
  out.scale = scale;
  out.width = out.height = kInputSize / (8u << scale);
  out.channels = ChannelsOf(kind);
  out.format = format;
  out.scale_ratio = ratio;
  return out;
}

ModelCheck ParseChunk(uint32_t tag, const uint8_t* payload, uint32_t length,
                      ModelDescription* model, uint32_t* seen) {
  Reader r(payload, length);
  if (tag == kNameTag) {
    model->name.assign(reinterpret_cast<const char*>(payload), length);
    *seen |= 1;
  } else if (tag == kInputsTag) {
    uint32_t count = 0;
    if (!r.U32(&count) || count > (length - 4) / kInputRecordSize) {
      return Fail(HD_ERR_BAD_DATA, "input list runs past its chunk");
    }
    model->inputs.resize(count);
    for (InputPath& in : model->inputs) {
      r.U32(&in.path_id), r.U32(&in.width), r.U32(&in.height), r.U32(&in.format);
    }
    *seen |= 2;
  } else if (tag == kOutputsTag) {
    uint32_t count = 0;
    if (!r.U32(&count) || count > (length - 4) / kOutputRecordSize) {
      return Fail(HD_ERR_BAD_DATA, "output list runs past its chunk");
    }
    model->outputs.resize(count);
    for (OutputPath& out : model->outputs) {
      uint32_t kind = 0;
      r.U32(&out.path_id), r.U32(&kind), r.U32(&out.scale), r.U32(&out.width);
      r.U32(&out.height), r.U32(&out.channels), r.U32(&out.format), r.F32(&out.scale_ratio);
      out.kind = static_cast<OutputKind>(kind);
    }
    *seen |= 4;
  } else if (tag == kSettingsTag) {
    if (length < kSettingsSize) return Fail(HD_ERR_BAD_DATA, "settings chunk too short");
    NetworkSettings& s = model->settings;
    r.U64(&s.seed), r.F32(&s.score), r.F32(&s.score_jitter), r.F32(&s.miss_rate);
    r.F32(&s.false_rate), r.F32(&s.box_jitter), r.U32(&s.delay_ms);
    *seen |= 8;
  } else if (tag == kOnnxTag) {
    model->onnx.assign(payload, payload + length);
  }
  return ModelCheck{};
}

}  // namespace

ModelDescription DefaultModel() {
  ModelDescription model;
  model.name = kReferenceNetworkName;
  model.inputs = {InputPath{0x90000000u, kInputSize, kInputSize, kYuv420},
                  InputPath{0x90000001u, kInputSize, kInputSize, kYuv420}};
  const uint32_t hm[3] = {0xa0000084u, 0xa0000096u, 0xa00000a7u};
  const uint32_t reg[3] = {0xa000007eu, 0xa0000094u, 0xa00000a5u};
  const uint32_t trk[3] = {0xa0000081u, 0xa0000095u, 0xa00000a6u};
  for (uint32_t s = 0; s < 3; ++s) {
    model.outputs.push_back(Output(hm[s], OutputKind::kHeatmap, s, 0xa2080000u, 1.0f / 255.0f));
  }
  for (uint32_t s = 0; s < 3; ++s) {
    model.outputs.push_back(Output(reg[s], OutputKind::kRegression, s, 0xa1080004u, 1.0f));
  }
  for (uint32_t s = 0; s < 3; ++s) {
    model.outputs.push_back(Output(trk[s], OutputKind::kTracking, s, 0xa1100006u, 1.0f));
  }
  return model;
}

NetworkSettings IdealSettings() {
  NetworkSettings s;
  s.score_jitter = 0.0f;
  s.miss_rate = 0.0f;
  s.false_rate = 0.0f;
  s.box_jitter = 0.0f;
  s.delay_ms = 0;
  return s;
}

std::vector<uint8_t> SerializeModel(const ModelDescription& model) {
  Writer w;
  w.U32(kMagic);
  w.U32(kModelFileVersion);
  w.U32(0);  // total size
  w.U32(0);  // checksum
  size_t chunk = w.BeginChunk(kNameTag);
  w.Bytes(model.name.data(), model.name.size());
  w.EndChunk(chunk);
  chunk = w.BeginChunk(kInputsTag);
  w.U32(static_cast<uint32_t>(model.inputs.size()));
  for (const InputPath& in : model.inputs) {
    w.U32(in.path_id), w.U32(in.width), w.U32(in.height), w.U32(in.format);
  }
  w.EndChunk(chunk);
  chunk = w.BeginChunk(kOutputsTag);
  w.U32(static_cast<uint32_t>(model.outputs.size()));
  for (const OutputPath& out : model.outputs) {
    w.U32(out.path_id), w.U32(static_cast<uint32_t>(out.kind)), w.U32(out.scale);
    w.U32(out.width), w.U32(out.height), w.U32(out.channels), w.U32(out.format);
    w.F32(out.scale_ratio);
  }
  w.EndChunk(chunk);
  chunk = w.BeginChunk(kSettingsTag);
  const NetworkSettings& s = model.settings;
  w.U64(s.seed), w.F32(s.score), w.F32(s.score_jitter), w.F32(s.miss_rate);
  w.F32(s.false_rate), w.F32(s.box_jitter), w.U32(s.delay_ms);
  w.EndChunk(chunk);
  if (!model.onnx.empty()) {
    chunk = w.BeginChunk(kOnnxTag);
    w.Bytes(model.onnx.data(), model.onnx.size());
    w.EndChunk(chunk);
  }

  std::vector<uint8_t>& bytes = w.bytes();
  w.PatchU32(8, static_cast<uint32_t>(bytes.size()));
  const uint32_t crc =
      ModelChecksum(bytes.data() + kModelHeaderSize, bytes.size() - kModelHeaderSize);
  w.PatchU32(12, crc);
  return std::move(bytes);
}

ModelCheck ParseModel(const uint8_t* data, size_t region_size, ModelDescription* model) {
  Reader header(data, region_size);
  uint32_t magic = 0, version = 0, total = 0, crc = 0;
  if (!header.U32(&magic)) return Fail(HD_ERR_UNDERRUN, "shorter than a model header");
  if (magic != kMagic) return Fail(HD_ERR_SIGN, "not a mirvane model file (bad magic)");
  if (!header.U32(&version) || !header.U32(&total) || !header.U32(&crc)) {
    return Fail(HD_ERR_UNDERRUN, "shorter than a model header");
  }
  if (version != kModelFileVersion) {
    return Fail(HD_ERR_NOT_SUPPORT, "model file version " + std::to_string(version) +
                                        ", this runtime reads version " +
                                        std::to_string(kModelFileVersion));
  }
  if (total < kModelHeaderSize) return Fail(HD_ERR_BAD_DATA, "model size field too small");
  if (total > region_size) {
    return Fail(HD_ERR_UNDERRUN, "truncated: the file says " + std::to_string(total) + " bytes, " +
                                     std::to_string(region_size) + " are there");
  }
  const uint32_t actual = ModelChecksum(data + kModelHeaderSize, total - kModelHeaderSize);
  if (actual != crc) return Fail(HD_ERR_BAD_DATA, "checksum mismatch");

  ModelDescription parsed;
  uint32_t seen = 0;
  size_t pos = kModelHeaderSize;
  while (pos < total) {
    Reader chunk(data + pos, total - pos);
    uint32_t tag = 0, length = 0;
    if (!chunk.U32(&tag) || !chunk.U32(&length) || length > total - pos - 8) {
      return Fail(HD_ERR_BAD_DATA, "chunk runs past the end of the file");
    }
    ModelCheck check = ParseChunk(tag, data + pos + 8, length, &parsed, &seen);
    if (check.code != 0) return check;
    pos += 8 + (static_cast<size_t>(length) + 3) / 4 * 4;
  }
  if (seen != 15) return Fail(HD_ERR_BAD_DATA, "a NAME, INPT, OUTP or SETT chunk is missing");
  ModelCheck check = CheckContents(parsed);
  if (check.code != 0) return check;
  *model = std::move(parsed);
  return ModelCheck{};
}

std::string DescribeModel(const ModelDescription& model) {
  std::string text = "network: " + model.name + "\n";
  char line[160];
  for (size_t i = 0; i < model.inputs.size(); ++i) {
    const InputPath& in = model.inputs[i];
    std::snprintf(line, sizeof(line), "input %zu: path 0x%08x %ux%u format 0x%08x\n", i,
                  static_cast<unsigned>(in.path_id), static_cast<unsigned>(in.width),
                  static_cast<unsigned>(in.height), static_cast<unsigned>(in.format));
    text += line;
  }
  for (const OutputPath& out : model.outputs) {
    std::snprintf(line, sizeof(line),
                  "output: path 0x%08x %s scale %u %ux%ux%u format 0x%08x ratio %g\n",
                  static_cast<unsigned>(out.path_id), KindName(out.kind),
                  static_cast<unsigned>(out.scale + 1), static_cast<unsigned>(out.channels),
                  static_cast<unsigned>(out.height), static_cast<unsigned>(out.width),
                  static_cast<unsigned>(out.format), static_cast<double>(out.scale_ratio));
    text += line;
  }
  const NetworkSettings& s = model.settings;
  std::snprintf(line, sizeof(line),
                "settings: seed %llu score %g score_jitter %g miss_rate %g false_rate %g "
                "box_jitter %g delay_ms %u\n",
                static_cast<unsigned long long>(s.seed), static_cast<double>(s.score),
                static_cast<double>(s.score_jitter), static_cast<double>(s.miss_rate),
                static_cast<double>(s.false_rate), static_cast<double>(s.box_jitter),
                static_cast<unsigned>(s.delay_ms));
  text += line;
  if (!model.onnx.empty()) text += "onnx: " + std::to_string(model.onnx.size()) + " bytes\n";
  return text;
}

uint32_t ModelChecksum(const uint8_t* data, size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

}  // namespace ai
}  // namespace sim
}  // namespace mirvane
