// The host model file: what is written is read back, and a file that is foreign, truncated,
// corrupt, of another version or describing something the network cannot run is refused with
// its own code, without reading past the region it lies in.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

extern "C" {
#include "hd_type.h"
}

#include "model_file.h"

namespace mirvane {
namespace sim {
namespace ai {
namespace {

// Parses a copy of bytes in a heap block of exactly that size, so that a read past the end is
// caught by the sanitizers.
ModelCheck ParseExactly(const std::vector<uint8_t>& bytes, ModelDescription* model) {
  std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes.size()]);
  if (!bytes.empty()) std::memcpy(copy.get(), bytes.data(), bytes.size());
  return ParseModel(copy.get(), bytes.size(), model);
}

// Writes a new checksum after an edit, so that only the edit itself is judged.
void Reseal(std::vector<uint8_t>* bytes) {
  const uint32_t crc = ModelChecksum(bytes->data() + 16, bytes->size() - 16);
  for (int i = 0; i < 4; ++i) (*bytes)[12 + i] = static_cast<uint8_t>(crc >> (8 * i));
}

TEST(ModelFile, ReadsBackWhatItWrote) {
  ModelDescription written = DefaultModel();
  written.settings.seed = 0x123456789abcull;
  written.settings.score = 0.7f;
  written.settings.box_jitter = 1.25f;
  written.settings.delay_ms = 33;
  written.outputs[0].scale_ratio = 0.5f;
  std::vector<uint8_t> bytes = SerializeModel(written);
  bytes.resize(bytes.size() + 31, 0xff);  // a rounded-up region after the file
  ModelDescription read;
  const ModelCheck check = ParseExactly(bytes, &read);
  ASSERT_EQ(check.code, 0) << check.reason;
  EXPECT_EQ(read.name, "nanotrack-reference");
  ASSERT_EQ(read.inputs.size(), 2u);
  EXPECT_EQ(read.inputs[1].path_id, 0x90000001u);
  ASSERT_EQ(read.outputs.size(), 9u);
  EXPECT_EQ(read.outputs[0].path_id, 0xa0000084u);
  EXPECT_EQ(read.outputs[0].scale_ratio, 0.5f);
  EXPECT_EQ(read.outputs[8].path_id, 0xa00000a6u);
  EXPECT_EQ(read.outputs[8].kind, OutputKind::kTracking);
  EXPECT_EQ(read.outputs[8].scale, 2u);
  EXPECT_EQ(read.settings.seed, 0x123456789abcull);
  EXPECT_EQ(read.settings.score, 0.7f);
  EXPECT_EQ(read.settings.box_jitter, 1.25f);
  EXPECT_EQ(read.settings.delay_ms, 33u);
}

TEST(ModelFile, RefusesEveryTruncationAndEveryFlippedByte) {
  const std::vector<uint8_t> bytes = SerializeModel(DefaultModel());
  ModelDescription model;
  for (size_t size = 0; size < bytes.size(); ++size) {
    const std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + size);
    EXPECT_EQ(ParseExactly(cut, &model).code, HD_ERR_UNDERRUN) << size;
  }
  for (size_t at = 16; at < bytes.size(); ++at) {
    std::vector<uint8_t> flipped = bytes;
    flipped[at] ^= 0x10;
    EXPECT_EQ(ParseExactly(flipped, &model).code, HD_ERR_BAD_DATA) << at;
  }
}

TEST(ModelFile, RefusesForeignFilesAndOtherVersions) {
  ModelDescription model;
  const std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0, 0,
                                    0,    0,   0,   0,   0,    0,    0,    0,    0, 0};
  EXPECT_EQ(ParseExactly(png, &model).code, HD_ERR_SIGN);
  std::vector<uint8_t> newer = SerializeModel(DefaultModel());
  newer[4] = 2;
  const ModelCheck check = ParseExactly(newer, &model);
  EXPECT_EQ(check.code, HD_ERR_NOT_SUPPORT);
  EXPECT_NE(check.reason.find("version 2"), std::string::npos) << check.reason;
}

TEST(ModelFile, RefusesChunksThatRunPastTheFile) {
  std::vector<uint8_t> bytes = SerializeModel(DefaultModel());
  bytes[20] = 0xff;  // the first chunk's length
  Reseal(&bytes);
  ModelDescription model;
  EXPECT_EQ(ParseExactly(bytes, &model).code, HD_ERR_BAD_DATA);
  std::vector<uint8_t> counted = SerializeModel(DefaultModel());
  // The input count: NAME chunk (8 + 19 bytes, padded to 20) follows the header.
  const size_t count_at = 16 + 8 + 20 + 8;
  ASSERT_EQ(counted[count_at], 2);
  counted[count_at] = 200;
  Reseal(&counted);
  EXPECT_EQ(ParseExactly(counted, &model).code, HD_ERR_BAD_DATA);
}

TEST(ModelFile, RefusesModelsTheNetworkCannotRun) {
  struct Edit {
    const char* what;
    void (*apply)(ModelDescription*);
    int code;
  };
  const Edit edits[] = {
      {"other network", [](ModelDescription* m) { m->name = "resnet"; }, HD_ERR_NOT_SUPPORT},
      {"float output", [](ModelDescription* m) { m->outputs[3].format = 0xa3200000; },
       HD_ERR_NOT_SUPPORT},
      {"one input", [](ModelDescription* m) { m->inputs.pop_back(); }, HD_ERR_INV},
      {"small input", [](ModelDescription* m) { m->inputs[0].width = 320; }, HD_ERR_INV},
      {"wrong grid", [](ModelDescription* m) { m->outputs[1].width = 48; }, HD_ERR_INV},
      {"wrong channels", [](ModelDescription* m) { m->outputs[4].channels = 16; }, HD_ERR_INV},
      {"two of a kind",
       [](ModelDescription* m) {
         m->outputs[1] = m->outputs[0], m->outputs[1].path_id = 0xa0000001;
       },
       HD_ERR_INV},
      {"shared path id", [](ModelDescription* m) { m->outputs[2].path_id = m->outputs[1].path_id; },
       HD_ERR_INV},
      {"input id as output", [](ModelDescription* m) { m->outputs[0].path_id = 0x90000005; },
       HD_ERR_INV},
      {"negative ratio", [](ModelDescription* m) { m->outputs[0].scale_ratio = -1.0f; },
       HD_ERR_INV},
      {"score above 1", [](ModelDescription* m) { m->settings.score = 1.5f; }, HD_ERR_INV},
  };
  for (const Edit& edit : edits) {
    SCOPED_TRACE(edit.what);
    ModelDescription changed = DefaultModel();
    edit.apply(&changed);
    ModelDescription model;
    const ModelCheck check = ParseExactly(SerializeModel(changed), &model);
    EXPECT_EQ(check.code, edit.code);
    EXPECT_FALSE(check.reason.empty());
  }
}

}  // namespace
}  // namespace ai
}  // namespace sim
}  // namespace mirvane

namespace mirvane {
namespace sim {
namespace ai {
namespace {

TEST(ModelChecksum, IsTheStandardCrc32) {
  const char text[] = "123456789";
  EXPECT_EQ(ModelChecksum(reinterpret_cast<const uint8_t*>(text), 9), 0xCBF43926u);
  EXPECT_EQ(ModelChecksum(nullptr, 0), 0u);
}

}  // namespace
}  // namespace ai
}  // namespace sim
}  // namespace mirvane
