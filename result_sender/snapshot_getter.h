// Small JPEG pictures of detected objects for the system daemon: the object's box is cut from the
// frame (grown by 10 % and shaped 16:9), shrunk to 160 x 90 by the hardware scaler into a block of
// the getter's own, encoded by the hardware JPEG encoder and written to
// "/tmp/zarn_ai_snapshot_<id>", with ids 1 to 150 used round robin.
//
// Owns: its 21600-byte picture region, carved once from the arena (which outlives the getter);
// every bit-stream it pulls is released before GetSnapshot returns. Threads: the pipeline thread.
#ifndef MIRVANE_RESULT_SENDER_SNAPSHOT_GETTER_H
#define MIRVANE_RESULT_SENDER_SNAPSHOT_GETTER_H

#include <cstdint>
#include <string>

#include "nvt/hd_module.h"
#include "result_sender/snapshot_getter_interface.h"

namespace mirvane {
namespace result_sender {

constexpr const char* kSnapshotPathPrefix = "/tmp/zarn_ai_snapshot_";
constexpr int32_t kSnapshotMaxId = 150;
constexpr uint32_t kSnapshotWidth = 160;
constexpr uint32_t kSnapshotHeight = 90;

class SnapshotGetter : public ISnapshotGetter {
 public:
  static constexpr uint32_t kPictureBytes = kSnapshotWidth * kSnapshotHeight * 3 / 2;  // 21600
  static constexpr uint32_t kPictureWord = 0x22000707;

  explicit SnapshotGetter(HdModule& module);
  SnapshotGetter(const SnapshotGetter&) = delete;
  SnapshotGetter& operator=(const SnapshotGetter&) = delete;

  // Returns the id of the file written, or 0 when it could not be created (the id is then kept
  // for the next call). Throws std::runtime_error when the scaler or the encoder fails.
  int32_t GetSnapshot(VENDOR_AI_BUF frame, float xmin, float ymin, float xmax, float ymax) override;

 private:
  // Writes the packs of the bit-stream to the file of next_id_ (WriteFileAtomically); false when
  // it cannot be written.
  bool WriteFile(const HD_VIDEOENC_BS& bitstream);

  int32_t next_id_ = 1;
  MemMapping picture_;
  uint32_t picture_word_ = kPictureWord;
  uint32_t encoder_path_;
};

}  // namespace result_sender
}  // namespace mirvane

#endif  // MIRVANE_RESULT_SENDER_SNAPSHOT_GETTER_H
