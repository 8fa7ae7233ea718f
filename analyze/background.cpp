#include "background.h"

#include <json/writer.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <unordered_map>
#include <utility>

#include "catalog/catalog.h"
#include "catalog/due_queue.h"
#include "catalog/library_watch.h"
#include "catalog/writers.h"
#include "film_analysis.h"
#include "film_previews.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "policy/lock.h"
#include "preprocess/stored_result.h"
#include "worker.h"

namespace orvo::analyze {
namespace {

using catalog::DueQueue;
using catalog::FilmChange;
using catalog::kQuiet;
using LibOrvoQMX::preprocess::FailureOf;
using LibOrvoQMX::preprocess::FilmRecord;
using LibOrvoQMX::preprocess::FilmState;
using LibOrvoQMX::preprocess::HasCurrentResult;
using LibOrvoQMX::preprocess::kOwnResults;
using LibOrvoQMX::preprocess::ReadFilmRecord;
using LibOrvoQMX::preprocess::WriteFilmRecord;
using Clock = DueQueue::Clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

// No process can be started.
constexpr auto kAgain = seconds(60);
// A folder is remembered when its entries have stayed the same for this time.
constexpr auto kFolderQuiet = seconds(3);
// Remembering folders must not slow down viewers, but a busy machine must not stop it either.
constexpr int kNiceness = 10;
constexpr int kMaxAttempts = 3;
constexpr char kLockFile[] = "/run/mirevo/analysis.lock";
constexpr std::array kCrashes = {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL, SIGXCPU, SIGSYS};

// Removes results and failures of films that are gone or have changed.
void ForgetOldRecords() {
  std::error_code failure;
  const std::filesystem::directory_iterator folders(orvo::SystemPath(kOwnResults), failure);
  for (const auto& folder : folders) {
    const FilmRecord record = ReadFilmRecord(folder.path().string());
    std::error_code ignored;
    if (folder.is_directory(ignored) && record.state != FilmState(record.film)) {
      std::filesystem::remove_all(folder, ignored);
    }
  }
}

class Background {
 public:
  Background(const std::vector<std::string>& roots, bool findsKeyframes)
      : library_(
            roots, [this](const std::string& film, FilmChange change) { Take(film, change); },
            [this](const std::string& folder, FilmChange change) { TakeFolder(folder, change); }),
        findsKeyframes_(findsKeyframes) {
    catalog_.ForgetOthers(roots);
  }

  bool IsPossible() const { return library_.Descriptor() >= 0; }

  [[noreturn]] void Run() {
    catalog_.TakeLoss();
    library_.Scan();
    for (;;) {
      library_.ReadEvents();
      StartNext();
      StartPreviews();
      RememberNext();
      Tell();
      Wait();
      if (worker_ && worker_.HasEndedWithin(0)) {
        Finish();
      }
      if (previewer_ && previewer_.HasEndedWithin(0)) {
        previewer_.Wait();
        previewer_ = Process();
      }
    }
  }

 private:
  void Take(const std::string& film, FilmChange change) {
    if (!findsKeyframes_) {
      return;
    }
    if (change == FilmChange::kGone) {
      queue_.Remove(film);
      previews_.Remove(film);
      attempts_.erase(film);
    } else {
      queue_.Put(film, Clock::now() + (change == FilmChange::kFound ? seconds(0) : kQuiet));
    }
  }

  void TakeFolder(const std::string& folder, FilmChange change) {
    if (change == FilmChange::kGone) {
      folders_.Put(folder, Clock::now());
    } else if (change == FilmChange::kChanged || !catalog_.IsCurrent(folder)) {
      folders_.Put(folder,
                   Clock::now() + (change == FilmChange::kFound ? seconds(0) : kFolderQuiet));
    }
  }

  // Remembers one folder at a time, because new events must not wait for a large library.
  void RememberNext() {
    const auto folder = folders_.TakeDue();
    if (folder && catalog_.Remember(*folder) == catalog::CatalogWriter::Result::kNotYet) {
      folders_.Put(*folder, Clock::now() + kFolderQuiet);
    }
    if (catalog_.TakeLoss()) {
      library_.Scan();
    }
  }

  void StartNext() {
    while (!worker_) {
      const auto film = queue_.TakeDue();
      if (!film) {
        return;
      }
      if (!FailureOf(*film).empty()) {
        continue;
      }
      if (HasCurrentResult(*film)) {
        previews_.Put(*film, Clock::now());
        continue;
      }
      if (const seconds wait = catalog::WaitForWriters(*film); wait.count() > 0) {
        queue_.Put(*film, Clock::now() + wait);
        continue;
      }
      Start(*film);
    }
  }

  void Start(const std::string& film) {
    worker_ = StartWorker(film);
    if (worker_) {
      film_ = film;
    } else {
      queue_.Put(film, Clock::now() + kAgain);
    }
  }

  void Finish() {
    const int status = worker_.Wait();
    worker_ = Process();
    const std::string film = std::exchange(film_, "");
    if (status > 128) {
      Retry(film, status - 128);
      return;
    }
    attempts_.erase(film);
    ++(status == 0 ? analyzed_ : failed_);
    if (status == 0) {
      previews_.Put(film, Clock::now());
    }
  }

  // Key frames come first. Previews, which take longer, do not hold them up once they are being
  // made. A film whose previews fail is tried again by the next analysis.
  void StartPreviews() {
    while (!previewer_ && !worker_) {
      const auto film = previews_.TakeDue();
      if (!film) {
        return;
      }
      if (HasCurrentResult(*film) && LacksPreviews(*film)) {
        previewer_ = StartPreviewer(*film);
      }
    }
  }

  // Tries again after an end by a signal, unless the film caused it.
  void Retry(const std::string& film, int signal) {
    const bool isCrash = std::find(kCrashes.begin(), kCrashes.end(), signal) != kCrashes.end();
    if (!isCrash && ++attempts_[film] < kMaxAttempts) {
      queue_.Put(film, Clock::now() + kQuiet);
      return;
    }
    const std::string reason = "its analysis was ended by signal " + std::to_string(signal);
    WriteFilmRecord({FilmState(film), reason, film});
    fprintf(stderr, "mirevo-analyze: %s: %s\n", film.c_str(), reason.c_str());
    attempts_.erase(film);
    ++failed_;
  }

  void Tell() {
    if (!findsKeyframes_) {
      return;
    }
    Json::Value state(Json::objectValue);
    state["waiting"] = static_cast<Json::UInt64>(queue_.Size());
    state["analyzed"] = analyzed_;
    state["failed"] = failed_;
    if (worker_) {
      state["film"] = film_;
    }
    if (state != told_) {
      const Uninterrupted writing;
      orvo::ReplaceFile(orvo::SystemPath(kStateFile), Json::FastWriter().write(state), 0600);
      told_ = state;
    }
  }

  // Waits for a change in the library, the worker's end or the next film's time.
  void Wait() const {
    pollfd events[] = {{library_.Descriptor(), POLLIN, 0},
                       {worker_.Descriptor().Get(), POLLIN, 0},
                       {previewer_.Descriptor().Get(), POLLIN, 0}};
    auto due = folders_.NextDue();
    if (const auto film = worker_ ? std::nullopt : queue_.NextDue()) {
      due = due ? std::min(*due, *film) : film;
    }
    int patience = -1;
    if (due) {
      const auto left = std::chrono::ceil<milliseconds>(*due - Clock::now());
      patience = static_cast<int>(std::max(left, milliseconds(0)).count());
    }
    poll(events, 3, patience);
  }

  DueQueue queue_;
  DueQueue folders_;  // to be remembered
  catalog::CatalogWriter catalog_;
  catalog::LibraryWatch library_;
  bool findsKeyframes_;
  DueQueue previews_;  // films that may lack them
  Process worker_;
  Process previewer_;
  std::string film_;  // the film in work
  std::unordered_map<std::string, int> attempts_;
  unsigned analyzed_ = 0;
  unsigned failed_ = 0;
  Json::Value told_;
};

}  // namespace

int WatchInBackground(const std::vector<std::string>& roots, bool findsKeyframes) {
  setpriority(PRIO_PROCESS, 0, kNiceness);
  umask(S_IWGRP | S_IWOTH);
  // The kernel sends this signal when a writer breaks a lease.
  signal(SIGIO, SIG_IGN);
  // A worker of an earlier analysis that is still writing also holds this lock.
  const LibMirevo::Lock alone(orvo::SystemPath(kLockFile), true);
  ForgetOldRecords();
  Background background(roots, findsKeyframes);
  if (!background.IsPossible()) {
    perror("mirevo-analyze: the media folders cannot be watched");
    return 1;
  }
  background.Run();
}

}  // namespace orvo::analyze
