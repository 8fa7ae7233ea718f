// The probe: reads one media file and writes its metadata document.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "metadata/confined_probe.h"
#include "metadata/media_input.h"
#include "metadata/media_libraries.h"
#include "metadata/video_metadata.h"
#include "platform/log.h"

namespace LibOrvoQMX {
namespace {

constexpr int64_t kMicrosecondsPerSecond = 1000000;
constexpr int kChannelLayoutSize = 1024;

std::string TextOrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

const char* FindTag(const MediaLibraries& media, const AVDictionary* tags, const char* key) {
  const AVDictionaryEntry* const entry = media.av_dict_get(tags, key, nullptr, 0);
  return entry != nullptr ? entry->value : nullptr;
}

std::string Tag(const MediaLibraries& media, const AVStream& stream, const char* key) {
  return TextOrEmpty(FindTag(media, stream.metadata, key));
}

std::string ProfileName(const MediaLibraries& media, const AVCodecParameters& codec) {
  const AVCodec* const decoder = media.avcodec_find_decoder(codec.codec_id);
  return decoder != nullptr ? TextOrEmpty(media.av_get_profile_name(decoder, codec.profile)) : "";
}

std::string DescriptorName(const MediaLibraries& media, AVCodecID id) {
  const AVCodecDescriptor* const descriptor = media.avcodec_descriptor_get(id);
  return descriptor != nullptr ? TextOrEmpty(descriptor->name) : "";
}

// Older demuxers give the rotation as a "rotate" tag, newer ones as a display matrix. The matrix's
// angle has the opposite direction and may be negative.
int RotationOf(const MediaLibraries& media, const AVStream& stream) {
  if (const char* tag = FindTag(media, stream.metadata, "rotate"); tag != nullptr) {
    return static_cast<int>(std::strtol(tag, nullptr, 10));
  }
  size_t size = 0;
  const uint8_t* const matrix =
      media.av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (matrix == nullptr || size < 9 * sizeof(int32_t)) {
    return 0;
  }
  const double angle = -media.av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
  if (std::isnan(angle)) {
    return 0;
  }
  return static_cast<int>(std::lround(angle < 0 ? angle + 360 : angle)) % 360;
}

bool HasDolbyVision(const MediaLibraries& media, const AVStream& stream) {
  size_t size = 0;
  return media.av_stream_get_side_data(&stream, AV_PKT_DATA_DOVI_CONF, &size) != nullptr;
}

// "" for a standard range.
std::string DynamicRangeOf(const MediaLibraries& media, const AVStream& stream) {
  switch (stream.codecpar->color_trc) {
    case AVCOL_TRC_SMPTE2084:
      return HasDolbyVision(media, stream) ? "dolby_vision" : "hdr10";
    case AVCOL_TRC_ARIB_STD_B67:
      return HasDolbyVision(media, stream) ? "dolby_vision" : "hlg";
    default:
      return "";
  }
}

Json::Value ColorsOf(const AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  Json::Value colors(Json::objectValue);
  colors["transfer"] = codec.color_trc;
  colors["primaries"] = codec.color_primaries;
  colors["matrix"] = codec.color_space;
  colors["full_range"] = codec.color_range == AVCOL_RANGE_JPEG;
  return colors;
}

// Members that only some tracks have.
void AddRareTraits(const MediaLibraries& media, const AVStream& stream, Json::Value& track) {
  if ((stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
    track["attached_pic"] = true;
  }
  const std::string range = DynamicRangeOf(media, stream);
  if (!range.empty()) {
    track["dynamic_range"] = range;
    track["colors"] = ColorsOf(stream);
  }
}

// What a player tells its viewer about a track of sound or subtitles.
void AddFlags(const AVStream& stream, Json::Value& track) {
  if ((stream.disposition & AV_DISPOSITION_FORCED) != 0) {
    track["is_forced"] = true;
  }
}

int Truncate(float value) {
  constexpr auto kLimit = static_cast<float>(std::numeric_limits<int>::max());
  return std::isfinite(value) && std::fabs(value) < kLimit ? static_cast<int>(value) : 0;
}

struct Picture {
  int width = 0;
  int height = 0;
  int aspectNum = 0;
  int aspectDen = 0;
  int displayWidth = 0;
  int displayHeight = 0;
};

// The coded size, and the display size by the sample aspect ratio. The codec's ratio has priority
// over the container's. All values are 0 if there is no width.
Picture MeasurePicture(const AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  Picture picture;
  if (codec.width < 1) {
    return picture;
  }
  picture.width = picture.displayWidth = codec.width;
  picture.height = picture.displayHeight = codec.height;
  const AVRational aspect =
      codec.sample_aspect_ratio.num < 1 ? stream.sample_aspect_ratio : codec.sample_aspect_ratio;
  if (aspect.num < 1) {
    return picture;
  }
  picture.aspectNum = aspect.num;
  picture.aspectDen = aspect.den;
  if (aspect.den == 0) {
    return picture;
  }
  const auto width = static_cast<float>(codec.width);
  const auto height = static_cast<float>(codec.height);
  const float ratio =
      (width / height) * (static_cast<float>(aspect.num) / static_cast<float>(aspect.den));
  if (codec.width > codec.height) {
    picture.displayWidth = Truncate(height * ratio);
  } else {
    picture.displayHeight = Truncate(width / ratio);
  }
  return picture;
}

// The bit rate of uncompressed audio is calculated from its samples, because the demuxer's value is
// not reliable. 24- and 32-bit formats use the reported rate.
int64_t AudioBitrate(const AVCodecParameters& codec) {
  const int64_t samples = static_cast<int64_t>(codec.sample_rate) * codec.ch_layout.nb_channels;
  switch (codec.codec_id) {
    case AV_CODEC_ID_PCM_S16LE:
    case AV_CODEC_ID_PCM_S16BE:
    case AV_CODEC_ID_PCM_U16LE:
    case AV_CODEC_ID_PCM_U16BE:
      return samples * 16;
    case AV_CODEC_ID_PCM_S8:
    case AV_CODEC_ID_PCM_U8:
    case AV_CODEC_ID_PCM_MULAW:
    case AV_CODEC_ID_PCM_ALAW:
      return samples * 8;
    default:
      return codec.bit_rate;
  }
}

std::string ChannelLayout(const MediaLibraries& media, const AVChannelLayout& layout) {
  std::array<char, kChannelLayoutSize> text{};
  const uint64_t mask = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
  media.av_get_channel_layout_string(text.data(), text.size(), layout.nb_channels, mask);
  return text.data();
}

// Truncates to whole seconds and to 32 bits. This includes the demuxer's value for an unknown time.
Json::UInt WholeSeconds(int64_t microseconds) {
  return static_cast<Json::UInt>(microseconds / kMicrosecondsPerSecond);
}

void AppendTracks(const AVFormatContext& input, Json::Value& videos, Json::Value& audios,
                  Json::Value& subtitles) {
  unsigned id = 0;
  const auto append = [&](Json::Value& list, Json::Value track, unsigned index) {
    track["id"] = std::to_string(id++);
    track["track"] = std::to_string(index);
    list.append(std::move(track));
  };
  for (unsigned index = 0; index < input.nb_streams; ++index) {
    const AVStream* const stream = input.streams[index];
    switch (stream->codecpar->codec_type) {
      case AVMEDIA_TYPE_AUDIO:
        append(audios, ParseAudioCodec(stream), index);
        break;
      case AVMEDIA_TYPE_VIDEO:
        append(videos, ParseVideoCodec(stream), index);
        break;
      case AVMEDIA_TYPE_SUBTITLE:
        append(subtitles, ParseSubtitleCodec(stream), index);
        break;
      default:
        break;
    }
  }
}

constexpr std::array kFilmTags = {"title", "artist", "album", "date", "track"};
constexpr size_t kLongestTag = 300;
constexpr unsigned kMostChapters = 200;

std::string ShortTag(const MediaLibraries& media, const AVDictionary* tags, const char* key) {
  const std::string text = TextOrEmpty(FindTag(media, tags, key));
  return text.size() <= kLongestTag ? text : "";
}

// The member "tags", for a film that has some.
void AddTags(const MediaLibraries& media, const AVFormatContext& input, Json::Value& document) {
  for (const char* key : kFilmTags) {
    const std::string text = ShortTag(media, input.metadata, key);
    if (!text.empty()) {
      document["tags"][key] = text;
    }
  }
}

// The member "chapters", for a film that has some: "start" and "end" in seconds from the film's
// start, and "title".
void AddChapters(const MediaLibraries& media, const AVFormatContext& input, Json::Value& document) {
  const bool hasStart = input.start_time != AV_NOPTS_VALUE;
  const double origin =
      hasStart ? static_cast<double>(input.start_time) / kMicrosecondsPerSecond : 0;
  for (unsigned index = 0; index < std::min(input.nb_chapters, kMostChapters); ++index) {
    const AVChapter& chapter = *input.chapters[index];
    if (chapter.time_base.den <= 0 || chapter.time_base.num <= 0) {
      continue;
    }
    const double unit = av_q2d(chapter.time_base);
    Json::Value& entry = document["chapters"].append(Json::Value(Json::objectValue));
    entry["start"] = static_cast<double>(chapter.start) * unit - origin;
    entry["end"] = static_cast<double>(chapter.end) * unit - origin;
    entry["title"] = ShortTag(media, chapter.metadata, "title");
  }
}

}  // namespace

Json::Value ParseVideoCodec(const AVStream* stream) {
  Json::Value track(Json::objectValue);
  const MediaLibraries* const media = MediaLibraries::Get();
  if (media == nullptr || stream == nullptr) {
    return track;
  }
  const AVCodecParameters& codec = *stream->codecpar;
  track["profile"] = ProfileName(*media, codec);
  track["level"] = codec.level < 0 ? 0 : codec.level;
  track["bitrate"] = static_cast<Json::Int64>(codec.bit_rate);
  const AVRational& average = stream->avg_frame_rate;
  if (average.num != 0 && average.den != 0) {
    track["framerate"] =
        static_cast<double>(static_cast<float>(average.num) / static_cast<float>(average.den));
  }
  track["framerate_num"] = stream->r_frame_rate.num;
  track["framerate_den"] = stream->r_frame_rate.den;
  track["language"] = Tag(*media, *stream, "language");
  const int rotate = RotationOf(*media, *stream);
  track["rotate"] = rotate;
  track["codec"] = GetCodecName(codec.codec_id);
  std::array<char, AV_FOURCC_MAX_STRING_SIZE> tag{};
  track["codec_tag"] = media->av_fourcc_make_string(tag.data(), codec.codec_tag);
  track["codec_raw"] = DescriptorName(*media, codec.codec_id);
  const char* const pixelFormat =
      media->av_get_pix_fmt_name(static_cast<AVPixelFormat>(codec.format));
  track["pix_fmt"] = pixelFormat != nullptr ? pixelFormat : "none";
  const Picture picture = MeasurePicture(*stream);
  track["sample_aspect_ratio_num"] = static_cast<Json::UInt>(picture.aspectNum);
  track["sample_aspect_ratio_den"] = static_cast<Json::UInt>(picture.aspectDen);
  const bool upright = rotate != 90 && rotate != 270;
  track["display_x"] = upright ? picture.displayWidth : picture.displayHeight;
  track["display_y"] = upright ? picture.displayHeight : picture.displayWidth;
  track["resolutionx"] = static_cast<Json::UInt>(picture.width);
  track["resolutiony"] = static_cast<Json::UInt>(picture.height);
  AddRareTraits(*media, *stream, track);
  return track;
}

Json::Value ParseAudioCodec(const AVStream* stream) {
  Json::Value track(Json::objectValue);
  const MediaLibraries* const media = MediaLibraries::Get();
  if (media == nullptr || stream == nullptr) {
    return track;
  }
  const AVCodecParameters& codec = *stream->codecpar;
  track["channel"] = codec.ch_layout.nb_channels;
  track["streamid"] = stream->id;
  track["channel_layout"] = ChannelLayout(*media, codec.ch_layout);
  track["sample_rate"] = codec.sample_rate;
  track["codec"] = GetCodecName(codec.codec_id);
  track["is_default"] = (stream->disposition & AV_DISPOSITION_DEFAULT) != 0;
  track["codec_raw"] = DescriptorName(*media, codec.codec_id);
  track["language"] = Tag(*media, *stream, "language");
  track["profile"] = ProfileName(*media, codec);
  if (codec.sample_rate != 0) {
    track["frequency"] = codec.sample_rate;
  }
  track["bitrate"] = static_cast<Json::Int64>(AudioBitrate(codec));
  if (const std::string title = ShortTag(*media, stream->metadata, "title"); !title.empty()) {
    track["title"] = title;
  }
  return track;
}

Json::Value ParseSubtitleCodec(const AVStream* stream) {
  Json::Value track(Json::objectValue);
  const MediaLibraries* const media = MediaLibraries::Get();
  if (media == nullptr || stream == nullptr) {
    return track;
  }
  track["language"] = Tag(*media, *stream, "language");
  track["title"] = Tag(*media, *stream, "title");
  track["codec"] = GetCodecName(stream->codecpar->codec_id);
  AddFlags(*stream, track);
  return track;
}

bool ParseMetaDataFromFFMPEG_Impl(const std::string& path, Json::Value& document,
                                  Json::Value& videos, Json::Value& audios,
                                  Json::Value& subtitles) {
  return ProbeFile(orvo::MediaFile::Open(path), document, videos, audios, subtitles);
}

bool ProbeFile(const orvo::MediaFile& file, Json::Value& document, Json::Value& videos,
               Json::Value& audios, Json::Value& subtitles) {
  const MediaLibraries* const media = file.IsOpen() ? MediaLibraries::Get() : nullptr;
  if (media == nullptr) {
    return false;
  }
  const QuietMediaLibraries quiet(*media);
  MediaInput input(*media);
  if (!input.Open(file)) {
    return false;
  }
  const AVFormatContext& context = input.Get();
  document["duration"] = WholeSeconds(context.duration);
  if (context.iformat == nullptr || context.iformat->name == nullptr) {
    return false;
  }
  document["container_type"] = context.iformat->name;
  document["start_time"] = WholeSeconds(context.start_time);
  document["bitrate"] = static_cast<Json::Int64>(context.bit_rate);
  AddTags(*media, context, document);
  AddChapters(*media, context, document);
  AppendTracks(context, videos, audios, subtitles);
  return true;
}

}  // namespace LibOrvoQMX
