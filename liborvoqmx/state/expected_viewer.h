// A player that was announced when its stream was opened. It will ask for a piece soon, or never.
#pragma once

#include <chrono>
#include <ctime>
#include <optional>

#include "state/stream_directory.h"

namespace LibOrvoQMX {

class ExpectedViewer {
 public:
  // Starts to wait. Create it before the player can know the stream.
  explicit ExpectedViewer(StreamDirectory directory);

  // For the stream's monitor. Has nobody asked for a piece within ten seconds? In that case the
  // stream's files no longer name a transcoder, and the next request starts one.
  bool HasStayedAway() const;

 private:
  bool HasCome() const;
  bool IsLate() const;

  StreamDirectory directory_;
  std::chrono::steady_clock::time_point announced_;
  std::optional<timespec> lastRequest_;  // before the announcement
};

}  // namespace LibOrvoQMX
