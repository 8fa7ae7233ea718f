// How far a run may get ahead of its viewer.
//
// Whoever serves the segments writes the number of each requested one into the file "requested"
// beside them. Nobody has asked for more than `kLead` segments beyond the newest of these numbers,
// so a run pauses there instead of filling the disk. Without that file nobody says what is wanted,
// and a run does not pause.
#pragma once

#include <string>

#include "platform/unique_fd.h"

namespace orvo::transcoder {

inline constexpr int kLead = 12;

class Demand {
 public:
  // `folder` is where the segments go; `firstNumber` counts as requested.
  Demand(const std::string& folder, int firstNumber);

  // Becomes readable when something in the folder has changed; then Refresh() is due. Below 0 when
  // changes cannot be seen: then nothing is held back.
  int Descriptor() const { return changes_.Get(); }
  void Refresh();

  bool Wants(int number) const;

 private:
  void Look();

  std::string path_;
  int firstNumber_;
  UniqueFd changes_;
  bool limited_ = false;
  int last_ = 0;
};

}  // namespace orvo::transcoder
