// What writes the stream that a run reads.
#pragma once

#include <sys/types.h>

namespace orvo::transcoder {

inline constexpr int kExitSignal = 128;  // and the number of the signal that ended a process

// Whoever destroys it ends it.
class Worker {
 public:
  Worker() = default;
  virtual ~Worker() = default;
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // Becomes readable when it has ended. This object keeps ownership.
  virtual int Descriptor() const = 0;

  // The process that works, for its use of the processor; -1 if that is not known.
  virtual pid_t Pid() const { return -1; }

  // Ends it, by this signal if it is a child.
  virtual void End(int signalNumber) = 0;

  // Waits for its end. Returns its exit code, or kExitSignal and the number of the signal that
  // ended it; below 0 if that is not known.
  virtual int Wait() = 0;
};

}  // namespace orvo::transcoder
