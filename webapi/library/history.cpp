#include "webapi/library/history.h"

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "platform/io.h"
#include "util/file_lock.h"
#include "util/json_utils.h"
#include "util/private_folder.h"
#include "util/shared_state.h"
#include "util/state_reading.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

constexpr mode_t kMode = 0600;  // other users must not see what an account watches
constexpr Json::ArrayIndex kMost = 500;
constexpr double kLongest = 1000 * 3600;

std::string Folder() {
  return orvo::SharedStatePath("history");
}

// A file name for any account name; "all" if there are no accounts.
std::string FileNameOf(const std::string& account) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string name = account.empty() ? "all" : "account-";
  for (const unsigned char byte : account) {
    name += kDigits[byte >> 4];
    name += kDigits[byte & 0xf];
  }
  return name + ".json";
}

bool IsEntry(const Json::Value& entry) {
  return entry.isObject() && entry["path"].isString() && entry["position"].isInt64() &&
         entry["duration"].isInt64() && entry["time"].isInt64();
}

// One account's films: an array of {"path", "position", "duration", "time"}, the newest first.
class History {
 public:
  explicit History(const Request& request)
      : path_(Folder() + "/" + FileNameOf(request.MadeBy().account)) {}

  // A file that is damaged, or cannot be read now, counts as absent.
  Json::Value Load() const {
    const auto stored = Read();
    return stored ? stored->entries : Json::Value(Json::arrayValue);
  }

  // Changes the entries with `change` and writes them. Returns false if they cannot be read or
  // written.
  bool Change(const std::function<Json::Value(const Json::Value& entries)>& change) const {
    if (!orvo::MakePrivateFolder(Folder())) {
      return false;
    }
    const auto lock = orvo::FileLock::Wait(path_ + ".lock");
    const auto stored = lock.IsHeld() ? Read() : std::nullopt;
    return stored && (!stored->isDamaged || MoveAside()) &&
           orvo::ReplaceFile(path_, LibMirevo::FormatJson(change(stored->entries)), kMode);
  }

 private:
  struct Stored {
    Json::Value entries;
    bool isDamaged;  // so there may be more than these entries
  };

  // Nothing if the file cannot be read now.
  std::optional<Stored> Read() const {
    Json::Value file(Json::arrayValue);
    const auto reading = orvo::ReadStateJson(path_, file);
    if (reading == orvo::JsonReading::kUnreadable) {
      return std::nullopt;
    }
    Stored stored{Json::Value(Json::arrayValue),
                  reading == orvo::JsonReading::kNoJson || !file.isArray()};
    for (const Json::Value& entry : file.isArray() ? file : stored.entries) {
      if (IsEntry(entry)) {
        stored.entries.append(entry);
      }
    }
    return stored;
  }

  // The next file does not replace what a damaged one still holds.
  bool MoveAside() const { return rename(path_.c_str(), (path_ + ".damaged").c_str()) == 0; }

  std::string path_;
};

Json::Value Without(const Json::Value& entries, const std::string& path) {
  Json::Value others(Json::arrayValue);
  for (const Json::Value& entry : entries) {
    if (entry["path"] != path) {
      others.append(entry);
    }
  }
  return others;
}

// Puts `entry` first.
Json::Value Limit(const Json::Value& entry, const Json::Value& others) {
  Json::Value entries(Json::arrayValue);
  entries.append(entry);
  for (const Json::Value& other : others) {
    if (entries.size() < kMost) {
      entries.append(other);
    }
  }
  return entries;
}

void AddProgress(const Json::Value& entry, Json::Value& data) {
  data["position"] = entry["position"];
  data["duration"] = entry["duration"];
  data["finished"] = IsFinished(entry["position"].asInt64(), entry["duration"].asInt64());
}

Answer Kept(bool isKept) {
  return isKept ? Answer::Success(Json::Value(Json::objectValue)) : Answer::Failure(kInternal);
}

}  // namespace

bool IsFinished(int64_t position, int64_t duration) {
  // A film of sufficient length shows its credits in the last minute.
  constexpr int64_t kCredits = 60;
  constexpr int64_t kWithCredits = 300;
  return position * 100 > duration * 95 ||
         (duration >= kWithCredits && duration - position < kCredits);
}

std::set<std::string> FinishedFilms(const Request& request) {
  std::set<std::string> films;
  for (const Json::Value& entry : History(request).Load()) {
    if (IsFinished(entry["position"].asInt64(), entry["duration"].asInt64())) {
      films.insert(entry["path"].asString());
    }
  }
  return films;
}

Answer ListHistory(const Request& request) {
  const std::vector<std::string> roots = MediaRoots();
  Json::Value data(Json::objectValue);
  data["items"] = Json::Value(Json::arrayValue);
  for (const Json::Value& entry : History(request).Load()) {
    const std::string path = entry["path"].asString();
    const std::string film = RealPath(path);
    if (film.empty() || !LiesIn(roots, film)) {
      continue;
    }
    Json::Value& item = data["items"].append(Json::Value(Json::objectValue));
    item["path"] = path;
    item["encoded_path"] = EncodeQueryValue(path);
    item["name"] = std::filesystem::path(path).filename().string();
    item["time"] = entry["time"];
    AddProgress(entry, item);
  }
  return Answer::Success(data);
}

Answer GetHistory(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilm(request.Text("path"), refusal);
  if (!film) {
    return refusal;
  }
  Json::Value data(Json::objectValue);
  data["position"] = 0;
  data["duration"] = 0;
  data["finished"] = false;
  for (const Json::Value& entry : History(request).Load()) {
    if (entry["path"] == film->Path()) {
      AddProgress(entry, data);
    }
  }
  return Answer::Success(data);
}

Answer SaveHistory(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilm(request.Text("path"), refusal);
  if (!film) {
    return refusal;
  }
  const auto duration = request.Seconds("duration", kLongest);
  const auto position = request.Seconds("position", kLongest);
  if (!position || !duration || *position > *duration + 1) {
    return Answer::Failure(kBadRequest, "The position must be a second within the film.");
  }
  if (!IsUtf8(film->Path())) {
    return Answer::Failure(kBadRequest, "The name of this film is not valid UTF-8.");
  }
  Json::Value entry(Json::objectValue);
  entry["path"] = film->Path();
  entry["position"] = static_cast<Json::Int64>(*position);
  entry["duration"] = static_cast<Json::Int64>(*duration);
  entry["time"] = static_cast<Json::Int64>(time(nullptr));
  return Kept(History(request).Change(
      [&](const Json::Value& entries) { return Limit(entry, Without(entries, film->Path())); }));
}

Answer RemoveHistory(const Request& request) {
  const std::string path = request.Text("path");
  const std::string film = RealPath(path);
  return Kept(History(request).Change([&](const Json::Value& entries) {
    return path.empty() ? Json::Value(Json::arrayValue)
                        : Without(entries, film.empty() ? path : film);
  }));
}

}  // namespace webapi
