#include "metadata/qmxmetadata.h"

#include <fstream>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/media_file.h"
#include "state/stream_directory.h"
#include "util/json_utils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

// The transcoder reads it among its arguments.
void AddArgument(const std::string& argument, Json::Value& document) {
  document["profile_value"] = document["profile_value"].asString() + argument;
}

void AddSoundWish(const Json::Value& args, Json::Value& document) {
  if (args.isObject() && args["sound"].isString()) {
    AddArgument(" -sound " + args["sound"].asString(), document);
  }
}

bool IsMusic(const Json::Value& document) {
  return document["track_info"]["video"][0U]["attached_pic"] == true;
}

// The picture of a piece of music is its cover, which is not streamed. The wrapper of GStreamer,
// whose options have two dashes, does not know the mark.
void AddMusicMark(Json::Value& document) {
  const bool isForWrapper = document["profile_value"].asString().find("--") != std::string::npos;
  if (IsMusic(document) && !isForWrapper) {
    AddArgument(" -music 1", document);
  }
}

}  // namespace

QMXInitArgument::QMXInitArgument(const std::string& file, const std::string& kind,
                                 const std::string& profileFile, const std::string& key)
    : filePath(file), streamKind(kind), profilePath(profileFile), profileKey(key) {}

QMXMetaData::QMXMetaData(const std::string& streamId, const std::string& streamKind)
    : m_streamId(streamId), m_streamKind(streamKind) {}

bool QMXMetaData::ParserMetaData(const QMXInitArgument& argument, const std::string& streamId,
                                 bool hlsHeader) {
  return ParserMetaData(argument, OpenFilm(argument.filePath), streamId, hlsHeader);
}

bool QMXMetaData::ParserMetaData(const QMXInitArgument& argument, const orvo::MediaFile& film,
                                 const std::string& streamId, bool hlsHeader) {
  if (argument.filePath.empty() || argument.streamKind.empty() || argument.profilePath.empty() ||
      argument.profileKey.empty() || streamId.empty() ||
      !LibMirevo::IsJsonText(argument.filePath)) {
    return false;
  }
  Json::Value document(Json::objectValue);
  if (!ReadMetaDataFromFFMPEG(film, document)) {
    return false;
  }
  if (!ReadTransProfile(argument.profilePath, argument.profileKey, document)) {
    ORVO_LOG("Failed to copy transcoding profile [%s] in [%s]", argument.profileKey.c_str(),
             argument.profilePath.c_str());
    return false;
  }
  AddSoundWish(argument.args, document);
  AddMusicMark(document);
  document["device"] = argument.device;
  document["hls_header"] = hlsHeader;
  document["use_pre_analysis"] = argument.usePreAnalysis;
  const StreamDirectory directory(argument.streamKind, streamId);
  return directory.Film().Replace(film.Identity()) &&
         LibMirevo::WriteJsonToFile(directory.RecordPath(), document);
}

bool QMXMetaData::ReadTransProfile(const std::string& profilePath, const std::string& profileKey,
                                   Json::Value& document) {
  std::string value;
  if (!ReadProfileValue(profilePath, profileKey, value)) {
    return false;
  }
  document["profile_key"] = profileKey;
  document["profile_value"] = value;
  return true;
}

QMXMetaData QMXMetaData::Plan(const VideoMetaData& film, const std::string& profileKey,
                              const std::string& profileValue, const std::string& device) {
  QMXMetaData record("", "");
  record.m_document = film.GetDocument();
  record.m_document["profile_key"] = profileKey;
  record.m_document["profile_value"] = profileValue;
  AddMusicMark(record.m_document);
  record.m_document["device"] = device;
  record.m_loaded = true;
  return record;
}

bool QMXMetaData::LoadMetaData() {
  if (m_streamId.empty() || m_streamKind.empty()) {
    return false;
  }
  std::ifstream file(StreamDirectory(m_streamKind, m_streamId).RecordPath(), std::ios::binary);
  std::string text;
  if (!file.is_open() || !orvo::ReadAll(file, text)) {
    return false;
  }
  // An earlier record may have left a document of any type, and clear() does not accept every type.
  m_document = Json::Value(Json::objectValue);
  if (!LibMirevo::ParseJson(text, m_document)) {
    return false;
  }
  m_loaded = true;
  return true;
}

std::string QMXMetaData::GetDevice() const {
  return GetMemberString("device");
}
std::string QMXMetaData::GetProfileKey() const {
  return GetMemberString("profile_key");
}
std::string QMXMetaData::GetProfileValue() const {
  return GetMemberString("profile_value");
}

bool QMXMetaData::IsHLSHeader() const {
  if (!m_loaded || !m_document.isObject() || !m_document.isMember("hls_header")) {
    return false;
  }
  const Json::Value& flag = m_document["hls_header"];
  return flag.isConvertibleTo(Json::booleanValue) && flag.asBool();
}

bool QMXMetaData::IsUsePreAnalysis() const {
  if (!m_loaded || !m_document.isObject() || !m_document.isMember("use_pre_analysis")) {
    return true;
  }
  const Json::Value& flag = m_document["use_pre_analysis"];
  return !flag.isBool() || flag.asBool();
}

}  // namespace LibOrvoQMX
