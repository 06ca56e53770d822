#include "video_writer.h"

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace mirvane {
namespace testing {
namespace {

struct OutputCloser {
  void operator()(AVFormatContext* f) const {
    if (f->pb != nullptr) avio_closep(&f->pb);
    avformat_free_context(f);
  }
};
struct CodecCloser {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFreer {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFreer {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};

bool Fail(std::string* error, const std::string& what, int code = 0) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  if (code != 0) av_strerror(code, text, sizeof text);
  *error = what + (code != 0 ? std::string(": ") + text : "");
  return false;
}

// Sends frame (nullptr: the end) and writes every packet that comes out.
bool Drain(AVCodecContext* codec, AVFormatContext* out, AVStream* stream, AVFrame* frame,
           AVPacket* packet, std::string* error) {
  int r = avcodec_send_frame(codec, frame);
  if (r < 0) return Fail(error, "send_frame", r);
  while ((r = avcodec_receive_packet(codec, packet)) == 0) {
    av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
    packet->stream_index = stream->index;
    if ((r = av_interleaved_write_frame(out, packet)) < 0) return Fail(error, "write", r);
  }
  return r == AVERROR(EAGAIN) || r == AVERROR_EOF ? true : Fail(error, "receive_packet", r);
}

}  // namespace

bool WriteVideo(const std::string& path, const VideoFormat& format, int64_t frames,
                const DrawFrame& draw, std::string* error) {
  av_log_set_level(AV_LOG_ERROR);
  AVFormatContext* raw = nullptr;
  int r = avformat_alloc_output_context2(&raw, nullptr, nullptr, path.c_str());
  if (r < 0) return Fail(error, "no container for " + path, r);
  std::unique_ptr<AVFormatContext, OutputCloser> out(raw);
  const AVCodec* encoder = avcodec_find_encoder_by_name(format.encoder.c_str());
  if (encoder == nullptr) return Fail(error, "no encoder " + format.encoder);
  AVStream* stream = avformat_new_stream(out.get(), nullptr);
  std::unique_ptr<AVCodecContext, CodecCloser> codec(avcodec_alloc_context3(encoder));
  if (stream == nullptr || !codec) return Fail(error, "out of memory");
  codec->width = format.width;
  codec->height = format.height;
  codec->pix_fmt = AV_PIX_FMT_YUV420P;
  codec->time_base = AVRational{1, format.fps};
  codec->framerate = AVRational{format.fps, 1};
  codec->sample_aspect_ratio = AVRational{format.aspect_num, format.aspect_den};
  codec->gop_size = format.fps;
  codec->max_b_frames = 2;
  codec->thread_count = 1;
  if (format.encoder == "libx264") {
    av_opt_set(codec->priv_data, "preset", "veryfast", 0);
    av_opt_set_int(codec->priv_data, "crf", format.quality, 0);
  } else {
    codec->flags |= AV_CODEC_FLAG_QSCALE;
    codec->global_quality = FF_QP2LAMBDA * 2;
  }
  if (out->oformat->flags & AVFMT_GLOBALHEADER) codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if ((r = avcodec_open2(codec.get(), encoder, nullptr)) < 0) return Fail(error, "open encoder", r);
  if ((r = avcodec_parameters_from_context(stream->codecpar, codec.get())) < 0) {
    return Fail(error, "parameters", r);
  }
  stream->time_base = codec->time_base;
  stream->sample_aspect_ratio = codec->sample_aspect_ratio;
  if ((r = avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) return Fail(error, path, r);
  if ((r = avformat_write_header(out.get(), nullptr)) < 0) return Fail(error, "header", r);

  std::unique_ptr<AVFrame, FrameFreer> frame(av_frame_alloc());
  std::unique_ptr<AVPacket, PacketFreer> packet(av_packet_alloc());
  frame->format = codec->pix_fmt;
  frame->width = format.width;
  frame->height = format.height;
  if ((r = av_frame_get_buffer(frame.get(), 0)) < 0) return Fail(error, "frame", r);
  const size_t luma = static_cast<size_t>(format.width) * format.height;
  std::vector<uint8_t> nv12(luma * 3 / 2);
  sim::Nv12Image picture{nv12.data(), nv12.data() + luma, static_cast<uint32_t>(format.width),
                         static_cast<uint32_t>(format.height), static_cast<uint32_t>(format.width)};
  for (int64_t i = 0; i < frames; ++i) {
    if ((r = av_frame_make_writable(frame.get())) < 0) return Fail(error, "frame", r);
    draw(i, picture);
    for (int y = 0; y < format.height; ++y) {
      std::copy_n(picture.y + y * format.width, format.width,
                  frame->data[0] + y * frame->linesize[0]);
    }
    for (int y = 0; y < format.height / 2; ++y) {
      const uint8_t* uv = picture.uv + y * format.width;
      for (int x = 0; x < format.width / 2; ++x) {
        frame->data[1][y * frame->linesize[1] + x] = uv[2 * x];
        frame->data[2][y * frame->linesize[2] + x] = uv[2 * x + 1];
      }
    }
    frame->pts = i;
    if (!Drain(codec.get(), out.get(), stream, frame.get(), packet.get(), error)) return false;
  }
  if (!Drain(codec.get(), out.get(), stream, nullptr, packet.get(), error)) return false;
  if ((r = av_write_trailer(out.get())) < 0) return Fail(error, "trailer", r);
  return true;
}

}  // namespace testing
}  // namespace mirvane
