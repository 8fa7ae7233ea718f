// Segments as files.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "platform/unique_fd.h"
#include "transcoder/segment_cutter.h"

namespace orvo::transcoder {

class SegmentFiles : public SegmentSink {
 public:
  // Makes no file for a segment after `last`.
  explicit SegmentFiles(std::string pattern, int64_t last = std::numeric_limits<int64_t>::max());

  // The next file appears when the one before is complete. An old file of that name is left to
  // whoever is reading it.
  void Begin(int number) override;
  void Append(const Packet& packet) override;

  void Finish();   // the current segment is complete
  void Discard();  // the current segment will never be complete: its file goes

  // Is the last segment complete?
  bool IsFull() const { return full_; }

  // Nothing is written any more once something could not be.
  bool HasFailed() const { return failed_; }

  std::string Path(int number) const;

 private:
  void Flush();
  void Fail(const char* what);

  std::string pattern_;
  int64_t last_;
  std::string path_;  // of the current segment; empty when there is none
  UniqueFd file_;
  std::string buffer_;
  bool full_ = false;
  bool failed_ = false;
};

}  // namespace orvo::transcoder
