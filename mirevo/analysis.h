// Analyzing many films, each in a process of its own.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/unique_fd.h"

namespace mirevo {

struct FilmResult {
  std::string path;
  bool succeeded = false;
  uint64_t keyframes = 0;  // of a success
  std::string reason;      // of a failure
};

// How far the whole is: films done of all, and those at work, each with its part from 0 to 1.
struct AnalysisState {
  size_t done = 0;
  size_t all = 0;
  std::vector<double> running;
};

class Analysis {
 public:
  using OnResult = std::function<void(const FilmResult&)>;
  using OnState = std::function<void(const AnalysisState&)>;

  // `worker`: the program that analyzes one film. `jobs`: how many of them at a time, at least 1.
  Analysis(std::string worker, unsigned jobs);
  ~Analysis();
  Analysis(const Analysis&) = delete;
  Analysis& operator=(const Analysis&) = delete;

  // Analyzes the films and tells of each as it ends. False when SIGINT, SIGTERM or SIGHUP came
  // first; then no worker is left, and neither is anything half of the films that they were at.
  bool Run(const std::vector<std::string>& films, const OnResult& onResult, const OnState& onState);

 private:
  struct Worker {
    pid_t pid;
    orvo::UniqueFd output;
    FilmResult result;
    double part = 0;
    std::string line;  // what has come of the next one
  };

  bool Start(const std::string& film, const OnResult& onResult);
  bool WaitAndRead(std::vector<size_t>& ended);
  static bool Read(Worker& worker);
  static void Take(Worker& worker, const std::string& line);
  void Finish(size_t index, const OnResult& onResult);
  void StopAll();

  std::string worker_;
  unsigned jobs_;
  orvo::UniqueFd signals_;
  std::vector<Worker> workers_;
};

}  // namespace mirevo
