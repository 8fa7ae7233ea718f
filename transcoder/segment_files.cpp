#include "transcoder/segment_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/io.h"
#include "platform/log.h"

namespace orvo::transcoder {
namespace {

constexpr mode_t kMode = 0666;
constexpr size_t kBuffer = 262144;

std::string Padded(int number, int width) {
  std::array<char, 64> text;
  snprintf(text.data(), text.size(), "%0*d", width, number);
  return text.data();
}

}  // namespace

SegmentFiles::SegmentFiles(std::string pattern, int64_t last)
    : pattern_(std::move(pattern)), last_(last) {}

std::string SegmentFiles::Path(int number) const {
  const size_t percent = pattern_.rfind('%');
  const size_t letter = pattern_.find('d', percent);
  if (percent == std::string::npos || letter == std::string::npos) {
    return pattern_;
  }
  int width = 0;
  std::from_chars(pattern_.data() + percent + 1, pattern_.data() + letter, width);
  return pattern_.substr(0, percent) + Padded(number, width < 20 ? width : 20) +
         pattern_.substr(letter + 1);
}

void SegmentFiles::Begin(int number) {
  Finish();
  full_ = number > last_;
  if (failed_ || full_) {
    return;
  }
  path_ = Path(number);
  unlink(path_.c_str());
  file_.Reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kMode));
  if (!file_.IsOpen()) {
    Fail("create");
  }
}

void SegmentFiles::Append(const Packet& packet) {
  buffer_.append(reinterpret_cast<const char*>(packet.data()), packet.size());
  if (buffer_.size() >= kBuffer) {
    Flush();
  }
}

void SegmentFiles::Flush() {
  if (file_.IsOpen() && !WriteAll(file_.Get(), buffer_)) {
    Fail("write");
  }
  buffer_.clear();
}

void SegmentFiles::Finish() {
  Flush();
  file_.Reset();
  path_.clear();
}

void SegmentFiles::Discard() {
  buffer_.clear();
  file_.Reset();
  if (!path_.empty()) {
    unlink(path_.c_str());
    path_.clear();
  }
}

void SegmentFiles::Fail(const char* what) {
  ORVO_LOG("cannot %s %s: %s", what, path_.c_str(), strerror(errno));
  failed_ = true;
  Discard();
}

}  // namespace orvo::transcoder
