// Functions of FFmpeg's libraries that FFmpeg's program finds here first. They make a seek cheaper:
// of the pictures before the place that was sought, those that no other picture refers to are not
// decoded. In a film with key frames ten seconds apart that is half of what a seek decodes.
#include <dlfcn.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/version.h>
#include <libavformat/avformat.h>
}

#include "transcoder/lead_in.h"

namespace orvo::transcoder {
namespace {

// Programs of other versions use a packet's `opaque` themselves, or decode in another way.
constexpr unsigned kKnownVersion = 59;

template <typename Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool IsKnownVersion() {
  static const bool isKnown = LIBAVCODEC_VERSION_MAJOR == kKnownVersion &&
                              Next<unsigned (*)()>("avcodec_version")() >> 16 == kKnownVersion;
  return isKnown;
}

// The program reads and decodes in one thread, and a run has one film.
const AVFormatContext* theFilm = nullptr;
LeadIn theLeadIn;
char theMark;  // its address marks a packet of the lead-in

bool IsMarked(const AVPacket* packet) {
  return packet != nullptr && packet->opaque == &theMark;
}

}  // namespace
}  // namespace orvo::transcoder

#define ORVO_FOUND_FIRST extern "C" __attribute__((visibility("default")))

using orvo::transcoder::IsKnownVersion;
using orvo::transcoder::IsMarked;
using orvo::transcoder::LeadIn;
using orvo::transcoder::Next;

ORVO_FOUND_FIRST int avformat_seek_file(AVFormatContext* film, int track, int64_t least,
                                        int64_t place, int64_t most, int flags) {
  static const auto seek = Next<decltype(&avformat_seek_file)>("avformat_seek_file");
  orvo::transcoder::theFilm = film;
  orvo::transcoder::theLeadIn = LeadIn();
  if (track < 0 && flags == 0) {
    orvo::transcoder::theLeadIn.Seek(place);
  }
  return seek(film, track, least, place, most, flags);
}

ORVO_FOUND_FIRST int av_read_frame(AVFormatContext* film, AVPacket* packet) {
  static const auto read = Next<decltype(&av_read_frame)>("av_read_frame");
  const int result = read(film, packet);
  if (result == 0 && film == orvo::transcoder::theFilm && IsKnownVersion() &&
      orvo::transcoder::theLeadIn.Has(packet->pts, packet->duration,
                                      film->streams[packet->stream_index]->time_base)) {
    packet->opaque = &orvo::transcoder::theMark;
  }
  return result;
}

// Only H.264's decoder leaves out exactly the pictures that no other one refers to.
ORVO_FOUND_FIRST int avcodec_send_packet(AVCodecContext* decoder, const AVPacket* packet) {
  static const auto send = Next<decltype(&avcodec_send_packet)>("avcodec_send_packet");
  if (IsKnownVersion() && decoder->codec_id == AV_CODEC_ID_H264) {
    decoder->skip_frame = IsMarked(packet) ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
  }
  return send(decoder, packet);
}
