#include "webapi/film_info.h"

#include "metadata/video_metadata.h"
#include "util/subtitle.h"
#include "webapi/media_library.h"
#include "webapi/profiles.h"

namespace webapi {
namespace {

using LibOrvoQMX::VideoMetaData;

Json::Value EmbeddedSubtitles(const VideoMetaData& film) {
  Json::Value found(Json::arrayValue);
  Json::Value tracks;
  if (!libmrv::subtitle::IsAllowEmbaddedSubtitleContiner(film.GetContainer()) ||
      !film.GetSubtitleTrackInfo(tracks)) {
    return found;
  }
  for (const Json::Value& track : tracks) {
    if (libmrv::subtitle::IsTextBaseSubtitleCodec(track["codec"].asString())) {
      Json::Value& entry = found.append(Json::Value(Json::objectValue));
      entry["id"] = track["track"];
      entry["language"] = track["language"];
      entry["title"] = track["title"];
      entry["source"] = "embedded";
    }
  }
  return found;
}

Json::Value FindSubtitles(const std::string& path, const VideoMetaData& film) {
  Json::Value found = EmbeddedSubtitles(film);
  Json::Value files(Json::arrayValue);
  libmrv::subtitle::GetExternalSubtitle(path, files);
  for (const Json::Value& file : files) {
    const Json::Value info = libmrv::subtitle::PathInfo(file.asString());
    Json::Value& entry = found.append(Json::Value(Json::objectValue));
    entry["id"] = file;
    entry["language"] = info["language"];
    entry["title"] = info["basename"];
    entry["source"] = "file";
  }
  return found;
}

Json::Value JudgeProfiles(const VideoMetaData& film) {
  const auto chosen = ChooseProfile("http", film);
  Json::Value list(Json::arrayValue);
  for (const Profile& profile : ProfilesOf("http")) {
    const Verdict verdict = Judge(profile, film);
    Json::Value& entry = list.append(Json::Value(Json::objectValue));
    entry["key"] = profile.key;
    entry["format"] = "http";
    entry["content_type"] = ContentTypeOf(profile);
    entry["method"] = verdict.method;
    entry["why"] = verdict.why;
    entry["default"] = chosen && chosen->key == profile.key;
    if (!verdict.refusal.empty()) {
      entry["reason"] = verdict.refusal;
    }
  }
  return list;
}

}  // namespace

Answer DescribeFilm(const std::string& path) {
  Answer refusal = Answer::Failure(kInternal);
  const auto resolved = ResolveFilm(path, refusal);
  if (!resolved) {
    return refusal;
  }
  VideoMetaData film;
  if (!film.LoadFile(*resolved)) {
    return Answer::Failure("TransVideoNotSupported", "This file is not a film that can be played.");
  }
  Json::Value data(Json::objectValue);
  data["metadata"] = film.GetDocument();
  data["subtitles"] = FindSubtitles(*resolved, film);
  data["profiles"] = JudgeProfiles(film);
  return Answer::Success(data);
}

}  // namespace webapi
