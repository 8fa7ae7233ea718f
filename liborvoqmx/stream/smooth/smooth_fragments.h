// The fragments of a Smooth Streaming stream: when one is complete, and when the transcoder must
// restart for it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "contract/fragments.h"
#include "state/stream_directory.h"

namespace LibOrvoQMX {

// Splits an id into `quality` ("QualityLevels(RATE)"), `type` ("video=" or "audio=") and `start`
// (the text up to the next parenthesis). `type` and `start` are "" if the id lacks them. Returns
// false unless the id has exactly two parts.
bool TakeApart(const std::string& id, std::string& start, std::string& type, std::string& quality);

// The place of a fragment in the stream's directory.
struct FragmentPlace {
  FragmentPlace(const StreamDirectory& directory, const orvo::FragmentId& id);
  // A fragment whose id cannot be read has no path, and its start is 0.
  FragmentPlace(const StreamDirectory& directory, const std::string& id);

  // Does the id name a file exactly one directory below the fragments' folder?
  bool IsPlain() const;
  int64_t StartSecond() const;

  std::string id;
  std::string type;    // "video=" or "audio=", "" for none
  std::string folder;  // of the fragments with its bit rate; "" for none
  int64_t start = 0;   // ticks
};

class SmoothFragments {
 public:
  explicit SmoothFragments(StreamDirectory directory);

  std::string PathOf(const FragmentPlace& place) const;
  bool IsThere(const FragmentPlace& place) const;

  // Is this fragment out of the transcoder's reach? Does not check whether a transcoder runs.
  bool NeedsSeek(const FragmentPlace& place) const;

  // Does the `lookAhead`-th fragment after the next one exist? True also for a start that no
  // fragment has.
  bool IsComplete(const FragmentPlace& place, unsigned lookAhead) const;

  // Does a transcoder run, or is a request about to start one?
  bool IsUnderWay() const;

  enum class Outcome { kComplete, kNobodyMakesIt, kTimeout };
  // Waits up to 60 seconds until the fragment is complete. Gives up earlier if no process has been
  // making fragments for a while; the fragment may exist or not in that case.
  Outcome Await(const FragmentPlace& place) const;

 private:
  StreamDirectory directory_;
};

}  // namespace LibOrvoQMX
