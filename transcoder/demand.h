// How far a run may get ahead of its viewer.
//
// Whoever serves the segments writes the number of each requested one into the file "requested"
// beside them. A run goes on for a number of segments beyond the newest of these, and pauses there
// instead of filling the disk. Without that file nobody says what is wanted, and a run does not
// pause.
#pragma once

#include <string>

#include "platform/unique_fd.h"

namespace orvo::transcoder {

// Segments.
inline constexpr int kLead = 12;
// The same of copies. Their segments take some milliseconds, so more would only take the machine's
// time from the pictures that the viewer waits for.
inline constexpr int kLeadOfCopy = 3;
// Encoded sound ends with the segment that is asked for: the next one is short work, and its first
// seconds wait in the encoder's pipe.
inline constexpr int kLeadOfSound = -1;

class Demand {
 public:
  // `folder` is where the segments go; `firstNumber` counts as requested. `lead`: segments.
  Demand(const std::string& folder, int firstNumber, int lead = kLead);

  // Becomes readable when something in the folder has changed; then Refresh() is due. Below 0 when
  // changes cannot be seen: then nothing is held back.
  int Descriptor() const { return changes_.Get(); }
  void Refresh();

  bool Wants(int number) const;

 private:
  void Look();

  std::string path_;
  int firstNumber_;
  int lead_;
  UniqueFd changes_;
  bool limited_ = false;
  int last_ = 0;
};

}  // namespace orvo::transcoder
