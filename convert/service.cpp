#include "convert/service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "convert/conversion.h"
#include "convert/live_transcoders.h"
#include "convert/queue.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "platform/signal_events.h"
#include "util/file_lock.h"
#include "util/kept_program.h"
#include "util/system_files.h"

namespace convert {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr char kLockFile[] = "/service.lock";
constexpr char kDatabase[] = "/queue.db";
// Knows what this machine can play in time.
constexpr char kProgram[] = "/var/packages/Mirevo/target/bin/mirevo";
// A film that cannot be converted now, because a volume is full.
constexpr seconds kLater(60);
// The register has no room although no viewer's transcoder is known.
constexpr seconds kAgain(2);

int Refuse(const std::string& reason) {
  fprintf(stderr, "orvovideoconversiond: %s\n", reason.c_str());
  return 1;
}

// The file that tells the streams whom to signal. It is written in place: the service may not be
// allowed to make files in its folder.
class PidFile {
 public:
  PidFile() : path_(orvo::SystemPath(LibOrvoQMX::kOfflineConversionPidFile)) {
    PlatFSMkdirP(path_.substr(0, path_.rfind('/')), 0, 1, geteuid(), getegid(), 0755);
    file_.Reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    isWritten_ = file_.IsOpen() && orvo::WriteAll(file_.Get(), std::to_string(getpid()) + "\n");
  }
  PidFile(const PidFile&) = delete;
  PidFile& operator=(const PidFile&) = delete;
  ~PidFile() {
    if (file_.IsOpen() && ftruncate(file_.Get(), 0) == 0) {
      unlink(path_.c_str());
    }
  }

  bool IsWritten() const { return isWritten_; }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  orvo::UniqueFd file_;
  bool isWritten_ = false;
};

class Service {
 public:
  Service() : changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    const std::string database = orvo::SystemPath(kQueueFolder) + kDatabase;
    inotify_add_watch(changes_.Get(), database.c_str(), IN_MODIFY);
  }

  bool IsPossible() const { return queue_.IsOpen(); }

  void Run() {
    while (!TakeSignals()) {
      ReadChanges();
      rules_.Update();
      live_.Look();
      Finish();
      Move();
      Wait();
    }
  }

 private:
  // Returns true when a signal ends the service.
  bool TakeSignals() {
    for (int number = signals_.Take(); number != 0; number = signals_.Take()) {
      if (number != SIGUSR1) {
        return true;
      }
      right_.Yield(Clock::now());
    }
    return false;
  }

  void ReadChanges() {
    std::array<char, 4096> events{};
    while (read(changes_.Get(), events.data(), events.size()) > 0) {
    }
    isPaused_ = queue_.IsPaused();
    FollowRules(!queue_.Rules().empty());
    for (const Item& item : queue_.Removed()) {
      if (current_ && current_->Entry().id == item.id) {
        current_.reset();
      }
      if (!item.folder.empty()) {
        WorkFolder(item.folder).Remove();
      }
      queue_.Forget(item.id);
    }
  }

  void FollowRules(bool hasRules) {
    if (hasRules != hasRules_) {
      hasRules_ = hasRules;
      rules_.Change(
          hasRules ? std::vector<std::string>{orvo::SystemPath(kProgram), "convert", "follow-rules"}
                   : std::vector<std::string>());
    }
  }

  void Finish() {
    if (current_ && current_->HasEnded()) {
      Take(current_->Finish());
    }
  }

  void Take(Conversion::Step step) {
    queue_.Update(current_->Entry());
    if (step == Conversion::Step::kOn) {
      return;
    }
    if (step == Conversion::Step::kLater) {
      later_[current_->Entry().id] = Clock::now() + kLater;
    }
    current_.reset();
  }

  // Brings the work in line with the viewers' and the owner's wishes.
  void Move() {
    const Clock::time_point now = Clock::now();
    std::erase_if(later_, [&](const auto& entry) { return entry.second <= now; });
    if (!right_.MayRun(now, live_.Any()) || isPaused_) {
      next_.reset();
      Pause();
    } else if (live_.Any()) {
      next_.reset();
    } else if (!next_ || now >= *next_) {
      next_.reset();
      Advance();
    }
  }

  void Pause() {
    if (current_ && current_->IsRunning()) {
      current_->Pause();
      queue_.Update(current_->Entry());
    }
  }

  void Advance() {
    while (!current_ && TakeNext()) {
    }
    if (!current_ || current_->IsRunning()) {
      return;
    }
    if (current_->Run()) {
      queue_.Update(current_->Entry());
    } else {
      next_ = Clock::now() + kAgain;
    }
  }

  // Returns false if there is nothing to do.
  bool TakeNext() {
    std::vector<int64_t> skipped;
    for (const auto& [id, due] : later_) {
      skipped.push_back(id);
    }
    const auto item = queue_.Next(skipped);
    if (item) {
      current_.emplace(*item);
      Take(current_->Prepare());
    }
    return item.has_value();
  }

  // The time of the next change that sends no event.
  std::optional<Clock::time_point> Due() const {
    std::vector<Clock::time_point> times;
    if (rules_.Patience() >= 0) {
      times.push_back(Clock::now() + milliseconds(rules_.Patience()));
    }
    if (const auto change = right_.NextChange()) {
      times.push_back(*change);
    }
    if (next_) {
      times.push_back(*next_);
    }
    for (const auto& [id, due] : later_) {
      times.push_back(due);
    }
    const auto first = std::min_element(times.begin(), times.end());
    return first == times.end() ? std::nullopt : std::optional(*first);
  }

  void Wait() const {
    std::vector<pollfd> events = {{signals_.Descriptor(), POLLIN, 0},
                                  {changes_.Get(), POLLIN, 0},
                                  {live_.Changes(), POLLIN, 0},
                                  {rules_.Descriptor(), POLLIN, 0},
                                  {current_ ? current_->Descriptor() : -1, POLLIN, 0}};
    for (const orvo::UniqueFd& process : live_.Processes()) {
      events.push_back({process.Get(), POLLIN, 0});
    }
    int patience = -1;
    if (const auto due = Due()) {
      const auto left = std::chrono::ceil<milliseconds>(*due - Clock::now());
      patience = static_cast<int>(std::max(left, milliseconds(0)).count());
    }
    poll(events.data(), events.size(), patience);
  }

  orvo::SignalEvents signals_{SIGUSR1, SIGINT, SIGTERM, SIGHUP};
  Queue queue_;
  orvo::UniqueFd changes_;  // of the queue
  LiveTranscoders live_;
  RightOfWay right_;
  std::optional<Conversion> current_;
  bool isPaused_ = false;  // by the owner
  bool hasRules_ = false;
  orvo::KeptProgram rules_{"the search for films by rules", {}};  // adds them to the queue
  std::map<int64_t, Clock::time_point> later_;
  std::optional<Clock::time_point> next_;
};

}  // namespace

int Serve() {
  Service service;
  if (!service.IsPossible()) {
    return Refuse("the queue in " + orvo::SystemPath(kQueueFolder) + " cannot be opened");
  }
  const auto alone = orvo::FileLock::Try(orvo::SystemPath(kQueueFolder) + kLockFile);
  if (!alone.IsHeld()) {
    return Refuse("another conversion service runs here");
  }
  const PidFile pidFile;
  if (!pidFile.IsWritten()) {
    return Refuse(pidFile.Path() + ": " + strerror(errno));
  }
  service.Run();
  return 0;
}

}  // namespace convert
