// What a confined wrapper has to change outside: the register and the record of the engines.
//
// A process of its own does it, which is made before the confinement and ends with the wrapper.
#pragma once

#include "platform/process.h"
#include "platform/unique_fd.h"

namespace orvo::gst {

class Attendant {
 public:
  // Without a process; both operations do nothing, and every seat is granted.
  Attendant() = default;

  // Starts the process. It keeps none of this program's descriptors above the standard ones.
  // Without one, with a line in the log, no seat is granted.
  static Attendant Start();

  // Makes this process's entry in the register one of a software transcoder, under the limit of
  // these (transcoder/software_seat.h). False if there is no place.
  bool TakeSoftwareSeat();

  // The engine has failed in the middle of a film: it is not used until it is proved anew.
  void ReportFailure();

 private:
  bool Ask(char question);

  orvo::Process process_;
  orvo::UniqueFd questions_;
  orvo::UniqueFd answers_;
  bool isNeeded_ = false;
};

}  // namespace orvo::gst
