#include "video_reader.h"

#include <cstring>

#include "util/media_formats.h"

namespace orvo::analyze {

Input OpenInput(const std::string& path, std::string& error) {
  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr) {
    error = "out of memory";
    return nullptr;
  }
  context->format_whitelist = av_strdup(kSelfContainedFormats);
  context->protocol_whitelist = av_strdup("file");
  // Without "file:", FFmpeg could read a name with a colon as an address. A failure frees the
  // context.
  const int result = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr);
  if (result < 0) {
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(result, text, sizeof(text));
    error = text;
    return nullptr;
  }
  return Input(context);
}

bool IsFormat(const AVFormatContext& context, const char* name) {
  return std::strstr(context.iformat->name, name) != nullptr;
}

bool IsKeyframe(const AVPacket& packet) {
  return (packet.flags & AV_PKT_FLAG_KEY) != 0;
}

bool VideoReader::Open(const std::string& path, std::string& error) {
  context_ = OpenInput(path, error);
  if (context_ == nullptr) {
    return false;
  }
  if (avformat_find_stream_info(context_.get(), nullptr) < 0 || !ChooseVideo()) {
    error = "no video";
    return false;
  }
  return true;
}

const AVPacket* VideoReader::Next() {
  do {
    av_packet_unref(packet_.get());
    if (av_read_frame(context_.get(), packet_.get()) < 0) {
      return nullptr;
    }
  } while (packet_->stream_index != video_->index || Time(*packet_) == AV_NOPTS_VALUE);
  return packet_.get();
}

bool VideoReader::Seek(int64_t time) {
  video_->discard = AVDISCARD_DEFAULT;
  return av_seek_frame(context_.get(), video_->index, time, AVSEEK_FLAG_BACKWARD) >= 0;
}

int64_t VideoReader::EndOf(const AVPacket& packet) const {
  const AVRational rate = video_->avg_frame_rate;
  const int64_t frame = rate.num > 0 ? av_rescale_q(1, av_inv_q(rate), video_->time_base) : 0;
  return Time(packet) + (packet.duration > 0 ? packet.duration : frame);
}

double VideoReader::Position() const {
  const int64_t size = avio_size(context_->pb);
  return size > 0 ? static_cast<double>(avio_tell(context_->pb)) / static_cast<double>(size) : 0;
}

// Selects the first video that is not a cover picture. All other tracks are skipped.
bool VideoReader::ChooseVideo() {
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    AVStream* const stream = context_->streams[i];
    const bool isVideo = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
                         (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
    if (isVideo && video_ == nullptr) {
      video_ = stream;
    } else {
      stream->discard = AVDISCARD_ALL;
    }
  }
  return video_ != nullptr;
}

}  // namespace orvo::analyze
