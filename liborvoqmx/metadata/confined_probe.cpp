#include "metadata/confined_probe.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <utility>

#include "metadata/media_libraries.h"
#include "metadata/probe_message.h"
#include "metadata/video_metadata.h"
#include "platform/confined_call.h"
#include "platform/log.h"
#include "util/film_memory.h"

namespace LibOrvoQMX {
namespace {

constexpr size_t kLongestMessage = 16 << 20;
// A picture of the same film may be decoded for so long.
constexpr int kPatienceMilliseconds = 15000;

// In the child.
std::string Probe(const orvo::MediaFile& file) {
  Json::Value message(Json::objectValue);
  message["document"] = Json::Value(Json::objectValue);
  for (const char* const tracks : {"video", "audio", "subtitle"}) {
    message[tracks] = Json::Value(Json::arrayValue);
  }
  const bool success =
      ProbeFile(file, message["document"], message["video"], message["audio"], message["subtitle"]);
  message["success"] = success;
  return EncodeProbeMessage(message);
}

bool IsFromProbe(const Json::Value& message) {
  return message.isObject() && message["document"].isObject() && message["video"].isArray() &&
         message["audio"].isArray() && message["subtitle"].isArray();
}

}  // namespace

bool ProbeConfined(const orvo::MediaFile& file, Json::Value& document, Json::Value& videos,
                   Json::Value& audios, Json::Value& subtitles) {
  // Loaded here, the libraries are there for the next probe of this process, too.
  if (!file.IsOpen() || MediaLibraries::Get() == nullptr) {
    return false;
  }
  const auto memory = orvo::FilmMemory::Take(file, orvo::Job::kProbe, kPatienceMilliseconds);
  if (!memory) {
    ORVO_LOG("The probe of [%s] was given up: others work on this film.", file.Path().c_str());
    return false;
  }
  const auto bytes = orvo::CallConfined(orvo::Job::kProbe, {.files = {file.Get()}}, kLongestMessage,
                                        [&file] { return Probe(file); });
  if (!bytes) {
    ORVO_LOG("The probe of [%s] was given up: %s.", file.Path().c_str(), strerror(errno));
    return false;
  }
  auto message = DecodeProbeMessage(*bytes);
  if (!message || !IsFromProbe(*message)) {
    ORVO_LOG("The probe of [%s] died.", file.Path().c_str());
    return false;
  }
  for (const std::string& key : (*message)["document"].getMemberNames()) {
    document[key] = (*message)["document"][key];
  }
  videos.swap((*message)["video"]);
  audios.swap((*message)["audio"]);
  subtitles.swap((*message)["subtitle"]);
  return (*message)["success"] == Json::Value(true);
}

}  // namespace LibOrvoQMX
