#include "serve/folder_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

#include "platform/log.h"
#include "platform/plat.h"
#include "settings/media_folders.h"

namespace serve {
namespace {

namespace fs = std::filesystem;

constexpr size_t kRoomForEvents = 4096;

// Is one of the events in the buffer about the file with this name?
bool Names(const char* events, ssize_t length, const std::string& name) {
  bool isNamed = false;
  for (ssize_t at = 0; at < length;) {
    const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
    isNamed = isNamed || (event->len > 0 && name == event->name);
    at += static_cast<ssize_t>(sizeof(inotify_event)) + event->len;
  }
  return isNamed;
}

}  // namespace

FolderWatch::FolderWatch() : changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  const std::string folder =
      fs::path(orvo::SystemPath(settings::kMediaRootsFile)).parent_path().string();
  if (inotify_add_watch(changes_.Get(), folder.c_str(), IN_MOVED_TO) < 0) {
    ORVO_LOG("Changes of the media folders reach the analysis with the next start");
    changes_.Reset();
  }
}

bool FolderWatch::HasChanged() {
  const std::string name = fs::path(settings::kMediaRootsFile).filename().string();
  alignas(inotify_event) std::array<char, kRoomForEvents> events{};
  bool hasChanged = false;
  ssize_t length = 0;
  while ((length = read(changes_.Get(), events.data(), events.size())) > 0) {
    hasChanged = Names(events.data(), length, name) || hasChanged;
  }
  return hasChanged;
}

}  // namespace serve
