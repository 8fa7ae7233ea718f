// What this machine lacks to serve films.
#pragma once

#include <string>
#include <vector>

namespace mirevo {

enum class State { kGood, kWarning, kMissing };

struct Finding {
  std::string check;   // a name that stays, for programs: "ffmpeg", "volume /srv"
  State state;         // without what is missing, nothing plays
  std::string detail;  // what was found
  std::string remedy;  // what to do; "" for kGood
};

// Looks at everything. Changes nothing.
std::vector<Finding> ExamineMachine();

// "ok", "warning", "missing".
const char* NameOf(State state);

}  // namespace mirevo
