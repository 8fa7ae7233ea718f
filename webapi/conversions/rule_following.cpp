#include "webapi/conversions/rule_following.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "catalog/due_queue.h"
#include "catalog/library_watch.h"
#include "catalog/writers.h"
#include "convert/queue.h"
#include "metadata/video_metadata.h"
#include "platform/file_events.h"
#include "platform/media_file.h"
#include "platform/plat.h"
#include "preprocess/stored_result.h"
#include "util/system_files.h"
#include "webapi/choice/machine_speed.h"
#include "webapi/choice/profiles.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using catalog::FilmChange;
using convert::Rule;
using Clock = catalog::DueQueue::Clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr char kQueueFile[] = "/queue.db";
// More would hide the films that people have chosen, and a rule can be removed.
constexpr int64_t kMostWaiting = 100;
// The queue cannot be written.
constexpr seconds kLater(60);
// Viewers must not wait for it, but a busy machine must not stop it either.
constexpr int kNiceness = 10;
constexpr mode_t kFolderMode = 0755;

bool AreSame(const std::vector<Rule>& some, const std::vector<Rule>& others) {
  return std::equal(some.begin(), some.end(), others.begin(), others.end(),
                    [](const Rule& one, const Rule& other) { return one.id == other.id; });
}

// Must the film be converted, as far as this machine can tell?
bool IsTooSlow(const std::string& folder, const std::string& film) {
  const auto file = orvo::MediaFile::OpenBeneath(folder, film);
  LibOrvoQMX::VideoMetaData known;
  return file.IsOpen() && known.LoadFile(file) && !PlaysInTime(known);
}

class Follower {
 public:
  Follower() : changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    const std::string cache = orvo::SystemPath(LibOrvoQMX::kCacheFolder);
    libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(cache, kFolderMode);
    speedWatch_ = inotify_add_watch(changes_.Get(), cache.c_str(), IN_MOVED_TO);
    const std::string queue = orvo::SystemPath(convert::kQueueFolder) + kQueueFile;
    isPossible_ = queue_.IsOpen() && speedWatch_ >= 0 &&
                  inotify_add_watch(changes_.Get(), queue.c_str(), IN_MODIFY) >= 0;
  }

  bool IsPossible() const { return isPossible_; }

  [[noreturn]] void Run() {
    for (;;) {
      TakeChanges();
      if (library_) {
        library_->ReadEvents();
      }
      const bool mayAdd = isMeasured_ && queue_.Waiting() < kMostWaiting;
      if (!mayAdd || !JudgeNext()) {
        Wait(mayAdd);
      }
    }
  }

 private:
  void TakeChanges() {
    const bool isFaster = ReadEvents();
    std::vector<Rule> rules = queue_.Rules();
    if (!library_ || isFaster || !AreSame(rules, rules_)) {
      rules_ = std::move(rules);
      isMeasured_ = MachineSpeed::Load().IsKnown();
      Scan();
    }
  }

  // Returns true if the machine may know more about its speed.
  bool ReadEvents() {
    bool isFaster = false;
    orvo::ForEachFileEvent(changes_.Get(), [&](const inotify_event& event) {
      isFaster = isFaster || (event.wd == speedWatch_ && IsMachineSpeed(event.name));
    });
    return isFaster;
  }

  void Scan() {
    std::vector<std::string> folders;
    for (const Rule& rule : rules_) {
      folders.push_back(rule.folder);
    }
    films_ = {};
    library_.emplace(
        folders, [this](const std::string& film, FilmChange change) { Take(film, change); },
        [](const std::string&, FilmChange) {});
    library_->Scan();
  }

  void Take(const std::string& film, FilmChange change) {
    if (change == FilmChange::kGone) {
      films_.Remove(film);
    } else {
      films_.Put(film,
                 Clock::now() + (change == FilmChange::kFound ? seconds(0) : catalog::kQuiet));
    }
  }

  // Returns false if no film is due.
  bool JudgeNext() {
    const auto film = films_.TakeDue();
    if (!film) {
      return false;
    }
    if (const seconds wait = catalog::WaitForWriters(*film); wait.count() > 0) {
      films_.Put(*film, Clock::now() + wait);
    } else if (!Judge(*film)) {
      films_.Put(*film, Clock::now() + kLater);
    }
    return true;
  }

  // False if the queue cannot be written.
  bool Judge(const std::string& film) {
    std::vector<Rule> rules = rules_;
    std::erase_if(rules, [&](const Rule& rule) { return !LiesIn({rule.folder}, film); });
    const std::string state = LibOrvoQMX::preprocess::FilmState(film);
    return rules.empty() || state.empty() || !IsTooSlow(rules.front().folder, film) ||
           std::all_of(rules.begin(), rules.end(),
                       [&](const Rule& rule) { return queue_.AddByRule(rule, film, state); });
  }

  void Wait(bool mayAdd) const {
    pollfd events[] = {{changes_.Get(), POLLIN, 0}, {library_->Descriptor(), POLLIN, 0}};
    int patience = -1;
    if (const auto due = films_.NextDue(); mayAdd && due) {
      const auto left = std::chrono::ceil<milliseconds>(*due - Clock::now());
      patience = static_cast<int>(std::max(left, milliseconds(0)).count());
    }
    poll(events, 2, patience);
  }

  convert::Queue queue_;
  orvo::UniqueFd changes_;  // of the queue and of the cache
  int speedWatch_ = -1;
  bool isPossible_ = false;
  std::vector<Rule> rules_;
  bool isMeasured_ = false;
  std::optional<catalog::LibraryWatch> library_;
  catalog::DueQueue films_;
};

}  // namespace

int FollowRules() {
  setpriority(PRIO_PROCESS, 0, kNiceness);
  signal(SIGIO, SIG_IGN);  // the kernel sends it when a writer breaks a lease
  Follower follower;
  if (!follower.IsPossible()) {
    fprintf(stderr, "the rules for conversions cannot be followed: %s\n", strerror(errno));
    return 1;
  }
  follower.Run();
}

}  // namespace webapi
