#include "util/qmxutils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <sstream>

#include "platform/io.h"
#include "platform/process.h"
#include "platform/run_as.h"
#include "platform/unique_fd.h"

namespace LibOrvoQMX {
namespace {

constexpr size_t kReadFileLimit = 4096;

bool Exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

bool VerifyFileExist(const std::string& path, unsigned timeoutSeconds) {
  IF_RUN_AS(0, 0) {
    unsigned slept = 0;
    while (!Exists(path)) {
      if (timeoutSeconds == 0) {
        return false;
      }
      // The header promises waits of this length.
      sleep(1);
      if (++slept > timeoutSeconds) {
        return false;
      }
    }
    return true;
  }
  return false;
}

std::string ReadFile(const std::string& path) {
  if (path.empty()) {
    return "";
  }
  const orvo::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.IsOpen()) {
    return "";
  }
  std::array<char, kReadFileLimit> buffer{};
  const ssize_t length = read(file.Get(), buffer.data(), buffer.size());
  if (length <= 0) {
    return "";
  }
  return {buffer.data(), strnlen(buffer.data(), static_cast<size_t>(length))};
}

bool SaveFile(const std::string& path, const std::string& content) {
  if (path.empty() || content.empty()) {
    return false;
  }
  const orvo::UniqueFd file(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!file.IsOpen()) {
    return false;
  }
  orvo::WriteAll(file.Get(), content);
  return true;
}

int KillProcess(int pid) {
  return orvo::AskToEnd(pid, SIGTERM);
}

std::vector<std::string> StringExplode(const std::string& text, const std::string& delimiters) {
  std::vector<std::string> pieces;
  size_t start = text.find_first_not_of(delimiters);
  while (start != std::string::npos) {
    const size_t end = text.find_first_of(delimiters, start);
    pieces.push_back(text.substr(start, end - start));
    start = text.find_first_not_of(delimiters, end);
  }
  return pieces;
}

std::string ToString(unsigned value) {
  return std::to_string(value);
}

std::string ToString(float value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

}  // namespace LibOrvoQMX
