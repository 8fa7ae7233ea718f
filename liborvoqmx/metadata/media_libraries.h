// FFmpeg's libraries, loaded when the process opens a media file. Most requests serve a stream that
// was probed before, and mapping 135 libraries would take thirty times their own start-up time.
#pragma once

#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

#include "platform/export.h"

namespace LibOrvoQMX {

// These functions give codec parameters the same texts as older releases.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#define ORVO_FFMPEG_FORMAT_FUNCTIONS(X) \
  X(avformat_open_input)                \
  X(avformat_find_stream_info)          \
  X(avformat_close_input)               \
  X(avformat_alloc_context)             \
  X(avio_alloc_context)                 \
  X(avio_context_free)                  \
  X(av_stream_get_side_data)
#define ORVO_FFMPEG_CODEC_FUNCTIONS(X) \
  X(avcodec_find_decoder)              \
  X(av_get_profile_name)               \
  X(avcodec_descriptor_get)
#define ORVO_FFMPEG_UTIL_FUNCTIONS(X) \
  X(av_fourcc_make_string)            \
  X(av_get_pix_fmt_name)              \
  X(av_get_channel_layout_string)     \
  X(av_display_rotation_get)          \
  X(av_dict_get)                      \
  X(av_log_get_level)                 \
  X(av_log_set_level)                 \
  X(av_malloc)                        \
  X(av_freep)                         \
  X(av_strdup)

struct MediaLibraries {
#define ORVO_DECLARE(name) decltype(&::name) name = nullptr;  // NOLINT(bugprone-macro-parentheses)
  ORVO_FFMPEG_FORMAT_FUNCTIONS(ORVO_DECLARE)
  ORVO_FFMPEG_CODEC_FUNCTIONS(ORVO_DECLARE)
  ORVO_FFMPEG_UTIL_FUNCTIONS(ORVO_DECLARE)
#undef ORVO_DECLARE

  // The loaded libraries, which stay loaded. Null, with a log line, if the machine lacks them.
  ORVO_API static const MediaLibraries* Get();

  // The files of these libraries and of the library that contains this code. Empty if Get() returns
  // null.
  static std::vector<std::string> Files();
};
#pragma GCC diagnostic pop

}  // namespace LibOrvoQMX
