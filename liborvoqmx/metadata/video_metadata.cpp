#include "metadata/video_metadata.h"

#include <cstdlib>

#include "metadata/confined_probe.h"
#include "metadata/kept_probes.h"
#include "platform/log.h"
#include "platform/media_file.h"
#include "platform/plat.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

constexpr float kDefaultRatio = 1.77F;

// A member of an object; null if `object` is not an object or lacks the member.
const Json::Value& Member(const Json::Value& object, const std::string& key) {
  return object.isObject() && object.isMember(key) ? object[key] : Json::Value::nullSingleton();
}

// A value that does not fit an unsigned number (a negative number, a text) counts as absent.
unsigned AsUnsigned(const Json::Value& value) {
  return value.isConvertibleTo(Json::uintValue) ? value.asUInt() : 0;
}

unsigned IntegralAsUnsigned(const Json::Value& value) {
  return value.isUInt() ? value.asUInt() : 0;
}

int IntegralAsInt(const Json::Value& value) {
  return value.isInt() ? value.asInt() : 0;
}

std::string AsText(const Json::Value& value) {
  return value.isString() ? value.asString() : "";
}

// Element `index` of one of the track arrays; null unless the document has both arrays.
const Json::Value& Track(const Json::Value& document, const char* kind, unsigned index) {
  const Json::Value& tracks = Member(document, "track_info");
  const Json::Value& list = Member(tracks, kind);
  const bool complete =
      tracks.isObject() && tracks.isMember("video") && tracks.isMember("audio") && list.isArray();
  return complete && index < list.size() ? list[index] : Json::Value::nullSingleton();
}

bool ProbeAsRoot(const orvo::MediaFile& film, Json::Value& document, Json::Value& videos,
                 Json::Value& audios, Json::Value& subtitles) {
  return libmrv::DoActionAsRoot("ParseMetaDataFromFFMPEG", [&] {
    return ProbeConfined(film, document, videos, audios, subtitles);
  });
}

}  // namespace

orvo::MediaFile VideoMetaData::OpenFilm(const std::string& path) {
  orvo::MediaFile film;
  libmrv::DoActionAsRoot("OpenFilm", [&] {
    film = orvo::MediaFile::Open(path);
    return film.IsOpen();
  });
  return film;
}

bool VideoMetaData::LoadFile(const std::string& path) {
  if (path.empty()) {
    return false;
  }
  if (m_loaded && GetFilePath() == path) {
    return true;
  }
  m_document = Json::Value(Json::objectValue);
  m_loaded = false;
  if (!VerifyFileExist(path, 0) || !ReadMetaDataFromFFMPEG(path, m_document)) {
    return false;
  }
  m_loaded = true;
  return true;
}

bool VideoMetaData::LoadFile(const orvo::MediaFile& film) {
  m_document = Json::Value(Json::objectValue);
  m_loaded = ReadMetaDataFromFFMPEG(film, m_document);
  return m_loaded;
}

bool VideoMetaData::ReadMetaDataFromFFMPEG(const std::string& path, Json::Value& document) {
  int64_t size = 0;
  if (path.empty() || !libmrv::critical::fileop::CheckFileAndGetSize(path, size)) {
    return false;
  }
  const orvo::MediaFile film = OpenFilm(path);
  if (film.IsOpen()) {
    return ReadMetaDataFromFFMPEG(film, document);
  }
  document["path"] = path;
  document["filesize"] = std::to_string(size);
  ORVO_LOG("ParserMetaDataFromFFMPEG fail.");
  return false;
}

bool VideoMetaData::ReadMetaDataFromFFMPEG(const orvo::MediaFile& film, Json::Value& document) {
  if (!film.IsOpen()) {
    return false;
  }
  document["path"] = film.Path();
  document["filesize"] = std::to_string(film.Status().st_size);
  const auto state = orvo::FileState::Of(film.Status());
  if (FindProbe(film.Path(), state, document)) {
    return true;
  }
  Json::Value tracks[] = {Json::Value(Json::arrayValue), Json::Value(Json::arrayValue),
                          Json::Value(Json::arrayValue)};
  if (!ProbeAsRoot(film, document, tracks[0], tracks[1], tracks[2])) {
    ORVO_LOG("ParserMetaDataFromFFMPEG fail.");
    return false;
  }
  Json::Value& info = document["track_info"] = Json::Value(Json::objectValue);
  info["video"] = tracks[0];
  info["audio"] = tracks[1];
  info["subtitle"] = tracks[2];
  KeepProbe(film, state, document);
  return true;
}

bool VideoMetaData::ParserMetaDataFromFFMPEG(const std::string& path, Json::Value& document,
                                             Json::Value& videos, Json::Value& audios,
                                             Json::Value& subtitles) {
  return ProbeAsRoot(OpenFilm(path), document, videos, audios, subtitles);
}

const Json::Value& VideoMetaData::GetDocument() const {
  static const Json::Value nothing(Json::objectValue);
  return m_loaded ? m_document : nothing;
}

unsigned VideoMetaData::GetMemberUI(const std::string& key) const {
  return m_loaded ? AsUnsigned(Member(m_document, key)) : 0;
}

std::string VideoMetaData::GetMemberString(const std::string& key) const {
  return m_loaded ? AsText(Member(m_document, key)) : "";
}

Json::Value VideoMetaData::GetVideo(unsigned index) const {
  return m_loaded ? Track(m_document, "video", index) : Json::Value();
}

Json::Value VideoMetaData::GetAudio(unsigned index) const {
  return m_loaded ? Track(m_document, "audio", index) : Json::Value();
}

unsigned VideoMetaData::GetFirstVideoMemberUI(const std::string& key) const {
  return m_loaded ? IntegralAsUnsigned(Member(Track(m_document, "video", 0), key)) : 0;
}

int VideoMetaData::GetFirstVideoMemberInt(const std::string& key) const {
  return m_loaded ? IntegralAsInt(Member(Track(m_document, "video", 0), key)) : 0;
}

std::string VideoMetaData::GetFirstVideoMemberString(const std::string& key) const {
  return m_loaded ? AsText(Member(Track(m_document, "video", 0), key)) : "";
}

unsigned VideoMetaData::GetFirstAudioMemberUI(const std::string& key) const {
  return m_loaded ? IntegralAsUnsigned(Member(Track(m_document, "audio", 0), key)) : 0;
}

std::string VideoMetaData::GetFirstAudioMemberString(const std::string& key) const {
  return m_loaded ? AsText(Member(Track(m_document, "audio", 0), key)) : "";
}

bool VideoMetaData::GetTrackInfo(Json::Value& videos, Json::Value& audios) const {
  const Json::Value& tracks = Member(m_document, "track_info");
  if (!m_loaded || !tracks.isObject() || !tracks.isMember("video")) {
    return false;
  }
  videos = tracks["video"];
  if (!tracks.isMember("audio")) {
    return false;
  }
  audios = tracks["audio"];
  return true;
}

bool VideoMetaData::GetSubtitleTrackInfo(Json::Value& subtitles) const {
  const Json::Value& tracks = Member(m_document, "track_info");
  if (!m_loaded || !tracks.isObject() || !tracks.isMember("subtitle")) {
    return false;
  }
  subtitles = tracks["subtitle"];
  return true;
}

std::string VideoMetaData::GetContainer() const {
  return GetMemberString("container_type");
}
std::string VideoMetaData::GetFilePath() const {
  return GetMemberString("path");
}
unsigned VideoMetaData::GetStartTime() const {
  return GetMemberUI("start_time");
}
unsigned VideoMetaData::GetDuration() const {
  return GetMemberUI("duration");
}
unsigned VideoMetaData::GetBitrate() const {
  return GetMemberUI("bitrate");
}

uint64_t VideoMetaData::GetFileSize() const {
  return std::strtoull(GetMemberString("filesize").c_str(), nullptr, 10);
}

unsigned VideoMetaData::GetAudioFreqency() const {
  return GetFirstAudioMemberUI("frequency");
}
unsigned VideoMetaData::GetAudioChannel() const {
  return GetFirstAudioMemberUI("channel");
}
unsigned VideoMetaData::GetAudioBitrate() const {
  return GetFirstAudioMemberUI("bitrate");
}
std::string VideoMetaData::GetAudioCodecName() const {
  return GetFirstAudioMemberString("codec");
}

float VideoMetaData::GetVideoFramerate() const {
  if (!m_loaded) {
    return 0;
  }
  const Json::Value& rate = Member(Track(m_document, "video", 0), "framerate");
  return rate.isNumeric() ? rate.asFloat() : 0;
}

int VideoMetaData::GetVideoFramerateDen() const {
  return GetFirstVideoMemberInt("framerate_den");
}
int VideoMetaData::GetVideoFramerateNum() const {
  return GetFirstVideoMemberInt("framerate_num");
}
int VideoMetaData::GetVideoSampleAspectRatioDen() const {
  return GetFirstVideoMemberInt("sample_aspect_ratio_den");
}
int VideoMetaData::GetVideoSampleAspectRatioNum() const {
  return GetFirstVideoMemberInt("sample_aspect_ratio_num");
}
unsigned VideoMetaData::GetVideoLevel() const {
  return GetFirstVideoMemberUI("level");
}
unsigned VideoMetaData::GetVideoResolutionX() const {
  return GetFirstVideoMemberUI("resolutionx");
}
unsigned VideoMetaData::GetVideoResolutionY() const {
  return GetFirstVideoMemberUI("resolutiony");
}
unsigned VideoMetaData::GetVideoDisplayX() const {
  return GetFirstVideoMemberUI("display_x");
}
unsigned VideoMetaData::GetVideoDisplayY() const {
  return GetFirstVideoMemberUI("display_y");
}
unsigned VideoMetaData::GetVideoRotate() const {
  return GetFirstVideoMemberUI("rotate");
}
unsigned VideoMetaData::GetVideoBitrate() const {
  return GetFirstVideoMemberUI("bitrate");
}
std::string VideoMetaData::GetVideoPixFmt() const {
  return GetFirstVideoMemberString("pix_fmt");
}
std::string VideoMetaData::GetVideoProfile() const {
  return GetFirstVideoMemberString("profile");
}
std::string VideoMetaData::GetVideoCodecTag() const {
  return GetFirstVideoMemberString("codec_tag");
}
std::string VideoMetaData::GetVideoCodecName() const {
  return GetFirstVideoMemberString("codec");
}

float VideoMetaData::GetVideoRatio() const {
  const unsigned width = GetVideoResolutionX();
  const unsigned height = GetVideoResolutionY();
  if (width == 0 || height == 0) {
    return kDefaultRatio;
  }
  return static_cast<float>(width) / static_cast<float>(height);
}

}  // namespace LibOrvoQMX
