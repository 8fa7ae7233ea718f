// The background process that watches the library: it keeps the catalog of the folders, and finds
// the key frames of the films.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/process.h"

namespace serve {

// The file with its state, in the state folder; see docs/state-files.md.
inline constexpr char kAnalysisFile[] = "/analysis";

// Keeps the process running. After each end it waits longer before the next start.
class Analysis {
 public:
  // Runs `program` for the roots; without `findsKeyframes` only for the catalog. Starts nothing if
  // there are no roots.
  Analysis(std::string program, std::vector<std::string> roots, bool findsKeyframes);
  ~Analysis();
  Analysis(const Analysis&) = delete;
  Analysis& operator=(const Analysis&) = delete;

  // Checks whether the process has ended, and starts it if it is time.
  void Update();
  // What to wait for before the next Update(): the descriptor (-1 for none) or, without a
  // descriptor, the time in milliseconds (-1 for no limit).
  int Descriptor() const { return process_.Descriptor().Get(); }
  int Patience() const;

  // Ends the process, in at most one second and usually at once. Does not start it again.
  void Stop();

 private:
  using Clock = std::chrono::steady_clock;

  void Start();
  void NoticeEnd();

  std::string program_;
  std::vector<std::string> roots_;
  bool findsKeyframes_;
  orvo::Process process_;
  Clock::time_point started_;
  Clock::time_point next_ = Clock::now();
  std::chrono::seconds pause_{0};
};

}  // namespace serve
