// The process that looks for the key frames of the library's films in the background.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/process.h"

namespace serve {

// What it tells of itself, in the state folder; see docs/state-files.md.
inline constexpr char kAnalysisFile[] = "/analysis";

// Keeps it running: after its end it is started again, each time later than the last.
class Analysis {
 public:
  // `program` with "--watch" and the roots. Nothing is started without roots.
  Analysis(std::string program, std::vector<std::string> roots);
  ~Analysis();
  Analysis(const Analysis&) = delete;
  Analysis& operator=(const Analysis&) = delete;

  // Starts it where its time has come, and notices its end.
  void Update();
  // What to wait for before the next Update(): the descriptor (-1 for none) or, where there is
  // none, the time in milliseconds (-1 for ever).
  int Descriptor() const { return process_.Descriptor().Get(); }
  int Patience() const;

  // Ends it, which takes it an instant and never more than a second. It is not started again.
  void Stop();

 private:
  using Clock = std::chrono::steady_clock;

  void Start();
  void NoticeEnd();

  std::string program_;
  std::vector<std::string> roots_;
  orvo::Process process_;
  Clock::time_point started_;
  Clock::time_point next_ = Clock::now();
  std::chrono::seconds pause_{0};
};

}  // namespace serve
