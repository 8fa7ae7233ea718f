#include "transcoder/demand.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "contract/stream_files.h"

namespace orvo::transcoder {
namespace {

// The number at the file's start; 0 for anything else.
int ReadNumber(int fd) {
  std::array<char, 32> text;
  const ssize_t count = read(fd, text.data(), text.size());
  int number = 0;
  if (count > 0) {
    std::from_chars(text.data(), text.data() + count, number);
  }
  return number;
}

}  // namespace

Demand::Demand(const std::string& folder, int firstNumber, int lead)
    : path_(folder + "/" + kRequestedFile),
      firstNumber_(firstNumber),
      lead_(lead),
      changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (inotify_add_watch(changes_.Get(), folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
    changes_.Reset();
  }
  Look();
}

void Demand::Refresh() {
  std::array<char, 4096> events;
  while (read(changes_.Get(), events.data(), events.size()) > 0) {
  }
  Look();
}

bool Demand::Wants(int number) const {
  return !limited_ || number <= last_;
}

// An empty file is one that is being written: the next change says what is in it.
void Demand::Look() {
  const UniqueFd file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  limited_ = file.IsOpen() && changes_.IsOpen();
  if (limited_) {
    last_ = std::max({firstNumber_, ReadNumber(file.Get())}) + lead_;
  }
}

}  // namespace orvo::transcoder
