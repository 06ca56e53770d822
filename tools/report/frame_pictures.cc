#include "frame_pictures.h"

#include <libyuv/convert.h>
#include <turbojpeg.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "frame_source.h"

namespace mirvane {
namespace report {
namespace {

constexpr int kJpegQuality = 80;

struct TjFree {
  void operator()(unsigned char* buffer) const { tjFree(buffer); }
};

}  // namespace

std::unique_ptr<FramePictures> FramePictures::Create(const std::string& scene_name, int width,
                                                     int height, double fps, std::string* error) {
  if (width < 16 || height < 16 || width % 2 != 0 || height % 2 != 0 || !(fps > 0)) {
    *error = "picture size must be even and at least 16x16, and the frame rate above 0";
    return nullptr;
  }
  const std::string video = "video=";
  std::unique_ptr<sim::FrameSource> source =
      scene_name.compare(0, video.size(), video) == 0
          ? sim::MakeVideoFileSource(scene_name.substr(video.size()), width, height, error)
          : sim::MakeFrameSource(scene_name, width, height, fps, error);
  if (!source) return nullptr;
  tjhandle jpeg = tjInitCompress();
  if (jpeg == nullptr) {
    *error = std::string("cannot start the JPEG compressor: ") + tjGetErrorStr();
    return nullptr;
  }
  return std::unique_ptr<FramePictures>(new FramePictures(std::move(source), width, height, jpeg));
}

FramePictures::FramePictures(std::unique_ptr<sim::FrameSource> source, int width, int height,
                             void* jpeg)
    : source_(std::move(source)),
      width_(width),
      height_(height),
      jpeg_(jpeg),
      nv12_(static_cast<size_t>(width) * height * 3 / 2),
      i420_(nv12_.size()) {}

FramePictures::~FramePictures() {
  tjDestroy(static_cast<tjhandle>(jpeg_));
}

bool FramePictures::Write(int64_t frame, const std::string& path, std::string* error) {
  const size_t luma = static_cast<size_t>(width_) * height_;
  sim::Nv12Image picture;
  picture.y = nv12_.data();
  picture.uv = nv12_.data() + luma;
  picture.width = static_cast<uint32_t>(width_);
  picture.height = static_cast<uint32_t>(height_);
  picture.stride = static_cast<uint32_t>(width_);
  std::vector<sim::GroundTruthBox> drawn;
  source_->Render(frame, picture, &drawn);

  uint8_t* y = i420_.data();
  uint8_t* u = y + luma;
  uint8_t* v = u + luma / 4;
  libyuv::NV12ToI420(picture.y, width_, picture.uv, width_, y, width_, u, width_ / 2, v, width_ / 2,
                     width_, height_);
  const unsigned char* planes[3] = {y, u, v};
  const int strides[3] = {width_, width_ / 2, width_ / 2};
  unsigned char* compressed = nullptr;
  unsigned long size = 0;
  const int status =
      tjCompressFromYUVPlanes(static_cast<tjhandle>(jpeg_), planes, width_, strides, height_,
                              TJSAMP_420, &compressed, &size, kJpegQuality, 0);
  const std::unique_ptr<unsigned char, TjFree> out(compressed);
  if (status != 0) {
    *error =
        std::string("JPEG compression failed: ") + tjGetErrorStr2(static_cast<tjhandle>(jpeg_));
    return false;
  }
  FILE* file = std::fopen(path.c_str(), "wb");
  const bool written = file != nullptr && std::fwrite(out.get(), 1, size, file) == size;
  const bool closed = file != nullptr && std::fclose(file) == 0;
  if (!written || !closed) {
    *error = path + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

}  // namespace report
}  // namespace mirvane
