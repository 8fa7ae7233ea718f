#include "serve/folder_watch.h"

#include <sys/inotify.h>

#include <filesystem>
#include <string>

#include "platform/file_events.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "settings/media_folders.h"

namespace serve {

namespace fs = std::filesystem;

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
  bool hasChanged = false;
  orvo::ForEachFileEvent(changes_.Get(), [&](const inotify_event& event) {
    hasChanged = hasChanged || (event.len > 0 && name == event.name);
  });
  return hasChanged;
}

}  // namespace serve
