// Segments as files.
#pragma once

#include <string>

#include "platform/unique_fd.h"
#include "transcoder/segment_cutter.h"

namespace orvo::transcoder {

class SegmentFiles : public SegmentSink {
 public:
  explicit SegmentFiles(std::string pattern);

  // The next file appears when the one before is complete. An old file of that name is left to
  // whoever is reading it.
  void Begin(int number) override;
  void Append(const Packet& packet) override;

  void Finish();   // the current segment is complete
  void Discard();  // the current segment will never be complete: its file goes

  // Nothing is written any more once something could not be.
  bool HasFailed() const { return failed_; }

  std::string Path(int number) const;

 private:
  void Flush();
  void Fail(const char* what);

  std::string pattern_;
  std::string path_;  // of the current segment; empty when there is none
  UniqueFd file_;
  std::string buffer_;
  bool failed_ = false;
};

}  // namespace orvo::transcoder
