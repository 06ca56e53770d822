// Frames from the camera's video-processing output, one at a time, mapped into the process.
//
// An image owns its platform frame and the mapping of its picture: destroying it unmaps the
// picture, then returns the frame. The platform's frame queue is small, so callers release an
// image before they are far behind. Threads: the pipeline thread only.
#ifndef MIRVANE_IMAGE_READER_STREAM_READER_H
#define MIRVANE_IMAGE_READER_STREAM_READER_H

#include <cstdint>
#include <memory>

#include "nvt/hd_wrapper.h"

namespace mirvane {
namespace image_reader {

class IReader {
 public:
  class Image {
   public:
    virtual ~Image() = default;
    uint64_t timestamp = 0;     // the platform frame's timestamp, as delivered
    VENDOR_AI_BUF buffer = {};  // the picture as the network runtime takes it ("ABUF")
  };

  virtual ~IReader() = default;
  // The next frame, or null when none could be taken (the failure is logged). Never throws.
  virtual std::unique_ptr<Image> Read() = 0;
};

class StreamReader : public IReader {
 public:
  static constexpr uint32_t kVideoProcOutPath = 0x24000107;

  class Image : public IReader::Image {
   public:
    Image(std::unique_ptr<HdVideoProcBuf> frame, std::unique_ptr<HdMemMapping> mapping);

   private:
    // Declared in this order so that the mapping goes first, then the frame.
    std::unique_ptr<HdVideoProcBuf> frame_;
    std::unique_ptr<HdMemMapping> mapping_;
  };

  std::unique_ptr<IReader::Image> Read() override;

 private:
  uint32_t path_id_ = kVideoProcOutPath;
};

}  // namespace image_reader
}  // namespace mirvane

#endif  // MIRVANE_IMAGE_READER_STREAM_READER_H
