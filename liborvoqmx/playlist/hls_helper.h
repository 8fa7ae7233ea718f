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
  // Creates or empties the file `path`; is_open() tells whether that succeeded. The address of each
  // fragment begins with `url`, to which parameters can be appended.
  HLSHelper(const std::string& path, ManifestType type, const std::string& url);
  ~HLSHelper() override;

  // Sets the text before and after fragment numbers, which is empty by default.
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
