#include "tools/mirevo/program_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>

#include "platform/unique_fd.h"

namespace mirevo {
namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> ArgumentVector(const std::vector<std::string>& command) {
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (const std::string& argument : command) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  return argv;
}

[[noreturn]] void Run(char* const* argv, int output) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(null, STDERR_FILENO);
  execv(argv[0], argv);
  _exit(127);
}

// Reads to the end of the file; false where the deadline came first.
bool ReadUntil(int fd, Clock::time_point deadline, std::string& text) {
  std::array<char, 4096> buffer{};
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd wait{fd, POLLIN, 0};
    if (left <= 0 || (poll(&wait, 1, static_cast<int>(left)) <= 0 && errno != EINTR)) {
      return false;
    }
    const ssize_t count = wait.revents != 0 ? read(fd, buffer.data(), buffer.size()) : -1;
    if (count == 0) {
      return true;
    }
    if (count > 0) {
      text.append(buffer.data(), static_cast<size_t>(count));
    }
  }
}

bool EndedWell(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      return false;
    }
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

std::optional<std::string> OutputOf(const std::vector<std::string>& command, int milliseconds) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  const std::vector<char*> argv = ArgumentVector(command);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return std::nullopt;
  }
  const orvo::UniqueFd readEnd(ends[0]);
  orvo::UniqueFd writeEnd(ends[1]);
  const pid_t child = fork();
  if (child == 0) {
    Run(argv.data(), writeEnd.Get());
  }
  writeEnd.Reset();
  if (child < 0) {
    return std::nullopt;
  }
  std::string text;
  if (!ReadUntil(readEnd.Get(), deadline, text)) {
    kill(child, SIGKILL);
  }
  return EndedWell(child) ? std::optional<std::string>(text) : std::nullopt;
}

}  // namespace mirevo
