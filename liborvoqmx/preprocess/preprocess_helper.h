// The plan of a film's fragments where they can begin at key frames only.
#pragma once

#include <string>
#include <vector>

#include "platform/export.h"
#include "playlist/hls_helper.h"
#include "preprocess/preprocess_result.h"

namespace LibOrvoQMX::preprocess {

// Every process that plans the same film with the same length gets the same plan, so fragment
// numbers agree between requests.
class ORVO_API PreprocessHelper {
 public:
  // No plan.
  PreprocessHelper() = default;
  // Plans the film `videoPath` in fragments of about `segmentLength` seconds, from the stored
  // result that belongs to the film as it is now. No plan where there is none or it does not fit
  // the film.
  PreprocessHelper(const std::string& videoPath, int segmentLength);

  // The same from a copy of the result, as SaveResult() made it.
  static PreprocessHelper FromResult(const std::string& resultPath, int segmentLength);

  // Stores a copy of the result that the plan was made from. False when it cannot be written.
  bool SaveResult(const std::string& resultPath) const;

  bool IsAvailable() const;  // there is a plan

  // Writes the plan as a whole playlist; false, and nothing written, without a plan.
  bool WriteManifest(HLSHelper& manifest) const;

  // The start of fragment `n` in whole milliseconds, rounded down; -1 beyond the plan.
  int GetSeekTime(unsigned n) const;

  // Does the stored end of the film lie within a minute of the last key frame?
  bool IsLastKeyframeTimestampReasonable() const;

  // The steps of planning: all fragments; the next one; setting the current one (answers its length
  // in whole seconds, rounded up).
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
