// What this machine is, in the files that the library's platform rules read.
//
// The library picks profiles and limits by the platform's name, which an appliance's maker writes
// into "/etc.defaults/orvoinfo.conf". Other machines are detected: by their processor and by the
// video engines that have encoded. A detected entry has "detected" as its third field, and only
// such an entry is ever replaced by detection.
#pragma once

#include <string>

#include "transcoder/engines.h"

namespace serve {

// Proves the video engines anew, in the transcoder's program. Takes seconds for each engine with a
// device. Nothing is known in the result if the program does not run.
orvo::transcoder::EngineRecord ProveEngines();

struct PlatformEntry {
  std::string name;         // the platform; "" if there is no entry
  bool isDetected = false;  // not by the owner or the maker
};
PlatformEntry ReadPlatformEntry();

// Is this a name that the library has rules for?
bool IsPlatformName(const std::string& name);

// "alpine, braswell, ...": all those names.
std::string PlatformNames();

// Writes the owner's entry. Returns false, with errno set, on failure.
bool NamePlatform(const std::string& name);

// The name for a machine with these engines.
std::string DetectedPlatform(const orvo::transcoder::EngineRecord& engines);

// Writes the detected platform, and whether VA-API is used, unless the owner has entries for them
// or the folder of the entry does not exist. Returns false, with errno set, on failure.
bool DetectMachine(const orvo::transcoder::EngineRecord& engines);

}  // namespace serve
