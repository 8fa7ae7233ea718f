#include "transcoder/film_input.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "liborvoqmx/util/media_formats.h"

namespace orvo::transcoder {
namespace {

constexpr int kBuffer = 32768;

int RefuseOtherFiles(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
  return AVERROR(EACCES);
}

}  // namespace

void FreePacket::operator()(AVPacket* packet) const {
  AvFunctions::Get()->av_packet_free(&packet);
}

void FreeParameters::operator()(AVCodecParameters* parameters) const {
  AvFunctions::Get()->avcodec_parameters_free(&parameters);
}

FilmInput::FilmInput(const AvFunctions& av, UniqueFd film) : av_(av), film_(std::move(film)) {
  struct stat status {};
  if (film_.IsOpen() && fstat(film_.Get(), &status) == 0 && S_ISREG(status.st_mode)) {
    size_ = status.st_size;
  }
  auto* buffer = static_cast<unsigned char*>(av_.av_malloc(kBuffer));
  io_ = av_.avio_alloc_context(buffer, kBuffer, 0, this, ReadBytes, nullptr, SeekByte);
}

FilmInput::~FilmInput() {
  if (context_ != nullptr) {
    av_.avformat_close_input(&context_);
  }
  if (io_ != nullptr) {
    av_.av_free(io_->buffer);
    av_.avio_context_free(&io_);
  }
}

std::unique_ptr<FilmInput> FilmInput::Open(UniqueFd film, Detail detail) {
  const AvFunctions* const av = AvFunctions::Get();
  if (av == nullptr) {
    return nullptr;
  }
  std::unique_ptr<FilmInput> input(new FilmInput(*av, std::move(film)));
  return input->OpenContext(detail) ? std::move(input) : nullptr;
}

bool FilmInput::OpenContext(Detail detail) {
  context_ = av_.avformat_alloc_context();
  if (context_ == nullptr || io_ == nullptr) {
    return false;
  }
  context_->pb = io_;
  context_->io_open = RefuseOtherFiles;
  context_->format_whitelist = av_.av_strdup(kSelfContainedFormats);
  // A failure frees the context.
  return av_.avformat_open_input(&context_, nullptr, nullptr, nullptr) >= 0 &&
         (StatesItsTracks(detail) || av_.avformat_find_stream_info(context_, nullptr) >= 0);
}

bool FilmInput::IsMatroska() const {
  return std::string_view(context_->iformat->name).starts_with("matroska");
}

bool FilmInput::IsMp4() const {
  return std::string_view(context_->iformat->name).starts_with("mov");
}

// A fragmented MP4 may begin with a header that says little.
bool FilmInput::StatesItsTracks(Detail detail) const {
  if (!IsMatroska() && !IsMp4()) {
    return false;
  }
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    const AVStream& track = *context_->streams[i];
    const AVCodecParameters& codec = *track.codecpar;
    const bool isUnknown =
        codec.codec_id == AV_CODEC_ID_NONE && codec.codec_type != AVMEDIA_TYPE_DATA;
    const bool lacksShape = detail == Detail::kPixelShape &&
                            codec.codec_type == AVMEDIA_TYPE_VIDEO &&
                            track.sample_aspect_ratio.num <= 0;
    const bool lacksRate = codec.codec_type == AVMEDIA_TYPE_AUDIO && codec.sample_rate == 0;
    if (isUnknown || lacksShape || lacksRate) {
      return false;
    }
  }
  return context_->nb_streams > 0;
}

// Other processes may share the descriptor's own position.
int FilmInput::ReadBytes(void* self, uint8_t* buffer, int size) {
  auto& own = *static_cast<FilmInput*>(self);
  const ssize_t count = pread(own.film_.Get(), buffer, static_cast<size_t>(size), own.position_);
  if (count < 0) {
    return AVERROR(errno);
  }
  own.position_ += count;
  return count == 0 ? AVERROR_EOF : static_cast<int>(count);
}

int64_t FilmInput::SeekByte(void* self, int64_t offset, int whence) {
  auto& own = *static_cast<FilmInput*>(self);
  if ((whence & AVSEEK_SIZE) != 0) {
    return own.size_;
  }
  const int from = whence & ~AVSEEK_FORCE;
  const int64_t base = from == SEEK_CUR ? own.position_ : from == SEEK_END ? own.size_ : 0;
  if (base + offset < 0) {
    return AVERROR(EINVAL);
  }
  own.position_ = base + offset;
  return own.position_;
}

bool FilmInput::Seek(int track, int64_t time) {
  return av_.avformat_seek_file(context_, track, INT64_MIN, time, time, 0) >= 0;
}

AvPacket FilmInput::Read() {
  AvPacket packet(av_.av_packet_alloc());
  const bool isRead = packet != nullptr && av_.av_read_frame(context_, packet.get()) >= 0;
  return isRead ? std::move(packet) : nullptr;
}

}  // namespace orvo::transcoder
