// The segment files of a rendition.
#pragma once

#include <string>

#include "platform/unique_fd.h"

namespace orvo::transcoder {

// Writes one segment after the other. A segment grows under another name and is renamed when it is
// complete. A complete one stays as it is.
class CmafFiles {
 public:
  explicit CmafFiles(std::string folder);
  // Removes an unfinished segment.
  ~CmafFiles();
  CmafFiles(const CmafFiles&) = delete;
  CmafFiles& operator=(const CmafFiles&) = delete;

  bool Begin(int number);
  bool Write(const std::string& bytes);
  bool End();

  // Writes the header unless there is one.
  bool WriteHeader(const std::string& bytes) const;

 private:
  std::string folder_;
  std::string name_;  // of the segment that is being written; "" for none
  UniqueFd file_;
};

}  // namespace orvo::transcoder
