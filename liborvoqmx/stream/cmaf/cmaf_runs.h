// The runs of a CMAF stream: each rendition in use has a monitor and a transcoder of its own, which
// makes segments from a requested one on.
//
// The folder of a rendition lies in the stream's directory, below the rendition's name, and has the
// same state files as a stream's directory.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cmaf/renditions.h"
#include "platform/export.h"
#include "state/stream_directory.h"
#include "state/stream_lock.h"
#include "stream/pipeline/transcoder_launch.h"

namespace LibOrvoQMX {

inline constexpr char kCmafKind[] = "CMAF";

// The folder of a rendition.
ORVO_API StreamDirectory CmafFolder(const std::string& streamId, const std::string& rendition);

// Makes the plan of a film, and what is known of its pictures, in the stream's directory, unless
// there is one. With `usesAnalysis`, takes the key frames that the background analysis has stored
// if the container does not tell them. Returns false if the film cannot be planned, is not the one
// any more that was opened, or needs an analysis that is gone.
ORVO_API bool MakeCmafPlan(const std::string& streamId, const PassedFilm& film, bool usesAnalysis);

// Ends the runs of all renditions, and removes the stream's directory.
ORVO_API void CloseCmafStream(const std::string& streamId);

// Ends the run of encoded pictures and waits for its end. Returns false if there is none.
bool StopCmafPictures(const std::string& streamId);

// The pids of the monitors of all running renditions.
ORVO_API std::vector<pid_t> CmafMonitors(const std::string& streamId);

class ORVO_API CmafRun {
 public:
  CmafRun(std::string streamId, PassedFilm film, const CmafRendition& rendition);

  std::string HeaderPath() const;
  std::string SegmentPath(int number) const;     // of a complete segment
  std::string UnfinishedPath(int number) const;  // of one that is being written

  // Makes the folder of the rendition. Returns false on failure.
  bool MakeFolder() const;

  // Makes sure that there is a header. A run writes it first; without one, or if the run of a copy
  // does not know it, a short process makes it, without a place in the register. Returns false on
  // failure.
  bool MakeHeader() const;

  // Encoded pictures have one place for each stream. Waits until no request for another segment of
  // encoded pictures uses it. The place is free again when the result is destroyed. Nothing for
  // other renditions.
  std::optional<StreamLock> TakePlace() const;

  // Has the viewer asked for another place of this rendition since? The next segment counts as the
  // same place. Such a request takes the run along.
  bool IsReplaced(int number) const;

  // Makes sure that a run will make the segment soon, unless the request for it is replaced. Of the
  // stream's encoded pictures, only one rendition runs at a time. `place` is what TakePlace()
  // returned. Returns false if no run can be started.
  bool Reach(int number, std::optional<StreamLock>& place) const;

  // The same without ending a run: waits for no run, and starts one only if the rendition, and of
  // encoded pictures the stream, has none. Returns false otherwise, and if the place is taken. The
  // run goes on for a while though nobody asks for its segments.
  bool StartWhenFinished(int number) const;

  enum class State {
    kComplete,
    kGrowing,
    kNobodyMakesIt,  // no run is left, or it has gone elsewhere
    kTimeout,
  };
  // Waits up to 60 seconds until the segment has begun to grow.
  State Await(int number) const;
  // The state now.
  State Look(int number) const;

 private:
  // Waits for the header that a run writes. False if there is no such run, or none any more.
  bool ComesFromRun() const;
  bool IsPastHeader() const;
  bool IsOnItsWay(int number) const;
  // A run must not hold these locks of its starter.
  bool Start(int number, StreamLock& lock, std::optional<StreamLock>& place) const;
  void RemoveUnfinished(const StateFile& position) const;
  std::vector<StreamDirectory> Rivals() const;
  bool IsPlaceTaken() const;
  void Watch(int number) const;
  std::vector<std::string> Command(int number, bool isHeaderOnly) const;

  std::string streamId_;
  PassedFilm film_;
  CmafRendition rendition_;
  StreamDirectory folder_;
};

}  // namespace LibOrvoQMX
