// The snapshot files: what the simulated scaler and JPEG encoder leave under /tmp, how ids come
// round, and what a planted symbolic link at a snapshot's path can and cannot do.
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
#include "platform/sim/frame_source.h"
#include "result_sender/snapshot_getter.h"
#include "testing/artifacts.h"
#include "testing/child_process.h"

namespace mirvane {
namespace result_sender {
namespace {

using testing::ReadFileOrEmpty;

std::string SnapshotPath(int id) {
  return kSnapshotPathPrefix + std::to_string(id);
}

std::string Snapshot(int id) {
  return ReadFileOrEmpty(SnapshotPath(id));
}

// Clears what an earlier test of this program left at the snapshot paths.
void RemoveSnapshots() {
  for (int id = 0; id <= kSnapshotMaxId + 1; ++id) {
    if (unlink(SnapshotPath(id).c_str()) != 0) rmdir(SnapshotPath(id).c_str());
  }
}

// An NV12 frame of the given size in device memory, for the getter; its pixels in *picture.
VENDOR_AI_BUF DeviceFrame(HdModule& module, uint32_t width, uint32_t height,
                          sim::Nv12Image* picture) {
  const MemMapping memory = module.FetchMemMapping(width * height * 3 / 2);
  picture->y = reinterpret_cast<uint8_t*>(memory.virtual_address);
  picture->uv = picture->y + width * height;
  picture->width = picture->stride = width;
  picture->height = height;
  VENDOR_AI_BUF frame;
  std::memset(&frame, 0, sizeof(frame));
  frame.pa = memory.physical_address;
  frame.size = width * height * 3 / 2;
  frame.fmt = HD_VIDEO_PXLFMT_YUV420;
  frame.width = width;
  frame.height = height;
  frame.line_ofs = width;
  return frame;
}

// 640 x 360: grey, with a bright square at x 280..359, y 140..219.
VENDOR_AI_BUF SquareFrame(HdModule& module) {
  sim::Nv12Image picture;
  const VENDOR_AI_BUF frame = DeviceFrame(module, 640, 360, &picture);
  std::memset(picture.y, 90, 640 * 360);
  std::memset(picture.uv, 128, 640 * 360 / 2);
  for (uint32_t y = 140; y < 220; ++y) std::memset(picture.y + y * 640 + 280, 230, 80);
  return frame;
}

// Whether bytes decode as a 4:2:0 JPEG picture (what the encoder makes); its size and grey pixels
// when they do.
bool DecodeJpeg(const std::string& bytes, int* width = nullptr, int* height = nullptr,
                std::vector<uint8_t>* grey = nullptr) {
  tjhandle handle = tjInitDecompress();
  auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  int w = 0, h = 0, subsampling = 0, colourspace = 0;
  std::vector<uint8_t> pixels;
  bool ok =
      tjDecompressHeader3(handle, data, bytes.size(), &w, &h, &subsampling, &colourspace) == 0 &&
      subsampling == TJSAMP_420;
  if (ok) {
    pixels.resize(static_cast<size_t>(w) * h);
    ok = tjDecompress2(handle, data, bytes.size(), pixels.data(), w, 0, h, TJPF_GRAY, 0) == 0;
  }
  tjDestroy(handle);
  if (width) *width = w;
  if (height) *height = h;
  if (grey) *grey = pixels;
  return ok;
}

TEST(SnapshotGetter, WritesA160x90JpegOfTheObject) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  const VENDOR_AI_BUF frame = SquareFrame(module);

  // The box is the bright square; the crop around it is 16:9 and grown, so its middle is bright
  // and its corners show the grey background.
  ASSERT_EQ(getter.GetSnapshot(frame, 280.0f / 640, 140.0f / 360, 360.0f / 640, 220.0f / 360), 1);
  int width = 0, height = 0;
  std::vector<uint8_t> grey;
  ASSERT_TRUE(DecodeJpeg(Snapshot(1), &width, &height, &grey));
  EXPECT_EQ(width, 160);
  EXPECT_EQ(height, 90);
  EXPECT_NEAR(grey[45 * 160 + 80], 230, 12);
  EXPECT_NEAR(grey[2 * 160 + 2], 90, 12);
  EXPECT_NEAR(grey[87 * 160 + 157], 90, 12);
}

TEST(SnapshotGetter, ASnapshotOfASceneFrameIsTheSameOnEveryCpu) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  sim::Nv12Image picture;
  const VENDOR_AI_BUF frame = DeviceFrame(module, 1920, 1080, &picture);
  std::string error;
  const auto scene = sim::MakeFrameSource("default", 1920, 1080, 25, &error);
  ASSERT_NE(scene, nullptr) << error;
  std::vector<sim::GroundTruthBox> truth;
  scene->Render(400, picture, &truth);  // 16 s: people and cars on the textured background
  ASSERT_FALSE(truth.empty());
  const sim::GroundTruthBox& box = truth[0];

  ASSERT_EQ(getter.GetSnapshot(frame, box.x0 / 1920.0f, box.y0 / 1080.0f, box.x1 / 1920.0f,
                               box.y1 / 1080.0f),
            1);
  int width = 0, height = 0;
  EXPECT_TRUE(DecodeJpeg(Snapshot(1), &width, &height));
  EXPECT_EQ(width * 1000 + height, 160090);
  // scripts/test.sh requires the native and the armhf build to leave the same bytes: the scaler
  // and the encoder must not depend on the CPU's SIMD paths.
  EXPECT_TRUE(testing::SaveArtifact("result_sender/snapshot_160x90.jpg", Snapshot(1)));
}

// Names in /tmp that start with the snapshot files' name.
int SnapshotEntries() {
  int count = 0;
  DIR* dir = opendir("/tmp");
  while (const dirent* entry = readdir(dir)) {
    count += std::strncmp(entry->d_name, "zarn_ai_snapshot_", 17) == 0;
  }
  closedir(dir);
  return count;
}

TEST(SnapshotGetter, The151stSnapshotReusesId1AndOverwritesItsFile) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  const VENDOR_AI_BUF frame = SquareFrame(module);
  std::ofstream(SnapshotPath(1)) << "an older picture";

  for (int i = 1; i <= 150; ++i) ASSERT_EQ(getter.GetSnapshot(frame, 0.4f, 0.4f, 0.6f, 0.6f), i);
  const std::string first = Snapshot(1);
  EXPECT_NE(first, "an older picture");
  // A different box gives a different picture, so the overwrite is visible.
  EXPECT_EQ(getter.GetSnapshot(frame, 0.0f, 0.0f, 0.2f, 0.2f), 1);
  EXPECT_NE(Snapshot(1), first);
  EXPECT_TRUE(DecodeJpeg(Snapshot(1)));
  EXPECT_EQ(getter.GetSnapshot(frame, 0.0f, 0.0f, 0.2f, 0.2f), 2);
  EXPECT_EQ(SnapshotEntries(), 150) << "ids never go past 150 and no temporary file is left";
}

TEST(SnapshotGetter, APlantedSymbolicLinkIsReplacedNotFollowed) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  const VENDOR_AI_BUF frame = SquareFrame(module);
  std::ofstream("/tmp/precious-file") << "keep me";
  ASSERT_EQ(symlink("/tmp/precious-file", SnapshotPath(1).c_str()), 0);

  EXPECT_EQ(getter.GetSnapshot(frame, 0.4f, 0.4f, 0.6f, 0.6f), 1);
  EXPECT_EQ(ReadFileOrEmpty("/tmp/precious-file"), "keep me");
  struct stat st;
  ASSERT_EQ(lstat(SnapshotPath(1).c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode)) << "the snapshot is a file of its own";
  EXPECT_TRUE(DecodeJpeg(Snapshot(1)));
}

TEST(SnapshotGetter, APathThatCannotBeCreatedGivesIdZeroAndKeepsTheId) {
  RemoveSnapshots();
  HdModule module;
  SnapshotGetter getter(module);
  const VENDOR_AI_BUF frame = SquareFrame(module);
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
