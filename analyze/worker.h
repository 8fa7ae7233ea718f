// A process that analyzes one film, so that what a film does to FFmpeg's libraries stays there.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/unique_fd.h"

namespace orvo::analyze {

class Worker {
 public:
  // Starts it. It dies with this process. IsRunning() is false when there could be none.
  explicit Worker(const std::string& film);
  // Ends it if it still runs.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  bool IsRunning() const { return process_.IsOpen(); }
  int Descriptor() const { return process_.Get(); }  // readable when it has ended
  const std::string& Film() const { return film_; }

  // Reaps it once it has ended: what WaitForStatus() returns. 0: the result is stored. 1: there is
  // none. What is wrong with the film itself is recorded.
  int Finish();

 private:
  std::string film_;
  pid_t pid_ = -1;
  UniqueFd process_;
};

}  // namespace orvo::analyze
