#include "webapi/choice/film_info.h"

#include <algorithm>

#include "metadata/video_metadata.h"
#include "util/subtitle.h"
#include "webapi/choice/copied_pictures.h"
#include "webapi/choice/explain.h"
#include "webapi/http/work.h"
#include "webapi/library/dvd_subtitles.h"
#include "webapi/library/fonts.h"
#include "webapi/library/media_library.h"
#include "webapi/library/previews.h"
#include "webapi/library/subtitle_form.h"

namespace webapi {
namespace {

using LibOrvoQMX::VideoMetaData;

// A container whose text tracks are shown, or a Blu-ray's, which holds pictures only.
bool HoldsSubtitles(const std::string& container, SubtitleForm form) {
  return libmrv::subtitle::IsAllowEmbaddedSubtitleContiner(container) ||
         (container == "mpegts" && form == SubtitleForm::kPicture);
}

Json::Value DescribeTrack(const Json::Value& track, SubtitleForm form) {
  Json::Value entry(Json::objectValue);
  entry["id"] = track["track"];
  entry["language"] = track["language"];
  entry["title"] = track["title"];
  entry["source"] = "embedded";
  entry["form"] = WordOf(form);
  entry["codec"] = track["codec"];
  if (track["is_forced"] == true) {
    entry["forced"] = true;
  }
  return entry;
}

Json::Value EmbeddedSubtitles(const VideoMetaData& film) {
  Json::Value found(Json::arrayValue);
  Json::Value tracks;
  film.GetSubtitleTrackInfo(tracks);
  for (const Json::Value& track : tracks) {
    const SubtitleForm form = FormOfCodec(track["codec"].asString());
    if (form != SubtitleForm::kNone && HoldsSubtitles(film.GetContainer(), form)) {
      found.append(DescribeTrack(track, form));
    }
  }
  return found;
}

Json::Value DescribeSubtitleFile(const Json::Value& file) {
  const Json::Value info = libmrv::subtitle::PathInfo(file.asString());
  Json::Value entry(Json::objectValue);
  entry["id"] = file;
  entry["language"] = info["language"];
  entry["title"] = info["basename"];
  entry["source"] = "file";
  entry["form"] = WordOf(FormOfFile(info["extension"].asString()));
  return entry;
}

// The tracks beside the film have the form of those in it.
void AppendDvdSubtitles(const std::string& path, Json::Value& found) {
  constexpr char kCodec[] = "dvd_subtitle";
  const auto files = DvdSubtitlesBeside(path);
  const auto languages = files ? DvdLanguages(files->index) : std::vector<std::string>();
  for (size_t track = 0; track < languages.size(); ++track) {
    Json::Value entry(Json::objectValue);
    entry["id"] = DvdSubtitleId(path, track);
    entry["language"] = languages[track];
    entry["title"] = libmrv::subtitle::PathInfo(files->index.Path())["basename"];
    entry["source"] = "file";
    entry["form"] = WordOf(FormOfCodec(kCodec));
    entry["codec"] = kCodec;
    found.append(entry);
  }
}

Json::Value FindSubtitles(const std::string& path, const VideoMetaData& film) {
  Json::Value found = EmbeddedSubtitles(film);
  Json::Value files(Json::arrayValue);
  libmrv::subtitle::GetExternalSubtitle(path, files);
  for (const Json::Value& file : files) {
    found.append(DescribeSubtitleFile(file));
  }
  AppendDvdSubtitles(path, found);
  return found;
}

// Only subtitles with styles use them.
Json::Value FindFonts(const orvo::MediaFile& film, const Json::Value& subtitles) {
  const bool isUsed = std::any_of(
      subtitles.begin(), subtitles.end(),
      [](const Json::Value& subtitle) { return subtitle["form"] == WordOf(SubtitleForm::kAss); });
  return isUsed ? DescribeFonts(film) : Json::Value(Json::arrayValue);
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
  if (!LoadFilm(*file, film, refusal)) {
    return refusal;
  }
  Json::Value data(Json::objectValue);
  data["metadata"] = film.GetDocument();
  data["subtitles"] = FindSubtitles(file->Path(), film);
  data["fonts"] = FindFonts(*file, data["subtitles"]);
  data["previews"] = DescribePreviews(*file);
  const std::string device = request.Text("device");
  data["profiles"] = Offers(ExplainProfiles(film, device), film);
  data["direct"] = ExplainDirect(film, ClientOf(request));
  data["not_copied"] = WhyPicturesAreNotCopied(request, *file, film);
  return Answer::Success(data);
}

}  // namespace webapi
