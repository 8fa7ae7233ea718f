#include "serve/settings_watch.h"

#include <sys/inotify.h>

#include <filesystem>
#include <string>

#include "platform/file_events.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "settings/media_folders.h"
#include "settings/settings_lock.h"
#include "settings/televisions.h"

namespace serve {
namespace {

std::string NameOf(const char* path) {
  return std::filesystem::path(path).filename().string();
}

}  // namespace

SettingsWatch::SettingsWatch() : changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  const std::string folder = orvo::SystemPath(settings::kFolder);
  if (inotify_add_watch(changes_.Get(), folder.c_str(), IN_MOVED_TO) < 0) {
    ORVO_LOG("Changes of the settings reach the background programs with the next start");
    changes_.Reset();
  }
}

SettingsWatch::Changes SettingsWatch::Take() {
  const std::string folders = NameOf(settings::kMediaRootsFile);
  const std::string televisions = NameOf(settings::kTelevisionsFile);
  Changes changes;
  orvo::ForEachFileEvent(changes_.Get(), [&](const inotify_event& event) {
    const std::string name = event.len > 0 ? event.name : "";
    changes.folders = changes.folders || name == folders;
    changes.televisions = changes.televisions || name == televisions;
  });
  return changes;
}

}  // namespace serve
