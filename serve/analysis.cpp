#include "serve/analysis.h"

#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <utility>

#include "platform/pidfd.h"

namespace serve {
namespace {

using std::chrono::seconds;

constexpr seconds kShortestPause{1};
constexpr seconds kLongestPause{300};
// One that ran for so long has not failed because of how it was started.
constexpr seconds kLongLife{600};

[[noreturn]] void Become(pid_t parent, char* const* argv) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() == parent) {
    execv(argv[0], argv);
  }
  _exit(127);
}

pid_t Launch(std::vector<std::string> arguments) {
  std::vector<char*> argv;
  std::transform(arguments.begin(), arguments.end(), std::back_inserter(argv),
                 [](std::string& argument) { return argument.data(); });
  argv.push_back(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) {
    Become(parent, argv.data());
  }
  return pid;
}

}  // namespace

Analysis::Analysis(std::string program, std::vector<std::string> roots)
    : program_(std::move(program)), roots_(std::move(roots)) {}

Analysis::~Analysis() {
  Stop();
}

void Analysis::Update() {
  pollfd end = {process_.Get(), POLLIN, 0};
  if (process_.IsOpen() && poll(&end, 1, 0) > 0) {
    NoticeEnd();
  }
  if (!process_.IsOpen() && !roots_.empty() && Clock::now() >= next_) {
    Start();
  }
}

void Analysis::Start() {
  std::vector<std::string> arguments = {program_, "--watch"};
  arguments.insert(arguments.end(), roots_.begin(), roots_.end());
  started_ = Clock::now();
  pid_ = Launch(std::move(arguments));
  process_ = pid_ > 0 ? orvo::OpenProcess(pid_) : orvo::UniqueFd();
  if (!process_.IsOpen()) {
    NoticeEnd();
  }
}

void Analysis::NoticeEnd() {
  process_.Reset();
  pid_ = -1;
  const bool wasLong = Clock::now() - started_ >= kLongLife;
  pause_ = wasLong ? kShortestPause : std::clamp(pause_ * 2, kShortestPause, kLongestPause);
  next_ = Clock::now() + pause_;
  std::cerr << "the analysis of the library has ended; it starts again in " << pause_.count()
            << " s\n";
}

int Analysis::Patience() const {
  if (process_.IsOpen() || roots_.empty()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
  return static_cast<int>(std::max<long>(left.count(), 0));
}

void Analysis::Stop() {
  roots_.clear();
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
  }
  pid_ = -1;
  process_.Reset();
}

}  // namespace serve
