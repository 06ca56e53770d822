// A video file as the simulated sensor: FFmpeg's libraries demux and decode it, swscale fits each
// picture into the output's NV12 frame (aspect kept, black bars). Opening the file counts its
// video packets and keeps their presentation times, so that the frame count and every frame's
// timestamp are known before the first frame is decoded. Frames are decoded in order; an earlier
// index (a loop) opens the file again, a later one decodes and drops the frames between.
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <cstdio>

#include "frame_source.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
#include <libswscale/swscale.h>
}

namespace mirvane {
namespace sim {

namespace {

std::string ErrorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

struct FormatCloser {
  void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
struct CodecCloser {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct PacketFreer {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameFreer {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct ScalerFreer {
  void operator()(SwsContext* s) const { sws_freeContext(s); }
};

// Owns an opened file with its video stream's decoder; one thread at a time.
class Decoder {
 public:
  // False with a reason when the file cannot be opened or has no video that decodes.
  bool Open(const std::string& path, std::string* error) {
    AVFormatContext* raw = nullptr;
    int r = avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
    if (r < 0) return Fail(error, "cannot open " + path + ": " + ErrorText(r));
    format_.reset(raw);
    if ((r = avformat_find_stream_info(format_.get(), nullptr)) < 0) {
      return Fail(error, path + ": no stream information: " + ErrorText(r));
    }
    const AVCodec* codec = nullptr;
    stream_ = av_find_best_stream(format_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (stream_ < 0 || codec == nullptr)
      return Fail(error, path + ": no video stream it can decode");
    codec_.reset(avcodec_alloc_context3(codec));
    if (!codec_) return Fail(error, path + ": out of memory");
    const AVStream* stream = format_->streams[stream_];
    if ((r = avcodec_parameters_to_context(codec_.get(), stream->codecpar)) < 0 ||
        (r = avcodec_open2(codec_.get(), codec, nullptr)) < 0) {
      return Fail(error, path + ": cannot start the " + codec->name + " decoder: " + ErrorText(r));
    }
    packet_.reset(av_packet_alloc());
    if (!packet_) return Fail(error, path + ": out of memory");
    draining_ = false;
    return true;
  }

  AVFormatContext* format() const { return format_.get(); }
  const AVStream* stream() const { return format_->streams[stream_]; }

  // The presentation times of the video packets in stream time base, read without decoding.
  std::vector<int64_t> PacketTimes() {
    std::vector<int64_t> times;
    while (av_read_frame(format_.get(), packet_.get()) >= 0) {
      // A packet marked for discarding (before an edit list's start) gives no picture.
      if (packet_->stream_index == stream_ && (packet_->flags & AV_PKT_FLAG_DISCARD) == 0) {
        times.push_back(packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts);
      }
      av_packet_unref(packet_.get());
    }
    return times;
  }

  // The next picture into frame; false at the end of what decodes.
  bool Next(AVFrame* frame) {
    for (;;) {
      int r = avcodec_receive_frame(codec_.get(), frame);
      if (r == 0) return true;
      if (r != AVERROR(EAGAIN)) return false;
      if (draining_) return false;
      r = av_read_frame(format_.get(), packet_.get());
      if (r < 0) {  // the end, or a file cut short: give out what the decoder still holds
        draining_ = true;
        avcodec_send_packet(codec_.get(), nullptr);
        continue;
      }
      if (packet_->stream_index == stream_) {
        avcodec_send_packet(codec_.get(), packet_.get());  // a damaged packet is skipped
      }
      av_packet_unref(packet_.get());
    }
  }

 private:
  static bool Fail(std::string* error, std::string text) {
    *error = std::move(text);
    return false;
  }

  std::unique_ptr<AVFormatContext, FormatCloser> format_;
  std::unique_ptr<AVCodecContext, CodecCloser> codec_;
  std::unique_ptr<AVPacket, PacketFreer> packet_;
  int stream_ = -1;
  bool draining_ = false;
};

class VideoFileSource : public FrameSource {
 public:
  VideoFileSource(std::string path, uint32_t width, uint32_t height)
      : path_(std::move(path)), width_(width), height_(height), frame_(av_frame_alloc()) {}

  bool Open(std::string* error) {
    if (!frame_) {
      *error = "out of memory";
      return false;
    }
    auto scan = std::make_unique<Decoder>();
    if (!scan->Open(path_, error)) return false;
    const AVStream* stream = scan->stream();
    std::vector<int64_t> times = scan->PacketTimes();
    if (times.empty()) {
      *error = path_ + ": the video stream has no frames";
      return false;
    }
    std::sort(times.begin(), times.end());
    const AVRational micros{1, 1000000};
    for (int64_t t : times) {
      micros_.push_back(
          t == AV_NOPTS_VALUE ? -1 : av_rescale_q(t - times[0], stream->time_base, micros));
    }
    const AVRational rate =
        av_guess_frame_rate(scan->format(), const_cast<AVStream*>(stream), nullptr);
    fps_ = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0.0;
    if (!(fps_ > 0.0 && fps_ <= 1000.0)) fps_ = 25.0;
    // Even gaps when the file's times are missing or not increasing.
    for (size_t i = 0; i < micros_.size(); ++i) {
      if (micros_[i] < 0 || (i > 0 && micros_[i] <= micros_[i - 1])) {
        for (size_t j = 0; j < micros_.size(); ++j) {
          micros_[j] = static_cast<int64_t>(std::llround(static_cast<double>(j) * 1e6 / fps_));
        }
        break;
      }
    }
    count_ = static_cast<int64_t>(micros_.size());
    const AVCodecParameters* par = stream->codecpar;
    source_width_ = par->width;
    source_height_ = par->height;
    double aspect = par->sample_aspect_ratio.num > 0 && par->sample_aspect_ratio.den > 0
                        ? av_q2d(par->sample_aspect_ratio)
                        : 1.0;
    if (!(aspect > 0.1 && aspect < 10.0)) aspect = 1.0;
    if (source_width_ <= 0 || source_height_ <= 0) {
      *error = path_ + ": the video has no picture size";
      return false;
    }
    FitPicture(static_cast<double>(source_width_) * aspect, source_height_);
    if (!Restart(error)) return false;
    if (!decoder_->Next(frame_.get())) {
      *error = path_ + ": not one frame decodes";
      return false;
    }
    next_ = 1;
    return true;
  }

  int64_t FrameCount() const override { return count_; }
  std::string Describe() const override { return "video=" + path_; }
  double FrameRate() const override { return fps_; }
  int64_t PresentationMicros(int64_t index) const override {
    return index >= 0 && index < static_cast<int64_t>(micros_.size()) ? micros_[index] : -1;
  }

  void Render(int64_t index, const Nv12Image& picture,
              std::vector<GroundTruthBox>* truth) override {
    truth->clear();
    FillBlack(picture);
    std::string error;
    if (index < next_ - 1 && !Restart(&error)) {
      EndAt(next_, error);
      return;
    }
    while (next_ <= index) {
      if (!decoder_->Next(frame_.get())) {
        EndAt(next_, "no more frames decode");
        return;
      }
      ++next_;
    }
    Convert(picture);
  }

 private:
  // The largest even-sized picture of the display aspect that fits, centred at even offsets.
  void FitPicture(double display_width, double display_height) {
    const double scale = std::min(width_ / display_width, height_ / display_height);
    fit_width_ =
        std::min<int>(width_, static_cast<int>(std::lround(display_width * scale / 2)) * 2);
    fit_height_ =
        std::min<int>(height_, static_cast<int>(std::lround(display_height * scale / 2)) * 2);
    fit_width_ = std::max(fit_width_, 2);
    fit_height_ = std::max(fit_height_, 2);
    left_ = (static_cast<int>(width_) - fit_width_) / 4 * 2;
    top_ = (static_cast<int>(height_) - fit_height_) / 4 * 2;
  }

  bool Restart(std::string* error) {
    auto decoder = std::make_unique<Decoder>();
    if (!decoder->Open(path_, error)) return false;
    decoder_ = std::move(decoder);
    next_ = 0;
    return true;
  }

  // The file gives fewer frames than it holds packets: it ends here, like a scene.
  void EndAt(int64_t frames, const std::string& why) {
    if (frames < count_) {
      std::fprintf(stderr, "mirvane-sim: video file %s: ends after %lld of %lld frames (%s)\n",
                   path_.c_str(), static_cast<long long>(frames), static_cast<long long>(count_),
                   why.c_str());
      count_ = std::max<int64_t>(frames, 1);
    }
  }

  void FillBlack(const Nv12Image& picture) const {
    for (uint32_t row = 0; row < picture.height; ++row) {
      std::fill_n(picture.y + static_cast<size_t>(row) * picture.stride, picture.width, 16);
    }
    for (uint32_t row = 0; row < picture.height / 2; ++row) {
      std::fill_n(picture.uv + static_cast<size_t>(row) * picture.stride, picture.width, 128);
    }
  }

  void Convert(const Nv12Image& picture) {
    const AVFrame* f = frame_.get();
    scaler_.reset(sws_getCachedContext(
        scaler_.release(), f->width, f->height, static_cast<AVPixelFormat>(f->format), fit_width_,
        fit_height_, AV_PIX_FMT_NV12, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!scaler_) {
      EndAt(next_ - 1, "no conversion from its pixel format");
      return;
    }
    uint8_t* planes[4] = {picture.y + static_cast<size_t>(top_) * picture.stride + left_,
                          picture.uv + static_cast<size_t>(top_ / 2) * picture.stride + left_,
                          nullptr, nullptr};
    const int strides[4] = {static_cast<int>(picture.stride), static_cast<int>(picture.stride), 0,
                            0};
    sws_scale(scaler_.get(), f->data, f->linesize, 0, f->height, planes, strides);
  }

  std::string path_;
  uint32_t width_, height_;
  std::unique_ptr<AVFrame, FrameFreer> frame_;
  std::unique_ptr<Decoder> decoder_;
  std::unique_ptr<SwsContext, ScalerFreer> scaler_;
  std::vector<int64_t> micros_;
  double fps_ = 25.0;
  int64_t count_ = 0;
  int64_t next_ = 0;  // index of the frame the decoder gives next; frame_ holds the one before
  int source_width_ = 0, source_height_ = 0;
  int fit_width_ = 0, fit_height_ = 0, left_ = 0, top_ = 0;
};

}  // namespace

// Part of the media module (see media_module.h): MakeVideoFileSource reaches it from outside.
std::unique_ptr<FrameSource> OpenVideoFile(const std::string& path, uint32_t width, uint32_t height,
                                           std::string* error) {
  av_log_set_level(AV_LOG_QUIET);  // failures are reported as one line of ours
  auto source = std::make_unique<VideoFileSource>(path, width, height);
  if (!source->Open(error)) return nullptr;
  return source;
}

}  // namespace sim
}  // namespace mirvane
