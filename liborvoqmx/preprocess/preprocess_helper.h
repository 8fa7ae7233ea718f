// The plan of fragments for a film that can be cut only at its key frames.
#pragma once

#include <string>
#include <vector>

#include "platform/export.h"
#include "playlist/hls_helper.h"
#include "preprocess/preprocess_result.h"

namespace LibOrvoQMX::preprocess {

// All processes that plan a film with the same length get the same plan, so fragment numbers agree
// between requests.
class ORVO_API PreprocessHelper {
 public:
  // No plan.
  PreprocessHelper() = default;
  // Plans the film `videoPath` in fragments of about `segmentLength` seconds. Uses the stored
  // result of the film's current state. Makes no plan if there is no such result or it does not fit
  // the film.
  PreprocessHelper(const std::string& videoPath, int segmentLength);

  // The same, from a copy that SaveResult() made.
  static PreprocessHelper FromResult(const std::string& resultPath, int segmentLength);

  // Writes a copy of the result that the plan was made from. Returns false if it cannot be written.
  bool SaveResult(const std::string& resultPath) const;

  bool IsAvailable() const;  // there is a plan

  // Writes the plan as a whole playlist. Without a plan it writes nothing and returns false.
  bool WriteManifest(HLSHelper& manifest) const;

  // The start of fragment `n` in whole milliseconds, rounded down; -1 if the plan has no such
  // fragment.
  int GetSeekTime(unsigned n) const;

  // Is the stored end of the film at most one minute away from the last key frame?
  bool IsLastKeyframeTimestampReasonable() const;

  // The steps of planning: find all fragments; find the next one; set the current one and return
  // its length in whole seconds, rounded up.
  void FetchAllFragment();
  void FetchNextFragment();
  int UpdateCurrentFragment(double start, double end, int id);

 private:
  void Plan();

  std::vector<HLSFragment> m_fragments;
  PreprocessResultWrapper m_result;
  bool m_isAvailable = false;
  std::vector<double> m_keyframeTimes;  // seconds from the first one, ascending
  HLSFragment m_current{0, 0, 0, -1};
  int m_segmentLength = -1;  // seconds
  bool m_isDone = false;     // the current fragment is the last one
  int m_targetDuration = 0;  // seconds
};

}  // namespace LibOrvoQMX::preprocess
