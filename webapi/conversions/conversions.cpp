#include "webapi/conversions/conversions.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "convert/queue.h"
#include "convert/recipe.h"
#include "convert/work_folder.h"
#include "metadata/video_metadata.h"
#include "platform/media_file.h"
#include "webapi/conversions/entry_id.h"
#include "webapi/http/send_file.h"
#include "webapi/http/work.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using convert::Item;
using convert::Queue;
using convert::State;

constexpr char kResultType[] = "video/mp4";
constexpr char kNotFinished[] = "NotFinished";
// A queue of this length takes weeks.
constexpr int64_t kMostWaiting = 1000;
// Of them and of their results, one client may have so many.
constexpr int64_t kMostOfClient = 250;
constexpr char kTooManyOfClient[] =
    "You have 250 films in the list of conversions, and more are not possible. Remove some of "
    "them.";
constexpr char kRetrySeconds[] = "600";  // one may be removed or converted by then

// The caller's media root that holds the film.
std::string RootOf(const std::string& film) {
  for (const std::string& root : MediaRoots()) {
    if (LiesIn({root}, film)) {
      return root;
    }
  }
  return film;
}

Answer NoQueue() {
  return Answer::Failure(kInternal, "The list of conversions cannot be opened.");
}

// The conversion that the request names, if the caller may see its film.
std::optional<Item> FindItem(const Queue& queue, int64_t id) {
  auto item = queue.Find(id);
  return item && MaySee(item->path) ? std::move(item) : std::nullopt;
}

Json::Value Describe(const Item& item) {
  Json::Value entry(Json::objectValue);
  entry["id"] = static_cast<Json::Int64>(item.id);
  entry["path"] = item.path;
  entry["encoded_path"] = EncodeQueryValue(item.path);
  entry["name"] = std::filesystem::path(item.path).filename().string();
  entry["profile"] = item.profile;
  entry["state"] = NameOf(item.state);
  entry["progress"] = ProgressOf(item);
  entry["reason"] = item.reason;
  return entry;
}

// The place is free again when it returns.
bool IsFilm(const orvo::MediaFile& file, Answer& refusal) {
  const auto place = TakePlace(kFilmWork);
  LibOrvoQMX::VideoMetaData facts;
  if (!place) {
    refusal = Answer::Failure(kBusy);
  }
  return place && LoadFilm(file, facts, refusal);
}

}  // namespace

Answer AddConversion(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilm(request.Text("path"), refusal);
  if (!film) {
    return refusal;
  }
  const auto profile = convert::FindProfile(request.Text("profile"));
  if (!profile) {
    return Answer::Failure(kBadRequest, "There is no profile of this name.");
  }
  if (!IsUtf8(film->Path())) {
    return Answer::Failure(kBadRequest, "The name of this film is not valid UTF-8.");
  }
  if (!IsFilm(*film, refusal)) {
    return refusal;
  }
  Queue queue;
  if (queue.Waiting() >= kMostWaiting) {
    return Answer::Failure(kBusy, "Too many films wait for their conversion.");
  }
  const auto id = queue.AddFor(request.MadeBy().client, kMostOfClient, film->Path(),
                               RootOf(film->Path()), profile->name);
  if (!id) {
    return NoQueue();
  }
  if (*id == 0) {
    return Answer::Failure(kTooManyRequests, kTooManyOfClient)
        .AddHeader("Retry-After", kRetrySeconds);
  }
  Json::Value data(Json::objectValue);
  data["id"] = static_cast<Json::Int64>(*id);
  return Answer::Success(data);
}

Answer ListConversions(const Request& /*request*/) {
  const Queue queue;
  if (!queue.IsOpen()) {
    return NoQueue();
  }
  Json::Value data(Json::objectValue);
  data["paused"] = queue.IsPaused();
  data["items"] = Json::Value(Json::arrayValue);
  for (const Item& item : queue.List()) {
    if (MaySee(item.path) && IsUtf8(item.path)) {
      data["items"].append(Describe(item));
    }
  }
  return Answer::Success(data);
}

Answer RemoveConversion(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto id = EntryId(request, refusal);
  if (!id) {
    return refusal;
  }
  const Queue queue;
  if (FindItem(queue, *id) && !queue.Remove(*id)) {
    return NoQueue();
  }
  return Answer::Success(Json::Value(Json::objectValue));
}

Answer GetConversion(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto id = EntryId(request, refusal);
  if (!id) {
    return refusal;
  }
  const auto item = FindItem(Queue(), *id);
  if (!item) {
    return Answer::Failure(kNotFound);
  }
  if (item->state != State::kReady) {
    return Answer::Failure(kNotFinished);
  }
  const auto result =
      orvo::MediaFile::OpenBeneath(item->folder, convert::WorkFolder(item->folder).Result());
  if (!result.IsOpen()) {
    return Answer::Failure(kNotFound, "The converted file is not there any more.");
  }
  return SendFile(request, result, kResultType);
}

}  // namespace webapi
