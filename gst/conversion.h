// One film's conversion, from the first byte to the last.
#pragma once

#include <string>

#include "gst/arguments.h"
#include "gst/attendant.h"

namespace orvo::gst {

struct Patience {
  int stall = 20'000;     // ms without output while the reader waits for some; see Silence
  unsigned stop = 1'500;  // ms from a signal to the process's end
};

struct Result {
  bool hasSucceeded = false;  // the output is complete or was ended by a signal; this is reported
  std::string error;          // why not
  bool lacksSeat = false;     // because no more transcoders in software may run
};

// Runs the main loop until the output has ended. SIGINT and SIGTERM end it early. An encoder or
// decoder that fails before anything was written is replaced by the next one. What is still at work
// afterwards ends with the process: leave by _exit(2). `attendant` keeps the register and the
// record of the engines true.
Result Convert(const Request& request, const Patience& patience, Attendant& attendant);

}  // namespace orvo::gst
