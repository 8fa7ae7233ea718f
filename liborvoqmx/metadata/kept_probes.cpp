#include "metadata/kept_probes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "metadata/media_libraries.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "util/json_utils.h"
#include "util/kept_files.h"
#include "util/md5.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

using orvo::FileState;

constexpr int kVersion = 2;  // of the file's format
constexpr size_t kLongestFile = 1 << 20;
constexpr int64_t kFolderBytes = 32 << 20;  // some eight thousand films
constexpr size_t kDigestLength = 32;

constexpr std::array kKeys = {"duration", "container_type", "start_time", "bitrate", "track_info"};
// Only some films have these.
constexpr std::array kRareKeys = {"chapters", "tags"};
// JSON text does not distinguish 5, 5U and 5LL. The values of these keys are unsigned, all others
// signed.
constexpr std::array<std::string_view, 6> kUnsignedKeys = {
    "duration",    "start_time", "sample_aspect_ratio_num", "sample_aspect_ratio_den",
    "resolutionx", "resolutiony"};

struct Memory {
  std::string path;
  std::string state;
  Json::Value result;
};

// The latest result in this process.
Memory& Latest() {
  static Memory latest;
  return latest;
}

void CopyResult(const Json::Value& from, Json::Value& to) {
  for (const char* key : kKeys) {
    to[key] = from[key];
  }
  for (const char* key : kRareKeys) {
    if (from.isMember(key)) {
      to[key] = from[key];
    }
  }
}

// --- The file ---

std::string Folder() {
  return orvo::SystemPath(kCacheFolder) + "/probes";
}

std::string FileFor(const std::string& path) {
  return Folder() + "/" + LibMirevo::GetMD5(path) + ".json";
}

// The library files that produce a result, each with its state. Empty if one cannot be found.
Json::Value Authors() {
  Json::Value authors(Json::objectValue);
  for (const std::string& file : MediaLibraries::Files()) {
    const auto state = FileState::Of(file);
    if (!state) {
      return Json::Value(Json::objectValue);
    }
    authors[file] = state->text;
  }
  return authors;
}

bool AreThere(const Json::Value& authors) {
  for (const std::string& file : authors.getMemberNames()) {
    const auto state = FileState::Of(file);
    if (!state || authors[file] != state->text) {
      return false;
    }
  }
  return !authors.empty();
}

bool IsUnsigned(const std::string& key) {
  return std::find(kUnsignedKeys.begin(), kUnsignedKeys.end(), key) != kUnsignedKeys.end();
}

void RestoreTypes(Json::Value& value) {
  for (auto member = value.begin(); member != value.end(); ++member) {
    if (member->isArray() || member->isObject()) {
      RestoreTypes(*member);
    } else if (IsUnsigned(member.name()) && member->isUInt()) {
      *member = member->asUInt();
    } else if (member->type() == Json::uintValue && member->isInt64()) {
      *member = member->asInt64();
    }
  }
}

// The content of a stored file; nothing if it is damaged. The file begins with the digest of the
// rest.
std::optional<Json::Value> ReadKept(const std::string& content) {
  const std::string body = content.substr(std::min(kDigestLength, content.size()));
  Json::Value kept;
  if (body.empty() || content.compare(0, kDigestLength, LibMirevo::GetMD5(body)) != 0 ||
      !LibMirevo::ParseJson(body, kept) || !kept.isObject() || !kept["authors"].isObject() ||
      !kept["result"].isObject()) {
    return std::nullopt;
  }
  RestoreTypes(kept["result"]);
  return kept;
}

bool IsAbout(const Json::Value& kept, const std::string& path, const FileState& state) {
  return kept["version"] == kVersion && kept["path"] == path && kept["state"] == state.text &&
         AreThere(kept["authors"]);
}

std::optional<Json::Value> Load(const std::string& path, const FileState& state) {
  auto kept = ReadKept(orvo::ReadOwnFile(FileFor(path), kLongestFile).value_or(""));
  if (!kept || !IsAbout(*kept, path, state)) {
    return std::nullopt;
  }
  return (*kept)["result"];
}

// Finds or makes a folder that holds no other user's files. Does not make its parents: without an
// installed Mirevo, nothing is stored.
bool OwnFolder(const std::string& folder, mode_t mode) {
  struct stat status {};
  mkdir(folder.c_str(), mode);
  return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string ContentFor(const std::string& path, const FileState& state, const Json::Value& result) {
  Json::Value kept(Json::objectValue);
  kept["version"] = kVersion;
  kept["path"] = path;
  kept["state"] = state.text;
  kept["authors"] = Authors();
  kept["result"] = result;
  const std::string body = LibMirevo::FormatJson(kept);
  return LibMirevo::GetMD5(body) + body;
}

// Can the content be read back unchanged? A text that is not UTF-8 would come back changed.
bool IsFaithful(const std::string& content, const std::string& path, const FileState& state,
                const Json::Value& result) {
  const auto kept = ReadKept(content);
  return kept && IsAbout(*kept, path, state) && (*kept)["result"] == result;
}

void Save(const std::string& path, const FileState& state, const Json::Value& result) {
  const std::string content = ContentFor(path, state, result);
  if (content.size() <= kLongestFile && IsFaithful(content, path, state, result) &&
      OwnFolder(orvo::SystemPath(kCacheFolder), 0755) && OwnFolder(Folder(), 0700)) {
    orvo::KeepFile(FileFor(path), content, 0600, kFolderBytes);
  }
}

}  // namespace

bool FindProbe(const std::string& path, const FileState& state, Json::Value& document) {
  Memory& latest = Latest();
  if (latest.path != path || latest.state != state.text) {
    auto result = Load(path, state);
    if (!result) {
      return false;
    }
    latest = {path, state.text, std::move(*result)};
  }
  CopyResult(latest.result, document);
  return true;
}

void KeepProbe(const orvo::MediaFile& film, const FileState& state, const Json::Value& document) {
  const std::string& path = film.Path();
  struct stat now {};
  if (fstat(film.Get(), &now) != 0 || FileState::Of(now).text != state.text) {
    return;
  }
  Memory& latest = Latest();
  latest = {path, state.text, Json::Value(Json::objectValue)};
  CopyResult(document, latest.result);
  if (state.isSettled) {
    Save(path, state, latest.result);
  }
}

}  // namespace LibOrvoQMX
