// Where the time goes from a request to a stream's first bytes.
#pragma once

#include <json/value.h>

#include <chrono>
#include <string>

#include "state/stream_directory.h"
#include "webapi/access/ticket.h"

namespace webapi {

// A clock that gives each step of a request the time since the one before. Steps, in their order:
// "probe" (the film), "admission" (may it be converted?), "prepare" (directory, playlists), "start"
// (the transcoder's processes), "first_key" (FFmpeg opens the film, seeks, and makes its first key
// frame), "first_bytes" (the rest of what the client needs first) and "sent" (to the web server).
class StartTimes {
 public:
  // The time from now on belongs to the next step.
  StartTimes() = default;
  void Mark(const char* step);

  // The same for a piece of a stream that has just been made: the times of files tell how the wait
  // is made up. `directory` has the files of the run that made it.
  void MarkPiece(const LibOrvoQMX::StreamDirectory& directory, const std::string& path);

  // Milliseconds of each step.
  const Json::Value& Steps() const { return steps_; }

  int64_t Milliseconds() const;  // since the last step

 private:
  using Clock = std::chrono::system_clock;  // as the times of files

  void Add(const char* step, Clock::time_point end);

  Clock::time_point last_ = Clock::now();
  Json::Value steps_{Json::objectValue};
};

// Have the stream's first bytes been sent?
bool HasBegun(const Ticket& ticket);

// Was a piece that is ready now, and that `times` has waited for, made for this request? The first
// one of a stream always counts: a fast machine has it early.
bool WasMadeFor(const Ticket& ticket, const StartTimes& times);

// Adds the steps to the stream's ticket. When the stream's first bytes are sent, writes all of them
// into the log, one line for each opened stream.
void RememberStart(const std::string& streamId, const StartTimes& times);

}  // namespace webapi
