// A media file, opened with FFmpeg's libraries as a local file in a format that holds a film by
// itself.
#pragma once

#include <string>

#include "liborvoqmx/metadata/media_libraries.h"
#include "liborvoqmx/util/media_formats.h"

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

  // Reads as much as it takes to know the streams. False for what is no film.
  bool Open(const std::string& path) {
    context_ = media_.avformat_alloc_context();
    if (context_ == nullptr) {
      return false;
    }
    context_->format_whitelist = media_.av_strdup(orvo::kSelfContainedFormats);
    context_->protocol_whitelist = media_.av_strdup("file");
    // "file:" keeps a name with a colon from being taken for an address. A failure frees the
    // context.
    return media_.avformat_open_input(&context_, ("file:" + path).c_str(), nullptr, nullptr) >= 0 &&
           media_.avformat_find_stream_info(context_, nullptr) >= 0;
  }

  // Only after Open() succeeded.
  const AVFormatContext& Get() const { return *context_; }

 private:
  const MediaLibraries& media_;
  AVFormatContext* context_ = nullptr;
};

}  // namespace LibOrvoQMX
