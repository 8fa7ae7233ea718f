#include "cmaf/film_texts.h"

#include <json/writer.h>

#include <algorithm>
#include <cmath>

#include "cmaf/presentation.h"
#include "util/json_utils.h"

namespace LibOrvoQMX {
namespace {

int64_t Ticks(const Json::Value& seconds, const orvo::CmafPlan& plan) {
  const double wanted = seconds.isNumeric() ? seconds.asDouble() * orvo::kPlanClock : 0;
  const auto end = static_cast<double>(plan.cuts.back());
  return std::llround(std::clamp(wanted, 0.0, end));
}

double Seconds(int64_t ticks) {
  return static_cast<double>(ticks) / static_cast<double>(orvo::kPlanClock);
}

}  // namespace

std::string TextOf(const Json::Value& object, const char* key) {
  return object.isObject() && object[key].isString() ? object[key].asString() : "";
}

std::string PlainText(std::string text) {
  constexpr size_t kLongest = 80;
  const auto isBad = [](unsigned char c) { return c < ' ' || c == '"' || c == 0x7f; };
  text.erase(std::remove_if(text.begin(), text.end(), isBad), text.end());
  return text.size() > kLongest || !LibMirevo::IsJsonText(text) ? "" : text;
}

std::vector<CmafChapter> ChaptersOf(const Json::Value& document, const orvo::CmafPlan& plan) {
  std::vector<CmafChapter> chapters;
  const Json::Value& list = document["chapters"];
  for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); ++i) {
    const CmafChapter chapter{Ticks(list[i]["start"], plan), Ticks(list[i]["end"], plan),
                              PlainText(TextOf(list[i], "title"))};
    if (chapter.end > chapter.start) {
      chapters.push_back(chapter);
    }
  }
  std::stable_sort(chapters.begin(), chapters.end(),
                   [](const auto& one, const auto& other) { return one.start < other.start; });
  return chapters;
}

void DescribeSubtitles(const VideoMetaData& film, std::vector<CmafSubtitle>& subtitles) {
  Json::Value tracks;
  if (!film.GetSubtitleTrackInfo(tracks)) {
    return;
  }
  for (const Json::Value& track : tracks) {
    const auto found = std::find_if(
        subtitles.begin(), subtitles.end(),
        [&](const CmafSubtitle& subtitle) { return subtitle.id == TextOf(track, "track"); });
    if (found != subtitles.end()) {
      found->title = PlainText(TextOf(track, "title"));
      found->isForced = track["is_forced"] == true;
    }
  }
}

std::string ChapterList(const CmafPresentation& presentation) {
  Json::Value list(Json::arrayValue);
  for (const CmafChapter& chapter : presentation.chapters) {
    Json::Value& entry = list.append(Json::Value(Json::objectValue));
    entry["chapter"] = list.size();
    entry["start-time"] = Seconds(chapter.start);
    entry["duration"] = Seconds(chapter.end - chapter.start);
    entry["titles"][0]["language"] = "und";
    entry["titles"][0]["title"] = chapter.title;
  }
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return Json::writeString(writer, list);
}

}  // namespace LibOrvoQMX
