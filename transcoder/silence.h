// How long a process has written nothing, when it is judged by that. A machine that is busy or
// stopped makes every process silent, so the clock on the wall alone does not tell a hang.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace orvo::transcoder {

class Silence {
 public:
  // How often Tick() is wanted while nothing comes, in milliseconds.
  static constexpr int kTick = 300;

  // Of this process, or of another one. `limit` is in milliseconds.
  explicit Silence(int limit, pid_t pid = 0) : limit_(limit), pid_(pid), used_(Used()) {}

  // One more kTick without output has passed. A tick in which the process had the processor counts
  // a third, and a tick counts once however long it took: neither waiting for the processor nor a
  // machine that was stopped is a hang. True when the silence has lasted too long.
  bool Tick();

  // Something has come.
  void Break();

 private:
  int64_t Used() const;  // nanoseconds of processor; 0 when the process has ended

  int limit_;
  pid_t pid_;
  int64_t used_;
  int silent_ = 0;
};

}  // namespace orvo::transcoder
