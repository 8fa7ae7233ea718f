// A background program that runs as long as the service.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/process.h"

namespace orvo {

// Keeps the program running. After each end it waits longer before the next start.
class ORVO_API KeptProgram {
 public:
  // `name` is for the log: "the analysis of the library". `command` is the program's path and its
  // arguments; nothing runs if it is empty.
  KeptProgram(std::string name, std::vector<std::string> command);
  ~KeptProgram();
  KeptProgram(const KeptProgram&) = delete;
  KeptProgram& operator=(const KeptProgram&) = delete;

  // Ends the program, as Stop() does, and runs this command from the next Update() on. `command`:
  // as above.
  void Change(std::vector<std::string> command);

  // Checks whether the program has ended, and starts it if it is time.
  void Update();
  // What to wait for before the next Update(): the descriptor (-1 for none) or, without a
  // descriptor, the time in milliseconds (-1 for no limit).
  int Descriptor() const { return process_.Descriptor().Get(); }
  int Patience() const;

  // Ends the program, in at most one second and usually at once. Does not start it again.
  void Stop();

 private:
  using Clock = std::chrono::steady_clock;

  void Start();
  void NoticeEnd();

  std::string name_;
  std::vector<std::string> command_;
  Process process_;
  Clock::time_point started_;
  Clock::time_point next_ = Clock::now();
  std::chrono::seconds pause_{0};
};

}  // namespace orvo
