#include "transcoder/child_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "contract/copies.h"
#include "platform/confinement.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/process.h"
#include "platform/process_launch.h"
#include "transcoder/command_reach.h"
#include "transcoder/copy_text.h"
#include "transcoder/given_film.h"
#include "transcoder/launch.h"
#include "transcoder/ready_client.h"
#include "transcoder/remote_worker.h"

namespace orvo::transcoder {
namespace {

constexpr int kPipeSize = 1 << 20;  // what FFmpeg may do ahead while this process has no turn

class Child : public Worker {
 public:
  // Null for no process.
  static std::unique_ptr<Worker> Of(Process process) {
    return process ? std::make_unique<Child>(std::move(process)) : nullptr;
  }
  explicit Child(Process process) : process_(std::move(process)) {}

  int Descriptor() const override { return process_.Descriptor().Get(); }
  pid_t Pid() const override { return process_.Pid(); }
  void End(int signalNumber) override { process_.AskToEnd(signalNumber); }
  int Wait() override { return process_.Wait(); }

 private:
  Process process_;
};

// It has what this process has, but for its output.
Process StartCommand(const std::vector<std::string>& command, int output) {
  Program program{command.front(), command};
  program.descriptors = {{output, STDOUT_FILENO}};
  program.keepInheritable = true;
  LaunchOptions options;
  options.streams = StandardStreams::kKept;
  options.parentDeath.signal = SIGKILL;
  Confinement confinement(Job::kTranscoder, ReachOf(command));
  confinement.AddTo(options);
  return orvo::Start(program, options);
}

// The film is open already: this process reaches nothing but the libraries, and needs no rights.
Process StartCopy(const FilmCopy& copy, UniqueFd& film, int output, int progress) {
  LaunchOptions options;
  options.streams = StandardStreams::kKept;
  options.parentDeath.signal = SIGKILL;
  if (geteuid() != getuid()) {
    options.ids = ProcessIds{getuid(), getgid()};
  }
  Confinement confinement(Job::kTranscoder, {});
  confinement.AddTo(options);
  return Fork(
      [&] {
        CloseAllBut({film.Get(), output, progress});
        return CopyFilm(copy, std::move(film), output, progress);
      },
      options);
}

}  // namespace

ChildStream::ChildStream(std::unique_ptr<Worker> child, UniqueFd stream, SignalEvents signals)
    : child_(std::move(child)), stream_(std::move(stream)), signals_(std::move(signals)) {}

std::optional<ChildStream> ChildStream::Start(const std::vector<std::string>& command) {
  auto stream = StartWith([&](int output) { return AskForFFmpeg(command, output); });
  if (stream) {
    return stream;
  }
  // The pipe is another one: the first may have got bytes from a server that answered too late.
  return StartWith([&](int output) {
    Process child = StartCommand(command, output);
    if (!child) {
      RefuseToStart(command.front(), errno);
    }
    return Child::Of(std::move(child));
  });
}

std::optional<ChildStream> ChildStream::Start(const FilmCopy& copy, int progress) {
  UniqueFd film = OpenFilm(copy.film);
  if (!film.IsOpen()) {
    return std::nullopt;
  }
  const std::string work = TextOf(copy);
  auto stream = StartWith([&](int output) {
    return AskForFork(kCopiesSocket, work, {film.Get(), output, progress});
  });
  if (stream) {
    return stream;
  }
  return StartWith([&](int output) { return Child::Of(StartCopy(copy, film, output, progress)); });
}

std::optional<ChildStream> ChildStream::StartByParent(const std::string& work, int film) {
  return StartWith([&](int output) { return AskForFork(kCopiesSocket, work, {film, output}); });
}

std::optional<ChildStream> ChildStream::StartWith(const Starter& start) {
  SignalEvents signals({SIGINT, SIGTERM});
  UniqueFd stream;
  UniqueFd output;
  if (!signals.IsOpen() || !OpenPipe(stream, output)) {
    ORVO_LOG("cannot start a run: %s", strerror(errno));
    return std::nullopt;
  }
  fcntl(stream.Get(), F_SETPIPE_SZ, kPipeSize);
  std::unique_ptr<Worker> child = start(output.Get());
  if (child == nullptr) {
    return std::nullopt;
  }
  return ChildStream(std::move(child), std::move(stream), std::move(signals));
}

void ChildStream::LimitSilence(int milliseconds) {
  silence_.emplace(milliseconds, child_->Pid());
}

ChildStream::Wake ChildStream::Wait(int changes, bool holdBack) {
  std::array<pollfd, 3> waits = {{{signals_.Descriptor(), POLLIN, 0},
                                  {changes, POLLIN, 0},
                                  {stream_.Get(), holdBack ? short{} : short{POLLIN}, 0}}};
  const bool isJudged = silence_ && !holdBack;
  const int ready = poll(waits.data(), waits.size(), isJudged ? Silence::kTick : -1);
  if (ready <= 0) {
    EndSilent(ready);
    return {};
  }
  if (silence_ && (holdBack || waits[2].revents != 0)) {
    silence_->Break();
  }
  if (waits[0].revents != 0) {
    TakeSignal();
  }
  return {waits[2].revents != 0, waits[1].revents != 0};
}

// Its end is the end of its output.
void ChildStream::EndSilent(int ready) {
  if (ready == 0 && silence_->Tick()) {
    child_->End(SIGKILL);
    silence_.reset();
  }
}

bool ChildStream::WaitToWrite(int output) {
  while (!stopped_) {
    std::array<pollfd, 2> waits = {{{signals_.Descriptor(), POLLIN, 0}, {output, POLLOUT, 0}}};
    if (poll(waits.data(), waits.size(), -1) < 0) {
      continue;
    }
    if (waits[0].revents != 0) {
      TakeSignal();
    } else {
      return (waits[1].revents & POLLOUT) != 0;
    }
  }
  return false;
}

void ChildStream::WaitForChange(int changes) {
  std::array<pollfd, 3> waits = {{{signals_.Descriptor(), POLLIN, 0},
                                  {changes, POLLIN, 0},
                                  {hasEnded_ ? -1 : child_->Descriptor(), POLLIN, 0}}};
  if (poll(waits.data(), waits.size(), -1) < 0) {
    return;
  }
  if (waits[0].revents != 0) {
    TakeSignal();
  }
  if (waits[2].revents != 0) {
    hasEnded_ = true;  // told once; the rest of its output can still be wanted
    exitCode_ = child_->Wait();
    stopped_ |= exitCode_ != 0;
  }
}

// Nothing that a stopped run writes is kept, and whoever stops it waits for its end to start the
// next one. FFmpeg would take time to write its output's end.
void ChildStream::TakeSignal() {
  if (signals_.Take() != 0) {
    Stop(SIGKILL);
  }
}

void ChildStream::Stop(int signalNumber) {
  stopped_ = true;
  child_->End(signalNumber);
}

ssize_t ChildStream::Read(void* buffer, size_t size) {
  const ssize_t count = read(stream_.Get(), buffer, size);
  if (count >= 0) {
    return count;
  }
  return errno == EINTR || errno == EAGAIN ? -1 : 0;
}

int ChildStream::ReadNext(unsigned char* buffer, int size) {
  constexpr int kAgain = -1;
  ssize_t count = kAgain;
  while (count == kAgain && !stopped_) {
    if (Wait(-1, false).hasOutput) {
      count = Read(buffer, static_cast<size_t>(size));
    }
  }
  return stopped_ ? kAgain : static_cast<int>(count);
}

void ChildStream::LimitAhead(int bytes) const {
  fcntl(stream_.Get(), F_SETPIPE_SZ, bytes);
}

ssize_t ChildStream::Move(int pipe) {
  return splice(stream_.Get(), nullptr, pipe, nullptr, kPipeSize, SPLICE_F_NONBLOCK);
}

int ChildStream::ExitCode() {
  const int status = hasEnded_ ? exitCode_ : child_->Wait();
  return status < 0 ? kExitFailure : status;
}

}  // namespace orvo::transcoder
