// A media file, opened with FFmpeg's libraries as a local file in a format that holds a film by
// itself.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "liborvoqmx/metadata/large_attachments.h"
#include "liborvoqmx/metadata/media_libraries.h"
#include "liborvoqmx/util/media_formats.h"
#include "platform/media_file.h"

namespace LibOrvoQMX {

// FFmpeg says nothing on the standard error output for its life. A file that is no film is a result
// here, and the libraries would print all the formats that it could have been.
class QuietMediaLibraries {
 public:
  explicit QuietMediaLibraries(const MediaLibraries& media)
      : media_(media), level_(media.av_log_get_level()) {
    media_.av_log_set_level(AV_LOG_QUIET);
  }
  QuietMediaLibraries(const QuietMediaLibraries&) = delete;
  QuietMediaLibraries& operator=(const QuietMediaLibraries&) = delete;
  ~QuietMediaLibraries() { media_.av_log_set_level(level_); }

 private:
  const MediaLibraries& media_;
  int level_;
};

// FFmpeg's reader of a file that is open already. FFmpeg opens no file itself.
class MediaReader {
 public:
  // The file outlives this object.
  MediaReader(const MediaLibraries& media, const orvo::MediaFile& file)
      : media_(media), file_(file), attachments_(file) {
    constexpr int kSize = 32768;  // what FFmpeg uses for files
    auto* buffer = static_cast<unsigned char*>(media_.av_malloc(kSize));
    io_ = media_.avio_alloc_context(buffer, kSize, 0, this, Read, nullptr, Seek);
    if (io_ == nullptr) {
      media_.av_freep(&buffer);
    }
  }
  MediaReader(const MediaReader&) = delete;
  MediaReader& operator=(const MediaReader&) = delete;
  ~MediaReader() {
    if (io_ != nullptr) {
      media_.av_freep(&io_->buffer);
      media_.avio_context_free(&io_);
    }
  }

  AVIOContext* Get() const { return io_; }  // null if there is no memory

 private:
  static int Read(void* self, uint8_t* buffer, int size) {
    auto* const reader = static_cast<MediaReader*>(self);
    const ssize_t count =
        pread(reader->file_.Get(), buffer, static_cast<size_t>(size), reader->position_);
    if (count <= 0) {
      return count == 0 ? AVERROR_EOF : AVERROR(errno);
    }
    reader->attachments_.Hide(reader->position_, buffer, static_cast<size_t>(count));
    reader->position_ += count;
    return static_cast<int>(count);
  }

  static int64_t Seek(void* self, int64_t offset, int whence) {
    auto* const reader = static_cast<MediaReader*>(self);
    if (whence == AVSEEK_SIZE) {
      return reader->file_.Status().st_size;
    }
    const int64_t from = whence == SEEK_CUR   ? reader->position_
                         : whence == SEEK_END ? reader->file_.Status().st_size
                                              : 0;
    if (offset < -from) {
      return AVERROR(EINVAL);
    }
    return reader->position_ = from + offset;
  }

  const MediaLibraries& media_;
  const orvo::MediaFile& file_;
  LargeAttachments attachments_;
  AVIOContext* io_ = nullptr;
  int64_t position_ = 0;
};

// An opened media file; closed with its owner.
class MediaInput {
 public:
  explicit MediaInput(const MediaLibraries& media) : media_(media) {}
  MediaInput(const MediaInput&) = delete;
  MediaInput& operator=(const MediaInput&) = delete;
  ~MediaInput() {
    if (context_ != nullptr) {
      media_.avformat_close_input(&context_);
    }
  }

  // Reads as much as it takes to know the streams. False for what is no film. The file outlives
  // this object.
  bool Open(const orvo::MediaFile& file) {
    reader_ = std::make_unique<MediaReader>(media_, file);
    context_ = reader_->Get() != nullptr ? media_.avformat_alloc_context() : nullptr;
    if (context_ == nullptr) {
      return false;
    }
    context_->pb = reader_->Get();
    context_->io_open = OpenNothing;
    context_->format_whitelist = media_.av_strdup(orvo::kSelfContainedFormats);
    context_->protocol_whitelist = media_.av_strdup("file");
    // Some formats are recognised by the end of the name only. A failure frees the context.
    return media_.avformat_open_input(&context_, ("file:" + file.Path()).c_str(), nullptr,
                                      nullptr) >= 0 &&
           media_.avformat_find_stream_info(context_, nullptr) >= 0;
  }

  // Only after Open() succeeded.
  const AVFormatContext& Get() const { return *context_; }

 private:
  // A film may name other files. They are not opened.
  static int OpenNothing(AVFormatContext* /*context*/, AVIOContext** /*io*/,
                         const char* /*address*/, int /*flags*/, AVDictionary** /*options*/) {
    return AVERROR(EACCES);
  }

  const MediaLibraries& media_;
  std::unique_ptr<MediaReader> reader_;
  AVFormatContext* context_ = nullptr;
};

}  // namespace LibOrvoQMX
