// The monitor's work with its transcoder: start it, watch it, end it and remove its register entry.
#pragma once

#include <csignal>
#include <functional>

#include "platform/process.h"

namespace LibOrvoQMX {

// The time between SIGINT and SIGKILL. A new monitor waits a little longer for the old one.
inline constexpr int kTranscoderGraceMilliseconds = 4000;

// Runs `become`, which returns only on failure, in a process that ends with this one, for whatever
// reason this one ends. Returns no process if it cannot be started.
orvo::Process StartUnderMonitor(const std::function<void()>& become);

struct PipelineRules {
  bool isRegistered = true;  // the transcoder enters itself in the register of transcoders
  int graceMilliseconds = kTranscoderGraceMilliseconds;
  bool unregistersFirst = false;                // removes the entry before it waits for the end
  std::function<void(pid_t)> onKill = nullptr;  // called before SIGKILL
};

class Pipeline {
 public:
  // `transcoder` must outlive this object. Several objects may use the same process, one after the
  // other.
  Pipeline(orvo::Process& transcoder, PipelineRules rules);

  bool Start(const std::function<void()>& become);

  // Waits until the transcoder has ended by itself; then reaps and unregisters it and returns true.
  // Returns false as soon as a signal handler has set `stop` or `isAbandoned`, which is called
  // every two seconds, returns true.
  bool Watch(const volatile sig_atomic_t& stop, const std::function<bool()>& isAbandoned = nullptr);

  // The exit status of the transcoder that has ended, as Process::Wait returns it.
  int Status() const { return status_; }

  // Ends the transcoder, if there is one, with SIGINT, and with SIGKILL after the grace time. Reaps
  // and unregisters it. After this returns, the transcoder writes nothing.
  void End();

 private:
  void Unregister(pid_t pid) const;
  void Reap();

  orvo::Process& transcoder_;
  PipelineRules rules_;
  int status_ = -1;
};

}  // namespace LibOrvoQMX
