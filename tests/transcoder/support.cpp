#include "support.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace orvo::transcoder::test {
namespace {

void Redirect(int from, int to) {
  const int source = from >= 0 ? from : open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(source, to);
}

void IgnoreSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGPIPE, SIGINT, SIGTERM}) {
    signal(number, SIG_IGN);
    sigaddset(&set, number);
  }
  sigprocmask(SIG_BLOCK, &set, nullptr);
}

[[noreturn]] void BecomeChild(char* const* argv, const StartOptions& options) {
  Redirect(options.standardInput, STDIN_FILENO);
  Redirect(options.standardOutput, STDOUT_FILENO);
  Redirect(options.standardError, STDERR_FILENO);
  for (const int fd : options.pass) {
    fcntl(fd, F_SETFD, 0);
  }
  if (options.signalsIgnored) {
    IgnoreSignals();
  }
  for (int fd = 0; options.withoutDescriptors && fd <= STDERR_FILENO; ++fd) {
    close(fd);
  }
  execv(argv[0], argv);
  _exit(125);
}

}  // namespace

TempDir::TempDir() {
  path_ = (std::filesystem::temp_directory_path() / "transcoder-test-XXXXXX").string();
  if (mkdtemp(path_.data()) == nullptr) {
    abort();
  }
}

TempDir::~TempDir() {
  std::filesystem::remove_all(path_);
}

std::string MediaPath(const std::string& name) {
  return std::string(TRANSCODER_TEST_MEDIA) + "/" + name;
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

Pipe::Pipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    abort();
  }
  readEnd.Reset(ends[0]);
  writeEnd.Reset(ends[1]);
}

std::string Drain(int fd) {
  std::string content;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = read(fd, buffer.data(), buffer.size());
    if (count > 0) {
      content.append(buffer.data(), static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return content;
    }
  }
}

Child::Child(const std::vector<std::string>& command, const StartOptions& options) {
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (const std::string& argument : command) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    BecomeChild(argv.data(), options);
  }
}

Child::~Child() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    Wait();
  }
}

int Child::Wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string PipeName(const UniqueFd& fd) {
  return "pipe:" + std::to_string(fd.Get());
}

Result RunTranscoder(const std::vector<std::string>& arguments) {
  Pipe output, text, error;
  std::vector<std::string> command = {TRANSCODER_PROGRAM};
  for (const std::string& argument : arguments) {
    command.push_back(argument == "OUTPUT" ? PipeName(output.writeEnd) : argument);
  }
  StartOptions options;
  options.standardOutput = text.writeEnd.Get();
  options.standardError = error.writeEnd.Get();
  options.pass = {output.writeEnd.Get()};
  Child child(command, options);
  for (Pipe* pipe : {&output, &text, &error}) {
    pipe->writeEnd.Reset();
  }
  Result result;
  std::thread readsText([&] { result.text = Drain(text.readEnd.Get()); });
  std::thread readsError([&] { result.error = Drain(error.readEnd.Get()); });
  result.output = Drain(output.readEnd.Get());
  readsText.join();
  readsError.join();
  result.status = child.Wait();
  return result;
}

}  // namespace orvo::transcoder::test
