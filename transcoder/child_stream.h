// FFmpeg as a child whose standard output this process reads.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/signal_events.h"
#include "platform/unique_fd.h"
#include "transcoder/film_copy.h"
#include "transcoder/silence.h"
#include "transcoder/worker.h"

namespace orvo::transcoder {

inline constexpr int kExitFailure = 1;

// This process stays, so that its process id is the transcoder's; SIGINT and SIGTERM end FFmpeg,
// which does not outlive it in any case.
class ChildStream {
 public:
  // The service's ready FFmpeg runs it, or else a child. Nothing, with the reason in the log, when
  // FFmpeg cannot be started. From here on SIGINT and SIGTERM only arrive through Wait().
  static std::optional<ChildStream> Start(const std::vector<std::string>& command);

  // The same for a copy without FFmpeg, which reports its progress into `progress`. The service's
  // parent of copies makes it, or else a child.
  static std::optional<ChildStream> Start(const FilmCopy& copy, int progress);

  // The same for other work of that parent, for which there is no child instead (copy_text.h).
  // Nothing if it cannot be had.
  static std::optional<ChildStream> StartByParent(const std::string& work, int film);

  struct Wake {
    bool hasOutput = false;  // Read() is due: there is output, or it has ended
    bool hasChange = false;  // `changes` is readable
  };

  // Waits for something to happen; a signal ends FFmpeg at once. `changes` is one more descriptor
  // to watch, below 0 for none. With `holdBack` output stays in the pipe, whose other end then
  // waits; that it is closed is told all the same.
  Wake Wait(int changes, bool holdBack);

  // Ends FFmpeg by SIGKILL when it writes nothing for so long while Wait() waits for its output,
  // and for three times as long if it is at work.
  void LimitSilence(int milliseconds);

  // Waits until `output` can be written. False when the run was stopped first, or nobody reads
  // `output` any more.
  bool WaitToWrite(int output);

  // As Wait() for one who has no use for output now: returns when `changes` is readable, a signal
  // has come or FFmpeg has failed.
  void WaitForChange(int changes);

  // As read(2), but 0 also for a failure to read; -1 asks to wait again.
  ssize_t Read(void* buffer, size_t size);

  // The same, but waits for output. Below 0 once the run is stopped.
  int ReadNext(unsigned char* buffer, int size);

  // Moves output into another pipe without waiting, as splice(2) does: 0 at the end, -1 with errno.
  ssize_t Move(int pipe);

  // Ends FFmpeg by this signal.
  void Stop(int signalNumber);
  bool IsStopped() const { return stopped_; }

  // FFmpeg may write at most about so many bytes that nobody has read. Due before it has written
  // more.
  void LimitAhead(int bytes) const;

  // Waits for FFmpeg's end. Its exit code, or kExitSignal and the number of the signal.
  int ExitCode();

  // FFmpeg's output is wanted no more: what it still writes fails.
  void Close() { stream_.Reset(); }

 private:
  using Starter = std::function<std::unique_ptr<Worker>(int output)>;

  ChildStream(std::unique_ptr<Worker> child, UniqueFd stream, SignalEvents signals);
  static std::optional<ChildStream> StartWith(const Starter& start);
  void TakeSignal();
  void EndSilent(int ready);

  std::unique_ptr<Worker> child_;
  UniqueFd stream_;
  SignalEvents signals_;
  bool hasEnded_ = false;
  int exitCode_ = 0;  // once it has ended
  bool stopped_ = false;
  std::optional<Silence> silence_;
};

}  // namespace orvo::transcoder
