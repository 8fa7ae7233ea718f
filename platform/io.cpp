#include "platform/io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace orvo {
namespace {

bool MoveAboveStandardStreams(UniqueFd& fd) {
  if (fd.Get() <= STDERR_FILENO) {
    fd.Reset(fcntl(fd.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  }
  return fd.IsOpen();
}

bool IsOwnFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// All that is left of a file, or its first `limit` bytes.
std::optional<std::string> ReadUpTo(int fd, size_t limit) {
  std::string content(limit, '\0');
  size_t length = 0;
  while (length < limit) {
    const ssize_t count = read(fd, content.data() + length, limit - length);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return std::nullopt;
    }
    if (count == 0) {
      break;
    }
    length += static_cast<size_t>(count);
  }
  content.resize(length);
  return content;
}

}  // namespace

bool WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = write(fd, content.data(), content.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    content.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

bool ReplaceFile(const std::string& path, std::string_view content, mode_t mode) {
  std::string aside = path + ".XXXXXX";
  UniqueFd file(mkostemp(aside.data(), O_CLOEXEC));
  if (!file.IsOpen()) {
    return false;
  }
  // Network storage may send the content only when the file is closed, and tells then whether it
  // could. The name must not change before.
  if (fchmod(file.Get(), mode) == 0 && WriteAll(file.Get(), content) &&
      close(file.Release()) == 0 && rename(aside.c_str(), path.c_str()) == 0) {
    return true;
  }
  unlink(aside.c_str());
  return false;
}

std::optional<std::string> ReadOwnFile(const std::string& path, size_t maxBytes) {
  const UniqueFd file(
      open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !IsOwnFile(status) ||
      static_cast<uint64_t>(status.st_size) > maxBytes) {
    return std::nullopt;
  }
  return ReadUpTo(file.Get(), static_cast<size_t>(status.st_size));
}

bool TouchFile(const std::string& path) {
  const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
  return file.IsOpen() && futimens(file.Get(), nullptr) == 0;
}

bool ReadAll(std::istream& stream, std::string& content, size_t maxBytes) {
  std::array<char, 16384> buffer{};
  while (stream.read(buffer.data(), buffer.size()) || stream.gcount() > 0) {
    if (static_cast<size_t>(stream.gcount()) > maxBytes) {
      return false;
    }
    maxBytes -= static_cast<size_t>(stream.gcount());
    content.append(buffer.data(), static_cast<size_t>(stream.gcount()));
  }
  return !stream.bad();
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path);
  std::string text;
  return file.is_open() && ReadAll(file, text) ? text : "";
}

bool OpenPipe(UniqueFd& readEnd, UniqueFd& writeEnd) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return false;
  }
  readEnd.Reset(ends[0]);
  writeEnd.Reset(ends[1]);
  return MoveAboveStandardStreams(readEnd) && MoveAboveStandardStreams(writeEnd);
}

void CloseAllBut(std::vector<int> kept) {
  std::sort(kept.begin(), kept.end());
  unsigned first = STDERR_FILENO + 1;
  for (const int fd : kept) {
    const auto number = static_cast<unsigned>(fd);
    if (fd >= static_cast<int>(first)) {
      if (number > first) {
        close_range(first, number - 1, 0);
      }
      first = number + 1;
    }
  }
  close_range(first, UINT_MAX, 0);
}

void DetachStandardStreams() {
  const int null = open("/dev/null", O_RDWR);
  if (null < 0) {
    return;
  }
  for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; ++standard) {
    dup2(null, standard);
  }
  if (null > STDERR_FILENO) {
    close(null);
  }
}

}  // namespace orvo
