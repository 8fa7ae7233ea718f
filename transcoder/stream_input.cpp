#include "transcoder/stream_input.h"

#include <utility>

namespace orvo::transcoder {
namespace {

constexpr int kBuffer = 65536;

}  // namespace

StreamInput::StreamInput(const AvFunctions& libraries, Source source)
    : libraries_(libraries), source_(std::move(source)), packet_(libraries.av_packet_alloc()) {
  auto* buffer = static_cast<unsigned char*>(libraries_.av_malloc(kBuffer));
  io_ = libraries_.avio_alloc_context(buffer, kBuffer, 0, this, ReadMore, nullptr, nullptr);
}

StreamInput::~StreamInput() {
  libraries_.av_packet_free(&packet_);
  libraries_.avformat_close_input(&context_);
  if (io_ != nullptr) {
    libraries_.av_free(io_->buffer);
    libraries_.avio_context_free(&io_);
  }
}

bool StreamInput::Open() {
  context_ = libraries_.avformat_alloc_context();
  if (context_ == nullptr || io_ == nullptr || packet_ == nullptr) {
    return false;
  }
  context_->pb = io_;
  context_->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
  return libraries_.avformat_open_input(&context_, nullptr, libraries_.av_find_input_format("nut"),
                                        nullptr) == 0;
}

const AVStream* StreamInput::TrackOf(AVMediaType type) const {
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    if (context_->streams[i]->codecpar->codec_type == type) {
      return context_->streams[i];
    }
  }
  return nullptr;
}

// The end of a child that was killed cuts its last packet short.
AVPacket* StreamInput::Next() {
  libraries_.av_packet_unref(packet_);
  const bool isThere = libraries_.av_read_frame(context_, packet_) >= 0;
  return isThere && (packet_->flags & AV_PKT_FLAG_CORRUPT) == 0 ? packet_ : nullptr;
}

int StreamInput::ReadMore(void* self, uint8_t* buffer, int size) {
  const int count = static_cast<StreamInput*>(self)->source_(buffer, size);
  return count == 0 ? AVERROR_EOF : count < 0 ? AVERROR_EXIT : count;
}

}  // namespace orvo::transcoder
