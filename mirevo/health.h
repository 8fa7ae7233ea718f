// Checks what this machine lacks to serve films.
#pragma once

#include <string>
#include <vector>

namespace mirevo {

enum class State { kGood, kWarning, kMissing };

struct Finding {
  std::string check;   // a name for programs, stable across releases: "ffmpeg", "volume /srv"
  State state;         // kMissing: nothing plays until this is fixed
  std::string detail;  // what the check found
  std::string remedy;  // how to fix it; "" for kGood
};

// Makes all checks. Changes nothing.
std::vector<Finding> ExamineMachine();

// "ok", "warning", "missing".
const char* NameOf(State state);

}  // namespace mirevo
