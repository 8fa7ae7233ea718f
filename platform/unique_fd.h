// A file descriptor with one owner.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace orvo {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}  // takes `fd`; below 0 means none
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  int Get() const { return fd_; }  // borrowed
  bool IsOpen() const { return fd_ >= 0; }
  int Release() { return std::exchange(fd_, -1); }
  void Reset(int fd = -1) {
    const int old = std::exchange(fd_, fd);
    if (old >= 0) {
      // Descriptors close on the way out of a failed function, whose caller asks for the reason.
      const int reason = errno;
      ::close(old);
      errno = reason;
    }
  }

 private:
  int fd_ = -1;
};

}  // namespace orvo
