#include "webapi/streams/growing_segment.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "platform/unique_fd.h"

namespace webapi {
namespace {

constexpr int kLookAgainMilliseconds = 1000;
// The same where the kernel tells no changes: each user has a limited number of inotify instances.
constexpr int kBlindMilliseconds = 100;
constexpr size_t kBoxHead = 8;

class GrowingSegment {
 public:
  explicit GrowingSegment(const std::string& path)
      : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)),
        changes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    inotify_add_watch(changes_.Get(), path.c_str(), IN_MODIFY | IN_MOVE_SELF | IN_CLOSE_WRITE);
  }

  bool IsOpen() const { return file_.IsOpen(); }

  // Is this file the one at `path`?
  bool IsAt(const std::string& path) const {
    struct stat own {};
    struct stat there {};
    return fstat(file_.Get(), &own) == 0 && stat(path.c_str(), &there) == 0 &&
           own.st_ino == there.st_ino && own.st_dev == there.st_dev;
  }

  bool HasPairs() { return EndOfPairs() > sent_; }

  // Sends what has come. Returns false when the client has gone.
  bool SendPairs(const OpenAnswer& answer) { return answer.Send(file_.Get(), sent_, EndOfPairs()); }

  void Wait() const {
    pollfd change{changes_.Get(), POLLIN, 0};
    poll(&change, 1, changes_.IsOpen() ? kLookAgainMilliseconds : kBlindMilliseconds);
    std::array<char, 4096> ignored{};
    while (read(changes_.Get(), ignored.data(), ignored.size()) > 0) {
    }
  }

 private:
  // The end of the last complete pair.
  off_t EndOfPairs() {
    struct stat status {};
    std::array<unsigned char, kBoxHead> head{};
    off_t place = known_;
    while (fstat(file_.Get(), &status) == 0 &&
           pread(file_.Get(), head.data(), head.size(), place) == kBoxHead) {
      const off_t size = static_cast<off_t>(head[0]) << 24 | head[1] << 16 | head[2] << 8 | head[3];
      place += size;
      if (size < static_cast<off_t>(kBoxHead) || place > status.st_size) {
        break;
      }
      if (memcmp(head.data() + 4, "mdat", 4) == 0) {
        known_ = place;
      }
    }
    return known_;
  }

  orvo::UniqueFd file_;
  orvo::UniqueFd changes_;
  off_t known_ = 0;  // the end of the last known pair
  off_t sent_ = 0;
};

}  // namespace

bool SendGrowing(const std::string& unfinished, const std::string& finished,
                 const std::function<bool()>& isAlive, const std::function<OpenAnswer()>& begin) {
  GrowingSegment segment(unfinished);
  if (!segment.IsOpen()) {
    return false;
  }
  std::optional<OpenAnswer> answer;
  for (bool isOver = false; !isOver;) {
    const bool isLost = !isAlive();
    const bool isFinished = segment.IsAt(finished);  // it may have become so since the last line
    isOver = isLost || isFinished;
    if (segment.HasPairs() && !answer) {
      answer = begin();
    }
    if (answer && !segment.SendPairs(*answer)) {
      break;
    }
    if (answer && isFinished) {
      answer->Finish();
    }
    if (!isOver) {
      segment.Wait();
    }
  }
  return answer.has_value();
}

}  // namespace webapi
