// Analyzes many films, each in a process of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/process.h"
#include "platform/signal_events.h"
#include "platform/unique_fd.h"

namespace mirevo {

struct FilmResult {
  std::string path;
  bool succeeded = false;
  uint64_t keyframes = 0;  // after a success
  std::string reason;      // after a failure
};

// The progress: the number of finished films, the number of all films, and for each running
// analysis its progress from 0 to 1.
struct AnalysisState {
  size_t done = 0;
  size_t all = 0;
  std::vector<double> running;
};

class Analysis {
 public:
  using OnResult = std::function<void(const FilmResult&)>;
  using OnState = std::function<void(const AnalysisState&)>;

  // `worker`: the program that analyzes one film. `jobs`: how many workers run at the same time, at
  // least 1.
  Analysis(std::string worker, unsigned jobs);
  ~Analysis();
  Analysis(const Analysis&) = delete;
  Analysis& operator=(const Analysis&) = delete;

  // Analyzes the films and calls `onResult` for each when it ends. False when SIGINT, SIGTERM or
  // SIGHUP came first; then no worker and no unfinished result is left.
  bool Run(const std::vector<std::string>& films, const OnResult& onResult, const OnState& onState);

 private:
  struct Worker {
    orvo::Process process;
    orvo::UniqueFd output;
    FilmResult result;
    double part = 0;
    std::string line;  // the part of the next line that has arrived
  };

  bool Start(const std::string& film, const OnResult& onResult);
  bool WaitAndRead(std::vector<size_t>& ended);
  static bool Read(Worker& worker);
  static void Take(Worker& worker, const std::string& line);
  void Finish(size_t index, const OnResult& onResult);
  void StopAll();

  std::string worker_;
  unsigned jobs_;
  orvo::SignalEvents signals_;
  std::vector<Worker> workers_;
};

}  // namespace mirevo
