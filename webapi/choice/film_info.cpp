#include "webapi/choice/film_info.h"

#include "metadata/video_metadata.h"
#include "util/subtitle.h"
#include "webapi/choice/explain.h"
#include "webapi/http/work.h"
#include "webapi/library/media_library.h"

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

}  // namespace

Answer DescribeFilm(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto file = OpenFilm(request.Text("path"), refusal);
  if (!file) {
    return refusal;
  }
  const auto place = TakePlace(kFilmWork);
  if (!place) {
    return Answer::Failure(kBusy);
  }
  VideoMetaData film;
  if (!film.LoadFile(*file)) {
    return Answer::Failure("TransVideoNotSupported", "This file is not a film that can be played.");
  }
  Json::Value data(Json::objectValue);
  data["metadata"] = film.GetDocument();
  data["subtitles"] = FindSubtitles(file->Path(), film);
  const std::string device = request.Text("device");
  data["profiles"] = Offers(ExplainProfiles(film, device), film);
  data["direct"] = ExplainDirect(film, ClientOf(request));
  return Answer::Success(data);
}

}  // namespace webapi
