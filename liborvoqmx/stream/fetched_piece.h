// The result of a request for a segment or a fragment.
#pragma once

#include <string>

namespace LibOrvoQMX {

struct FetchedPiece {
  enum class State {
    kComplete,     // the piece is at `path`
    kNotYet,       // it may still come, but the time is over or a newer request replaced this one
    kWillNotCome,  // it is missing, and no process is left that could make it
    kNotStarted,   // the transcoder for it could not be started
  };
  State state = State::kNotYet;
  std::string path;
};

}  // namespace LibOrvoQMX
