// What became of a request for a segment or a fragment.
#pragma once

#include <string>

namespace LibOrvoQMX {

struct FetchedPiece {
  enum class State {
    kComplete,     // it lies at `path`
    kNotYet,       // it may come, but the request has waited long enough or another took its turn
    kWillNotCome,  // it is not there, and nothing is left that could make it
    kNotStarted,   // the transcoder for it could not be started
  };
  State state = State::kNotYet;
  std::string path;
};

}  // namespace LibOrvoQMX
