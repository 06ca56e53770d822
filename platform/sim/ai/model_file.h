// The host model file: a small versioned container that names the network it holds, its input and
// output paths with their shapes and formats, and the network's own settings.
//
// Layout (all numbers little-endian):
//   header   "MVNM", u32 version (1), u32 total size in bytes, u32 CRC-32 of the bytes after the
//            header up to the total size
//   chunks   u32 tag (four characters), u32 payload length, payload, zero padding to 4 bytes:
//     "NAME" the network's name (text, no terminator)
//     "INPT" u32 count, then per input: u32 path id, u32 width, u32 height, u32 pixel format
//     "OUTP" u32 count, then per output: u32 path id, u32 kind, u32 scale, u32 width, u32 height,
//            u32 channels, u32 format, f32 scale ratio
//     "SETT" u64 seed, f32 score, f32 score jitter, f32 miss rate, f32 false rate, f32 box jitter,
//            u32 delay in ms
//     "ONNX" a float ONNX export of the detection network (networks of kind onnx-float only)
//   Unknown chunks are skipped; a longer known chunk is accepted (later versions append fields).
//
// The file may sit at the start of a larger region (device memory rounded up): the total size in
// the header says where it ends, and parsing never reads past the region it is given.
//
// Pure data and byte handling; no platform calls. Safe to call from any thread.
#ifndef MIRVANE_PLATFORM_SIM_AI_MODEL_FILE_H
#define MIRVANE_PLATFORM_SIM_AI_MODEL_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace mirvane {
namespace sim {
namespace ai {

constexpr uint32_t kModelFileVersion = 1;
constexpr size_t kModelHeaderSize = 16;
// The networks this runtime implements: the reference network, and the motion detector (on a
// build with OpenCV), which reads the same settings but seed, miss and false rates and box jitter.
constexpr const char* kReferenceNetworkName = "nanotrack-reference";
constexpr const char* kMotionNetworkName = "motion-mog2";
// A user's own network: the model file carries its float ONNX export (see onnx_network.h for the
// tensors it takes and gives), run with OpenCV and quantised to the outputs' formats.
constexpr const char* kOnnxNetworkName = "onnx-float";

// What an output tensor holds; the scale is 0, 1, 2 for strides 8, 16, 32.
enum class OutputKind : uint32_t { kHeatmap = 1, kRegression = 2, kTracking = 3 };

struct InputPath {
  uint32_t path_id = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t format = 0;
};

struct OutputPath {
  uint32_t path_id = 0;
  OutputKind kind = OutputKind::kHeatmap;
  uint32_t scale = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;
  uint32_t format = 0;
  float scale_ratio = 1.0f;
};

// The reference network's imperfections, all drawn from one seeded generator.
struct NetworkSettings {
  uint64_t seed = 1;
  float score = 0.85f;         // peak heat of a found object
  float score_jitter = 0.05f;  // peak heat varies by up to this much either way
  float miss_rate = 0.01f;     // chance that a found object is left out of one run
  float false_rate = 0.005f;   // expected false detections per run
  float box_jitter = 0.5f;     // each box side moves by up to this many input pixels
  uint32_t delay_ms = 20;      // processing time of one run, like the accelerator's
};

struct ModelDescription {
  std::string name;
  std::vector<InputPath> inputs;  // current picture first, then the previous one
  std::vector<OutputPath> outputs;
  NetworkSettings settings;
  std::vector<uint8_t> onnx;  // the ONNX export, for onnx-float
};

// Result of parsing: 0, or the platform's error code with a reason.
struct ModelCheck {
  int code = 0;
  std::string reason;
};

// The reference network with the daemon's default path ids: 384x384 YUV 4:2:0 inputs
// 0x90000000 and 0x90000001; heatmaps 0xa0000084, 0xa0000096, 0xa00000a7 (unsigned 8-bit, scale
// 1/255), regressions 0xa000007e, 0xa0000094, 0xa00000a5 (signed 8-bit, 4 fraction bits),
// trackings 0xa0000081, 0xa0000095, 0xa00000a6 (signed 16-bit, 6 fraction bits).
ModelDescription DefaultModel();
// The same without imperfections or delay (exact boxes, fixed scores).
NetworkSettings IdealSettings();

std::vector<uint8_t> SerializeModel(const ModelDescription& model);

// Parses the file at data (region_size bytes available). Codes: HD_ERR_SIGN for a foreign file,
// HD_ERR_NOT_SUPPORT for another version or an unknown network, HD_ERR_UNDERRUN for a truncated
// one, HD_ERR_BAD_DATA for a corrupt one (checksum, chunk structure) and HD_ERR_INV for contents
// the reference network cannot run (shapes, formats, path ids, settings out of range).
ModelCheck ParseModel(const uint8_t* data, size_t region_size, ModelDescription* model);

// One line per field, for the model tool.
std::string DescribeModel(const ModelDescription& model);

// CRC-32 (the IEEE 802.3 polynomial, as in zip and PNG) of size bytes: the model file's checksum.
// Kept here rather than taken from zlib so that the cross builds need no extra target library.
uint32_t ModelChecksum(const uint8_t* data, size_t size);

}  // namespace ai
}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_AI_MODEL_FILE_H
