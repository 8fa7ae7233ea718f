// The files of one stream. All that outlives a request lies in the stream's directory,
// "/tmp/Mirevo" / kind / id; docs/state-files.md says what each file holds. Only this class spells
// their names.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/export.h"
#include "state/state_file.h"
#include "state/stream_lock.h"

namespace LibOrvoQMX {

class ORVO_API StreamDirectory {
 public:
  // Without a kind or an id every path below is "", and nothing is read or written.
  StreamDirectory(const std::string& kind, std::string streamId);

  // The directory; a file in it.
  const std::string& Path() const { return path_; }
  std::string FilePath(const std::string& name) const;
  bool Exists() const;  // looked at as root

  // The metadata record.
  std::string RecordPath() const;

  // What the client asked for: an audio track, an audio format.
  StateFile AudioId() const;
  StateFile AudioFormat() const;

  // The process that watches the stream's transcoder; for a progressive stream the transcoder.
  StateFile MonitorPid() const;
  std::optional<pid_t> Monitor() const;  // nothing where none was recorded
  bool IsMonitored() const;              // it is recorded and runs
  // Waits for the lock that serialises all changes of the recorded monitor.
  StreamLock LockMonitor() const;

  // Where the running transcoder began: a segment's number, or a second for Smooth Streaming.
  StateFile SeekTime() const;
  // When the latest restart was asked for.
  StateFile RequestSequence() const;
  // Was the recorded monitor recorded after the latest restart was asked for?
  bool IsMonitorOfLatestRestart() const;
  // The state of the work-around for one client.
  StateFile AppleTvStatus() const;

  // The time of the last access: sets it to now; whole seconds since then, nothing before the
  // first.
  void MarkAccess() const;
  std::optional<unsigned long> SecondsSinceAccess() const;
  time_t LastAccess() const;  // 0 before the first

  // The piece that was asked for last, below 10000000, which limits how far a transcoder runs
  // ahead. Without a transcoder it is a byte of the film. -1 before any was.
  void AskFor(int64_t number) const;
  void AskForByte(int64_t offset) const;
  int64_t LastAskedFor() const;

  // HLS.
  std::string SegmentPath(int number) const;
  std::string SegmentPattern() const;  // with a format for the number
  std::string IndexPath() const;       // the only playlist of a stream without subtitles
  std::string VideoPlaylistPath() const;
  std::string SubtitleTemplatePath() const;
  std::string SubtitlePlaylistPath(const std::string& name) const;
  std::string KeptPlanPath() const;  // the key frames that the playlist was planned from

  // Smooth Streaming.
  std::string ManifestPath() const;
  std::string FragmentsPath() const;                      // the folder of all fragments
  std::string FragmentPath(const std::string& id) const;  // a fragment, or the folder of a rate

 private:
  StateFile File(const char* name) const;

  std::string streamId_;
  std::string path_;
};

}  // namespace LibOrvoQMX
