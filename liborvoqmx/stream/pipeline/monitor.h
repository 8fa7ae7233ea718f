// What the monitors of all kinds of streams share. A monitor is the detached process that runs and
// watches a stream's transcoder and outlives the request that started it.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <functional>

namespace LibOrvoQMX {

// A stream that no request has touched for so long has lost its client.
inline constexpr unsigned long kIdleSeconds = 900;
// What SIGINT may take a transcoder before SIGKILL. Who replaces a monitor waits a little longer.
inline constexpr int kTranscoderGraceMilliseconds = 4000;

// Forks a detached process that handles SIGINT and SIGTERM with `handler`, calls `record` and,
// where that is true, `watch`, and ends; an exception ends it too. Returns once `record` came back,
// so that whoever asks next whether the stream has a monitor is told the truth. False when it could
// not be forked.
bool StartMonitor(void (*handler)(int), const std::function<bool()>& record,
                  const std::function<void()>& watch);

// In a monitor: fork() for a process that ends with this one, however this one ends. The child has
// the signals as a program expects them.
pid_t ForkUnderMonitor();

// Waits until `child` has ended by itself: true, and it is reaped. False as soon as a handler has
// set `stop`, and when this process has no child or `isAbandoned`, asked every two seconds, says
// so. Where `companion` points to another child's pid, that is reaped as well and the pid set to 0.
bool AwaitChild(pid_t child, const volatile sig_atomic_t& stop,
                const std::function<bool()>& isAbandoned = nullptr, pid_t* companion = nullptr);

// Waits for a child's end and reaps it. False when it is none.
bool ReapChild(pid_t child);

// Reaps a child that was told to end. One that is still there after the grace is killed, `onKill`
// being called first: whoever waits for the monitor may rely on that nothing is written any more.
void EndChild(pid_t child, int graceMilliseconds, const std::function<void()>& onKill = nullptr);

}  // namespace LibOrvoQMX
