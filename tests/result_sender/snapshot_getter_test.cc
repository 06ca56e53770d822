// Snapshots made through the simulated scaler and JPEG encoder: the files they leave under /tmp,
// how ids come round, and what a planted symbolic link at a snapshot's path can and cannot do.
#include "result_sender/snapshot_getter.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "nvt/hd_module.h"
#include "testing/child_process.h"

namespace mirvane {
namespace result_sender {
namespace {

using testing::ReadFileOrEmpty;

constexpr uint32_t kFrameWidth = 640;
constexpr uint32_t kFrameHeight = 360;

std::string SnapshotPath(int id) {
  return kSnapshotPathPrefix + std::to_string(id);
}

bool WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  return static_cast<bool>(file);
}

// Clears what an earlier test of this program left at the snapshot paths.
void RemoveSnapshots() {
  for (int id = 0; id <= kSnapshotMaxId + 1; ++id) {
    const std::string path = SnapshotPath(id);
    if (unlink(path.c_str()) != 0) rmdir(path.c_str());
  }
}

// Names in /tmp that start with the snapshot files' name.
int SnapshotEntries() {
  int count = 0;
  DIR* dir = opendir("/tmp");
  if (dir == nullptr) return -1;
  while (const dirent* entry = readdir(dir)) {
    if (std::strncmp(entry->d_name, "zarn_ai_snapshot_", 17) == 0) ++count;
  }
  closedir(dir);
  return count;
}

// An NV12 frame in device memory: grey, with a bright square in the middle.
VENDOR_AI_BUF MakeFrame(HdModule& module) {
  const uint32_t luma = kFrameWidth * kFrameHeight;
  const MemMapping memory = module.FetchMemMapping(luma * 3 / 2);
  uint8_t* pixels = reinterpret_cast<uint8_t*>(memory.virtual_address);
  std::memset(pixels, 90, luma);
  std::memset(pixels + luma, 128, luma / 2);
  for (uint32_t y = 140; y < 220; ++y) std::memset(pixels + y * kFrameWidth + 280, 230, 80);
  VENDOR_AI_BUF frame;
  std::memset(&frame, 0, sizeof(frame));
  frame.pa = memory.physical_address;
  frame.va = 0;
  frame.size = luma * 3 / 2;
  frame.fmt = HD_VIDEO_PXLFMT_YUV420;
  frame.width = kFrameWidth;
  frame.height = kFrameHeight;
  frame.line_ofs = kFrameWidth;
  return frame;
}

struct Decoded {
  bool ok = false;
  int width = 0;
  int height = 0;
  std::vector<uint8_t> grey;
};

Decoded DecodeJpeg(const std::string& bytes) {
  Decoded result;
  tjhandle handle = tjInitDecompress();
  if (handle == nullptr) return result;
  int subsampling = 0;
  int colourspace = 0;
  auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned long size = bytes.size();
  if (tjDecompressHeader3(handle, data, size, &result.width, &result.height, &subsampling,
                          &colourspace) == 0) {
    result.grey.resize(static_cast<size_t>(result.width) * result.height);
    result.ok = tjDecompress2(handle, data, size, result.grey.data(), result.width, 0,
                              result.height, TJPF_GRAY, 0) == 0;
  }
  tjDestroy(handle);
  return result;
}

TEST(SnapshotGetter, WritesA160x90JpegOfTheObject) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  const VENDOR_AI_BUF frame = MakeFrame(module);

  // The box is the bright square; the crop around it is 16:9 and grown, so its middle is bright
  // and its corners show the grey background.
  ASSERT_EQ(getter.GetSnapshot(frame, 280.0f / 640, 140.0f / 360, 360.0f / 640, 220.0f / 360), 1);
  const Decoded picture = DecodeJpeg(ReadFileOrEmpty(SnapshotPath(1)));
  ASSERT_TRUE(picture.ok);
  EXPECT_EQ(picture.width, 160);
  EXPECT_EQ(picture.height, 90);
  EXPECT_NEAR(picture.grey[45 * 160 + 80], 230, 12);
  EXPECT_NEAR(picture.grey[2 * 160 + 2], 90, 12);
  EXPECT_NEAR(picture.grey[87 * 160 + 157], 90, 12);
}

TEST(SnapshotGetter, The151stSnapshotReusesId1AndOverwritesItsFile) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  const VENDOR_AI_BUF frame = MakeFrame(module);
  const std::string marker = "an older picture";
  ASSERT_TRUE(WriteFile(SnapshotPath(1), marker));

  for (int i = 1; i <= 150; ++i) {
    ASSERT_EQ(getter.GetSnapshot(frame, 0.4f, 0.4f, 0.6f, 0.6f), i);
  }
  EXPECT_NE(ReadFileOrEmpty(SnapshotPath(1)), marker);
  const std::string first = ReadFileOrEmpty(SnapshotPath(1));
  // A different box gives a different picture, so the overwrite is visible.
  EXPECT_EQ(getter.GetSnapshot(frame, 0.0f, 0.0f, 0.2f, 0.2f), 1);
  EXPECT_NE(ReadFileOrEmpty(SnapshotPath(1)), first);
  EXPECT_EQ(getter.GetSnapshot(frame, 0.0f, 0.0f, 0.2f, 0.2f), 2);
  EXPECT_TRUE(DecodeJpeg(ReadFileOrEmpty(SnapshotPath(1))).ok);
  EXPECT_EQ(SnapshotEntries(), 150) << "ids never go past 150 and no temporary file is left";
}

TEST(SnapshotGetter, APlantedSymbolicLinkIsReplacedNotFollowed) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  const VENDOR_AI_BUF frame = MakeFrame(module);
  const std::string victim = "/tmp/precious-file";
  ASSERT_TRUE(WriteFile(victim, "keep me"));
  ASSERT_EQ(symlink(victim.c_str(), SnapshotPath(1).c_str()), 0);

  EXPECT_EQ(getter.GetSnapshot(frame, 0.4f, 0.4f, 0.6f, 0.6f), 1);
  EXPECT_EQ(ReadFileOrEmpty(victim), "keep me");
  struct stat st;
  ASSERT_EQ(lstat(SnapshotPath(1).c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode)) << "the snapshot is a file of its own";
  EXPECT_TRUE(DecodeJpeg(ReadFileOrEmpty(SnapshotPath(1))).ok);
}

TEST(SnapshotGetter, APathThatCannotBeCreatedGivesIdZeroAndKeepsTheId) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  const VENDOR_AI_BUF frame = MakeFrame(module);
  ASSERT_EQ(mkdir(SnapshotPath(1).c_str(), 0755), 0);
  ASSERT_EQ(mkdir((SnapshotPath(1) + "/inside").c_str(), 0755), 0);

  EXPECT_EQ(getter.GetSnapshot(frame, 0.4f, 0.4f, 0.6f, 0.6f), 0);
  ASSERT_EQ(rmdir((SnapshotPath(1) + "/inside").c_str()), 0);
  ASSERT_EQ(rmdir(SnapshotPath(1).c_str()), 0);
  EXPECT_EQ(getter.GetSnapshot(frame, 0.4f, 0.4f, 0.6f, 0.6f), 1);
}

}  // namespace
}  // namespace result_sender
}  // namespace mirvane
