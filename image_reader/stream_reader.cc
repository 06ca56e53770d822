#include "image_reader/stream_reader.h"

#include <exception>

#include "common/log.h"

namespace mirvane {
namespace image_reader {
namespace {
constexpr uint32_t kBufferFormatWord = 2;  // the runtime's word for a two-plane picture
}

StreamReader::Image::Image(std::unique_ptr<HdVideoProcBuf> frame,
                           std::unique_ptr<HdMemMapping> mapping)
    : frame_(std::move(frame)), mapping_(std::move(mapping)) {}

std::unique_ptr<IReader::Image> StreamReader::Read() {
  try {
    auto frame = std::make_unique<HdVideoProcBuf>(path_id_);
    const HD_VIDEO_FRAME record = frame->frame();
    const uint32_t plane_size = static_cast<uint32_t>(record.pw[0] * record.ph[0] * 3 / 2);
    auto mapping =
        std::make_unique<HdMemMapping>(static_cast<uint32_t>(record.phy_addr[0]), plane_size);

    VENDOR_AI_BUF buffer = {};
    buffer.sign = VENDOR_AI_BUF_SIGN;
    buffer.pa = mapping->physical_address();
    buffer.va = static_cast<UINT32>(reinterpret_cast<uintptr_t>(mapping->virtual_address()));
    buffer.width = record.dim.w;
    buffer.height = record.dim.h;
    buffer.line_ofs = record.loff[0];
    buffer.fmt = record.pxlfmt;
    buffer.size = buffer.height * buffer.line_ofs * 3 / 2;
    buffer.channel = kBufferFormatWord;

    auto image = std::make_unique<Image>(std::move(frame), std::move(mapping));
    image->timestamp = record.timestamp;
    image->buffer = buffer;
    return image;
  } catch (const std::exception& e) {
    MIRVANE_LOG(kLogErr, "%s\n", e.what());
    return nullptr;
  }
}

}  // namespace image_reader
}  // namespace mirvane
