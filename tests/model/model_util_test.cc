// The network's id table and model file loading.
#include "model/model_util.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::RunInChild;

constexpr char kConfig[] = "/tmp/model_id.config";

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
  std::remove(kConfig);
  EXPECT_TRUE(IsDefault(GetModelIds(kConfig)));
}

TEST(GetModelIds, ReadsHexWithAndWithoutPrefixAndTheModelPath) {
  WriteFile(kConfig, std::string("# comment line without equals\n\nkModelPath=/tmp/m.bin\n") +
                         kAllIds + "kUnknown=zz\nkHm1Path=0xa0000084\n");
  // The unknown key's value is not a number: that alone makes the whole file fall back.
  EXPECT_TRUE(IsDefault(GetModelIds(kConfig)));

  WriteFile(kConfig, std::string("kModelPath=/tmp/m.bin\n") + kAllIds + "kHm1Path=0xa0000084\n");
  const ModelIds ids = GetModelIds(kConfig);
  EXPECT_EQ(ids.model_path, "/tmp/m.bin");
  EXPECT_EQ(ids.current_img, 0x90000010u);
  EXPECT_EQ(ids.pre_img, 0x90000011u);
  EXPECT_EQ(ids.hm[0], 0xa0000084u) << "a later line overrides";
  EXPECT_EQ(ids.tracking[2], 0xa0000009u);
}

TEST(GetModelIds, FallsBackWhenAnIdIsMissingOrBroken) {
  ChildResult result = RunInChild([] {
    std::string ids = kAllIds;
    // "kHm2Path " (with a blank) is another key: kHm2Path counts as missing.
    ids.replace(ids.find("kHm2Path="), 9, "kHm2Path =");
    WriteFile(kConfig, ids);
    if (!IsDefault(GetModelIds(kConfig))) _exit(10);
    WriteFile(kConfig, std::string(kAllIds) + "kReg1Path=not-hex\n");
    if (!IsDefault(GetModelIds(kConfig))) _exit(11);
    WriteFile(kConfig, std::string(kAllIds) + "kReg1Path=1ffffffff\n");
    if (!IsDefault(GetModelIds(kConfig))) _exit(12);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find(":GetModelIds: ERR: Load model config fail: stoul\n"),
            std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find(":GetModelIds: ERR: Read model config items fail: stoul\n"),
            std::string::npos);
}

// The ids convert as on the camera, whose unsigned long has 32 bits: a minus sign wraps.
TEST(GetModelIds, ANegativeIdWrapsAsOnA32BitTarget) {
  WriteFile(kConfig, std::string(kAllIds) + "kReg1Path=-1\nkReg2Path=-0x10\n");
  const ModelIds ids = GetModelIds(kConfig);
  EXPECT_EQ(ids.reg[0], 0xFFFFFFFFu);
  EXPECT_EQ(ids.reg[1], 0xFFFFFFF0u);
  for (const char* bad : {"--1", "-+1", "- 1", "-100000000"}) {
    WriteFile(kConfig, std::string(kAllIds) + "kReg1Path=" + bad + "\n");
    EXPECT_TRUE(IsDefault(GetModelIds(kConfig))) << bad;
  }
}

TEST(LoadModel, ReadsTheWholeFileAndNeverPastTheGivenMemory) {
  WriteFile("/tmp/model.bin", std::string(1000, 'm'));
  EXPECT_EQ(GetModelSize("/tmp/model.bin"), 1000u);
  std::vector<char> memory(1200, 0);
  EXPECT_EQ(LoadModel("/tmp/model.bin", memory.data(), 1000), 0);
  EXPECT_EQ(memory[999], 'm');
  EXPECT_EQ(memory[1000], 0);
  std::vector<char> small(600, 0);
  small.push_back('x');
  EXPECT_EQ(LoadModel("/tmp/model.bin", small.data(), 600), 0) << "logged, still 0";
  EXPECT_EQ(small[600], 'x');
}

TEST(LoadModel, MissingFileIsMinusTwentyFourAndHasNoSize) {
  EXPECT_EQ(GetModelSize("/tmp/no-such-model"), 0xFFFFFFFFu);
  char memory[4];
  EXPECT_EQ(LoadModel("/tmp/no-such-model", memory, sizeof(memory)), -24);
}

// A FIFO (or a directory) in place of a model file or the id table would block the open or the
// read before the first frame: only regular files are read, anything else counts as missing.
TEST(LoadModel, OnlyRegularFilesAreReadAndAFifoNeverBlocks) {
  unlink("/tmp/model.fifo");
  ASSERT_EQ(mkfifo("/tmp/model.fifo", 0644), 0);
  mkdir("/tmp/model.dir", 0755);
  const ChildResult result = RunInChild([] {
    char memory[4];
    for (const char* path : {"/tmp/model.fifo", "/tmp/model.dir"}) {
      if (GetModelSize(path) != 0xFFFFFFFFu) _exit(10);
      if (LoadModel(path, memory, sizeof(memory)) != -24) _exit(11);
    }
    if (!IsDefault(GetModelIds("/tmp/model.fifo"))) _exit(12);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out;
  EXPECT_NE(result.out.find("/tmp/model.fifo is not a regular file\n"), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("Fail to open config, use default IDs\n"), std::string::npos);
}

}  // namespace
}  // namespace mirvane
