// The functions of FFmpeg's libraries that this program calls.
//
// The libraries are loaded on the first use, so that a run that needs none of them does not wait.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

namespace orvo::transcoder {

#define ORVO_AV_FORMAT_FUNCTIONS(X)   \
  X(av_find_input_format)             \
  X(av_interleaved_write_frame)       \
  X(av_read_frame)                    \
  X(av_stream_new_side_data)          \
  X(av_write_frame)                   \
  X(av_write_trailer)                 \
  X(avformat_alloc_context)           \
  X(avformat_alloc_output_context2)   \
  X(avformat_close_input)             \
  X(avformat_find_stream_info)        \
  X(avformat_free_context)            \
  X(avformat_index_get_entries_count) \
  X(avformat_index_get_entry)         \
  X(avformat_new_stream)              \
  X(avformat_open_input)              \
  X(avformat_seek_file)               \
  X(avformat_write_header)            \
  X(avio_alloc_context)               \
  X(avio_close_dyn_buf)               \
  X(avio_context_free)                \
  X(avio_flush)                       \
  X(avio_open_dyn_buf)                \
  X(avio_seek)
#define ORVO_AV_CODEC_FUNCTIONS(X)   \
  X(av_bsf_free)                     \
  X(av_bsf_init)                     \
  X(av_bsf_list_parse_str)           \
  X(av_bsf_receive_packet)           \
  X(av_bsf_send_packet)              \
  X(av_get_audio_frame_duration2)    \
  X(av_packet_alloc)                 \
  X(av_packet_free)                  \
  X(av_packet_get_side_data)         \
  X(av_packet_move_ref)              \
  X(av_packet_rescale_ts)            \
  X(av_packet_unref)                 \
  X(avcodec_alloc_context3)          \
  X(avcodec_find_decoder)            \
  X(avcodec_find_encoder_by_name)    \
  X(avcodec_free_context)            \
  X(avcodec_open2)                   \
  X(avcodec_parameters_alloc)        \
  X(avcodec_parameters_copy)         \
  X(avcodec_parameters_free)         \
  X(avcodec_parameters_from_context) \
  X(avcodec_parameters_to_context)   \
  X(avcodec_receive_frame)           \
  X(avcodec_receive_packet)          \
  X(avcodec_send_frame)              \
  X(avcodec_send_packet)
#define ORVO_AV_UTIL_FUNCTIONS(X) \
  X(av_channel_layout_compare)    \
  X(av_channel_layout_copy)       \
  X(av_channel_layout_default)    \
  X(av_channel_layout_describe)   \
  X(av_channel_layout_uninit)     \
  X(av_dict_copy)                 \
  X(av_dict_parse_string)         \
  X(av_dict_free)                 \
  X(av_dict_set)                  \
  X(av_frame_alloc)               \
  X(av_frame_free)                \
  X(av_frame_unref)               \
  X(av_free)                      \
  X(av_get_sample_fmt_name)       \
  X(av_log_set_level)             \
  X(av_malloc)                    \
  X(av_rescale_delta)             \
  X(av_rescale_q)                 \
  X(av_strdup)

struct AvFunctions {
#define ORVO_DECLARE(name) decltype(&::name) name = nullptr;  // NOLINT(bugprone-macro-parentheses)
  ORVO_AV_FORMAT_FUNCTIONS(ORVO_DECLARE)
  ORVO_AV_CODEC_FUNCTIONS(ORVO_DECLARE)
  ORVO_AV_UTIL_FUNCTIONS(ORVO_DECLARE)
#undef ORVO_DECLARE

  // The loaded libraries, which stay loaded and report errors only. Null, with a log line, when the
  // machine lacks them.
  static const AvFunctions* Get();
};

}  // namespace orvo::transcoder
