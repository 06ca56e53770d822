#include "result_sender/snapshot_getter.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "common/file_write.h"
#include "nvt/gfx_scale.h"
#include "result_sender/snapshot_crop.h"

namespace mirvane {
namespace result_sender {
namespace {

constexpr uint32_t kPixelFormatYuv420 = 0x520c0420;

}  // namespace

SnapshotGetter::SnapshotGetter(HdModule& module)
    : picture_(module.FetchMemMapping(kPictureBytes)),
      encoder_path_(module.jpeg_encoder_path_id()) {}

int32_t SnapshotGetter::GetSnapshot(VENDOR_AI_BUF frame, float xmin, float ymin, float xmax,
                                    float ymax) {
  const int width = static_cast<int>(frame.width);
  const int height = static_cast<int>(frame.height);
  // The crop goes to the scaler exactly as computed, odd offsets and sizes included: placing a
  // 4:2:0 rectangle on the chroma grid is the scaler's business.
  const CropRect crop = SnapshotCrop(xmin, ymin, xmax, ymax, width, height);

  // The frame's chroma plane is taken at line offset x height bytes after its luma (the
  // network's input counts width x height instead; each keeps its own reckoning).
  HD_GFX_SCALE request = GfxScaleRequest(
      frame, frame.pa + frame.line_ofs * frame.height,
      static_cast<HD_VIDEO_PXLFMT>(kPixelFormatYuv420), picture_.physical_address, kSnapshotWidth,
      kSnapshotHeight, {crop.x, crop.y, crop.w, crop.h},
      {0, 0, static_cast<INT32>(kSnapshotWidth), static_cast<INT32>(kSnapshotHeight)});
  const int r = hd_gfx_scale(&request);
  if (r != 0) throw std::runtime_error("hd_gfx_scale fail=" + std::to_string(r));

  const HdVideoEncBuf encoded(encoder_path_, picture_, picture_word_, kSnapshotWidth,
                              kSnapshotHeight);
  if (!WriteFile(encoded.bitstream())) return 0;
  const int32_t id = next_id_;
  next_id_ = id % kSnapshotMaxId + 1;
  return id;
}

bool SnapshotGetter::WriteFile(const HD_VIDEOENC_BS& bitstream) {
  HD_VIDEOENC_BUFINFO info;
  std::memset(&info, 0, sizeof(info));
  const int r = hd_videoenc_get(encoder_path_, HD_VIDEOENC_PARAM_BUFINFO, &info);
  if (r != 0) throw std::runtime_error("hd_videoenc_get fail=" + std::to_string(r));
  const HdMemMapping buffer(static_cast<uint32_t>(info.buf_info.phy_addr),
                            static_cast<uint32_t>(info.buf_info.buf_size));
  const char* base = static_cast<const char*>(buffer.virtual_address());
  const uint32_t packs = std::min<uint32_t>(static_cast<uint32_t>(bitstream.pack_num), 4);
  std::string jpeg;
  for (uint32_t i = 0; i < packs; ++i) {
    const HD_VIDEO_BS_DATA& pack = bitstream.video_pack[i];
    const uint64_t offset = static_cast<uint64_t>(pack.phy_addr) - buffer.physical_address();
    if (pack.phy_addr < buffer.physical_address() || offset + pack.size > buffer.size()) {
      throw std::runtime_error("bit-stream pack outside the encoder buffer");
    }
    jpeg.append(base + offset, pack.size);
  }
  return WriteFileAtomically(kSnapshotPathPrefix + std::to_string(next_id_), jpeg);
}

}  // namespace result_sender
}  // namespace mirvane
