// A transcoder under its monitor: it is started, watched, ended and taken from the register.
#pragma once

#include <csignal>
#include <functional>

#include "platform/process.h"

namespace LibOrvoQMX {

// What SIGINT may take a transcoder before SIGKILL. A new monitor waits a little longer for the one
// before it.
inline constexpr int kTranscoderGraceMilliseconds = 4000;

// Runs `become`, which returns only on failure, in a process that ends with this one, however this
// one ends. No process when it cannot be made.
orvo::Process StartUnderMonitor(const std::function<void()>& become);

struct PipelineRules {
  bool isRegistered = true;  // the transcoder enters itself in the register of transcoders
  int graceMilliseconds = kTranscoderGraceMilliseconds;
  bool unregistersFirst = false;                // before its end is waited for
  std::function<void(pid_t)> onKill = nullptr;  // called before SIGKILL
};

class Pipeline {
 public:
  // `transcoder` outlives this. An instance may take over what another has started there.
  Pipeline(orvo::Process& transcoder, PipelineRules rules);

  bool Start(const std::function<void()>& become);

  // Waits until the transcoder has ended by itself: true, and it is reaped and unregistered. False
  // as soon as a handler has set `stop` or `isAbandoned`, asked every two seconds, says so.
  bool Watch(const volatile sig_atomic_t& stop, const std::function<bool()>& isAbandoned = nullptr);

  // Ends the transcoder where there is one: SIGINT, and SIGKILL after the grace. It is reaped and
  // unregistered, and writes nothing any more.
  void End();

 private:
  void Unregister(pid_t pid) const;
  void Reap();

  orvo::Process& transcoder_;
  PipelineRules rules_;
};

}  // namespace LibOrvoQMX
