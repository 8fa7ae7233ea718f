// The processes that work on a film: the transcoder, and FFmpeg joining its pieces.
#pragma once

#include <string>
#include <vector>

#include "convert/work_folder.h"
#include "platform/media_file.h"
#include "platform/process.h"

namespace convert {

// A process with all processes below it. They have the lowest priority and end with this object, or
// with this process.
class WorkProcess {
 public:
  WorkProcess() = default;  // none

  // The transcoder with this film, which it gets as an open file.
  static WorkProcess Convert(const std::vector<std::string>& command, const orvo::MediaFile& film,
                             const std::string& demuxer);
  // FFmpeg, confined to the folder and the film, with the pieces in their order as its standard
  // input. It has the film under its own descriptor's number.
  static WorkProcess Join(const std::vector<std::string>& command, const WorkFolder& folder,
                          const orvo::MediaFile& film);

  explicit operator bool() const { return static_cast<bool>(leader_); }
  pid_t Pid() const { return leader_.Pid(); }
  // Becomes readable at the end.
  int Descriptor() const { return leader_.Descriptor().Get(); }
  bool HasEnded() const { return leader_.HasEndedWithin(0); }
  // Its exit status, after the end.
  int Status() { return leader_.Wait(); }

  // Stops all of its processes: they use no processor until they continue.
  void Pause() const;
  void Continue() const;

 private:
  orvo::Process leader_;
  orvo::Process feeder_;  // writes the pieces
};

}  // namespace convert
