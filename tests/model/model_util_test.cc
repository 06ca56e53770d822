// The network's id table and model file loading.
#include "model/model_util.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <vector>

#include "testing/log_capture.h"
#include "testing/scratch_directory.h"

namespace mirvane {
namespace {

using testing::LogCapture;
using testing::ScratchDirectory;

const char* const kAllIds =
    "kCurrentImgPath=90000010\n"
    "kPreImgPath=0x90000011\n"
    "kHm1Path=a0000001\nkHm2Path=a0000002\nkHm3Path=a0000003\n"
    "kReg1Path=a0000004\nkReg2Path=a0000005\nkReg3Path=a0000006\n"
    "kTracking1Path=a0000007\nkTracking2Path=a0000008\nkTracking3Path=a0000009\n";

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

bool IsDefault(const ModelIds& ids) {
  const ModelIds defaults;
  return ids.current_img == defaults.current_img && ids.hm[0] == defaults.hm[0] &&
         ids.tracking[2] == defaults.tracking[2] && ids.model_path == defaults.model_path;
}

TEST(GetModelIds, MissingFileGivesTheDefaults) {
  const ScratchDirectory dir;
  const std::string config = dir.Path("model_id.config");
  EXPECT_TRUE(IsDefault(GetModelIds(config.c_str())));
}

TEST(GetModelIds, ReadsHexWithAndWithoutPrefixAndTheModelPath) {
  const ScratchDirectory dir;
  const std::string config = dir.Path("model_id.config");
  WriteFile(config, std::string("# comment line without equals\n\nkModelPath=/tmp/m.bin\n") +
                        kAllIds + "kUnknown=zz\nkHm1Path=0xa0000084\n");
  // The unknown key's value is not a number: that alone makes the whole file fall back.
  EXPECT_TRUE(IsDefault(GetModelIds(config.c_str())));

  WriteFile(config, std::string("kModelPath=/tmp/m.bin\n") + kAllIds + "kHm1Path=0xa0000084\n");
  const ModelIds ids = GetModelIds(config.c_str());
  EXPECT_EQ(ids.model_path, "/tmp/m.bin");
  EXPECT_EQ(ids.current_img, 0x90000010u);
  EXPECT_EQ(ids.pre_img, 0x90000011u);
  EXPECT_EQ(ids.hm[0], 0xa0000084u) << "a later line overrides";
  EXPECT_EQ(ids.tracking[2], 0xa0000009u);
}

TEST(GetModelIds, FallsBackWhenAnIdIsMissingOrBroken) {
  const ScratchDirectory dir;
  const std::string config = dir.Path("model_id.config");
  const LogCapture log;
  std::string ids = kAllIds;
  // "kHm2Path " (with a blank) is another key: kHm2Path counts as missing.
  ids.replace(ids.find("kHm2Path="), 9, "kHm2Path =");
  WriteFile(config, ids);
  EXPECT_TRUE(IsDefault(GetModelIds(config.c_str())));
  for (const char* broken : {"kReg1Path=not-hex\n", "kReg1Path=1ffffffff\n"}) {
    WriteFile(config, std::string(kAllIds) + broken);
    EXPECT_TRUE(IsDefault(GetModelIds(config.c_str()))) << broken;
  }
  EXPECT_TRUE(log.Contains(":GetModelIds: ERR: Load model config fail: stoul\n")) << log.Text();
  EXPECT_TRUE(log.Contains(":GetModelIds: ERR: Read model config items fail: stoul\n"))
      << log.Text();
}

// The ids convert as on the camera, whose unsigned long has 32 bits: a minus sign wraps.
TEST(GetModelIds, ANegativeIdWrapsAsOnA32BitTarget) {
  const ScratchDirectory dir;
  const std::string config = dir.Path("model_id.config");
  WriteFile(config, std::string(kAllIds) + "kReg1Path=-1\nkReg2Path=-0x10\n");
  const ModelIds ids = GetModelIds(config.c_str());
  EXPECT_EQ(ids.reg[0], 0xFFFFFFFFu);
  EXPECT_EQ(ids.reg[1], 0xFFFFFFF0u);
  for (const char* bad : {"--1", "-+1", "- 1", "-100000000"}) {
    WriteFile(config, std::string(kAllIds) + "kReg1Path=" + bad + "\n");
    EXPECT_TRUE(IsDefault(GetModelIds(config.c_str()))) << bad;
  }
}

TEST(LoadModel, ReadsTheWholeFileAndNeverPastTheGivenMemory) {
  const ScratchDirectory dir;
  const std::string model = dir.Path("model.bin");
  WriteFile(model, std::string(1000, 'm'));
  EXPECT_EQ(GetModelSize(model), 1000u);
  std::vector<char> memory(1200, 0);
  EXPECT_EQ(LoadModel(model, memory.data(), 1000), 0);
  EXPECT_EQ(memory[999], 'm');
  EXPECT_EQ(memory[1000], 0);
  std::vector<char> small(600, 0);
  small.push_back('x');
  EXPECT_EQ(LoadModel(model, small.data(), 600), 0) << "logged, still 0";
  EXPECT_EQ(small[600], 'x');
}

TEST(LoadModel, MissingFileIsMinusTwentyFourAndHasNoSize) {
  const ScratchDirectory dir;
  const std::string missing = dir.Path("no-such-model");
  EXPECT_EQ(GetModelSize(missing), 0xFFFFFFFFu);
  char memory[4];
  EXPECT_EQ(LoadModel(missing, memory, sizeof(memory)), -24);
}

// A FIFO (or a directory) in place of a model file or the id table would block the open or the
// read before the first frame: only regular files are read, anything else counts as missing.
TEST(LoadModel, OnlyRegularFilesAreReadAndAFifoNeverBlocks) {
  const ScratchDirectory dir;
  const std::string fifo = dir.Path("model.fifo");
  const std::string directory = dir.Path("model.dir");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
  const LogCapture log;
  char memory[4];
  for (const std::string& path : {fifo, directory}) {
    EXPECT_EQ(GetModelSize(path), 0xFFFFFFFFu) << path;
    EXPECT_EQ(LoadModel(path, memory, sizeof(memory)), -24) << path;
  }
  EXPECT_TRUE(IsDefault(GetModelIds(fifo.c_str())));
  EXPECT_TRUE(log.Contains(fifo + " is not a regular file\n")) << log.Text();
  EXPECT_TRUE(log.Contains("Fail to open config, use default IDs\n")) << log.Text();
}

}  // namespace
}  // namespace mirvane
