#include "support/processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <utility>

namespace test {
namespace {

void Flush() {
  std::cout.flush();
  std::cerr.flush();
  fflush(nullptr);
}

int StatusOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `body` in a process that ends afterwards, and returns its exit status.
int RunGuarded(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& exception) {
    ADD_FAILURE() << "threw " << exception.what();
  }
  return testing::Test::HasFailure() ? 1 : 0;
}

[[noreturn]] void RunAndExit(const std::function<void()>& body) {
  const pid_t self = getpid();
  int status = RunGuarded(body);
  if (getpid() != self) {
    _exit(99);  // a fork inside the body returned to here
  }
  if (!HasNoChild()) {
    std::cout << "a child was left behind\n";
    status = 1;
  }
  Flush();
  _exit(status);
}

}  // namespace

void InChild(const std::function<void()>& body) {
  Flush();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    RunAndExit(body);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(StatusOf(status), 0) << "in the forked process";
}

void ReapAll() {
  while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

bool HasNoChild() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD;
}

Child::Child(const std::function<void()>& body) {
  Flush();
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    RunAndExit(body);
  }
}

Child::~Child() {
  if (!reaped_ && pid_ > 0) {
    kill(pid_, SIGKILL);
    Wait();
  }
}

bool Child::WaitUntilStopped() {
  int status = 0;
  if (waitpid(pid_, &status, WUNTRACED) != pid_) {
    return false;
  }
  reaped_ = !WIFSTOPPED(status);
  return !reaped_;
}

void Child::Continue() const {
  kill(pid_, SIGCONT);
}

void Child::Kill(int signal) const {
  kill(pid_, signal);
}

int Child::Wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) != pid_) {
    if (errno != EINTR) {
      return -1;
    }
  }
  reaped_ = true;
  return StatusOf(status);
}

void Child::WaitUntilZombie() const {
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
}

void StopHere() {
  raise(SIGSTOP);
}

void SleepUntilKilled() {
  for (;;) {
    pause();
  }
}

Pipe::Pipe() {
  EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
}

Pipe::~Pipe() {
  CloseRead();
  CloseWrite();
}

void Pipe::CloseRead() {
  if (ends_[0] >= 0) {
    close(std::exchange(ends_[0], -1));
  }
}

void Pipe::CloseWrite() {
  if (ends_[1] >= 0) {
    close(std::exchange(ends_[1], -1));
  }
}

void Pipe::Write(const std::string& text) const {
  EXPECT_EQ(write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::string Pipe::ReadToEnd() {
  CloseWrite();
  return test::ReadToEnd(ends_[0]);
}

std::string Pipe::Read(size_t length) const {
  std::string text(length, '\0');
  size_t done = 0;
  while (done < length) {
    const ssize_t count = read(ends_[0], text.data() + done, length - done);
    if (count <= 0) {
      break;
    }
    done += static_cast<size_t>(count);
  }
  text.resize(done);
  return text;
}

std::string ReadToEnd(int fd) {
  std::string text;
  char buffer[4096];
  for (ssize_t count = 0; (count = read(fd, buffer, sizeof(buffer))) > 0;) {
    text.append(buffer, static_cast<size_t>(count));
  }
  return text;
}

double Now() {
  using Seconds = std::chrono::duration<double>;
  return Seconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace test
