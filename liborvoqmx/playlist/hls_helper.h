// One HLS media playlist, written in one pass: the header, the fragments in order, the end.
#pragma once

#include <fstream>
#include <string>

#include "platform/export.h"

namespace LibOrvoQMX {

enum ManifestType {
  MANIFEST_TYPE_VIDEO = 0,
  MANIFEST_TYPE_SUBTITLE = 1,
};

// A planned piece of a film. Times are seconds on the film's time line.
struct HLSFragment {
  double duration;
  double startTime;
  double endTime;
  int fragmentId;  // from 0
};

class ORVO_API HLSHelper : public std::ofstream {
 public:
  // Empties or makes the file `path`; ask is_open() whether that worked. Every fragment's address
  // begins with `url`, which further parameters can be appended to.
  HLSHelper(const std::string& path, ManifestType type, const std::string& url);
  ~HLSHelper() override;

  // What stands around fragment numbers; nothing until set.
  void SetFragmentIdQuote(const std::string& quote);

  void WriteHeader(int targetDuration);  // whole seconds
  void WriteFragmentInfo(const HLSFragment& fragment);
  void WriteEnder();

 private:
  ManifestType m_type;
  std::string m_url;
  std::string m_fragmentIdQuote;
};

}  // namespace LibOrvoQMX
