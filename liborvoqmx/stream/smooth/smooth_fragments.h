// The fragments of a Smooth Streaming stream: when a request may have one, and when the transcoder
// has to start anew for it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "contract/fragments.h"
#include "state/stream_directory.h"

namespace LibOrvoQMX {

// Takes an id apart: `quality` "QualityLevels(RATE)", `type` "video=" or "audio=", `start` in
// digits; the latter two are "" where the id has none. False unless it has exactly two parts.
bool TakeApart(const std::string& id, std::string& start, std::string& type, std::string& quality);

// Where a fragment lies.
struct FragmentPlace {
  FragmentPlace(const StreamDirectory& directory, const orvo::FragmentId& id);
  // A fragment whose id cannot be read lies nowhere, and starts at 0.
  FragmentPlace(const StreamDirectory& directory, const std::string& id);

  // Does the id name a file one directory below the fragments' folder, and nothing else?
  bool IsPlain() const;
  int64_t StartSecond() const;

  std::string id;
  std::string type;    // "video=" or "audio=", "" for none
  std::string folder;  // of the fragments of its bit rate; "" for none
  int64_t start = 0;   // ticks
};

class SmoothFragments {
 public:
  explicit SmoothFragments(StreamDirectory directory);

  std::string PathOf(const FragmentPlace& place) const;
  bool IsThere(const FragmentPlace& place) const;

  // Will the running transcoder not come to this fragment soon? It is not asked whether it runs.
  bool NeedsSeek(const FragmentPlace& place) const;

  // Is the `lookAhead`-th fragment behind its successor there? True also for a start that no
  // fragment has.
  bool IsComplete(const FragmentPlace& place, unsigned lookAhead) const;

  // Does a transcoder run, or is a request about to start one?
  bool IsUnderWay() const;

  enum class Outcome { kComplete, kNobodyMakesIt, kTimeout };
  // Waits, up to 60 seconds, until the fragment is complete. That nobody makes it counts only once
  // it has lasted; the fragment may be there or not then.
  Outcome Await(const FragmentPlace& place) const;

 private:
  StreamDirectory directory_;
};

}  // namespace LibOrvoQMX
