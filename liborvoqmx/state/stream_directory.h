// The files of one stream. Its directory, "/tmp/Mirevo" / kind / id, holds all data that outlives a
// request. docs/state-files.md describes each file. Only this class contains the file names.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "platform/export.h"
#include "platform/process.h"
#include "state/state_file.h"
#include "state/stream_lock.h"

namespace LibOrvoQMX {

class ORVO_API StreamDirectory {
 public:
  // If the kind or the id is empty, every path below is "" and nothing is read or written.
  StreamDirectory(const std::string& kind, std::string streamId);

  // The directory; a file in it.
  const std::string& Path() const { return path_; }
  std::string FilePath(const std::string& name) const;
  bool Exists() const;  // checked as root

  // The metadata record.
  std::string RecordPath() const;
  // Which file the film was when the stream was opened (orvo::MediaFile::Identity).
  StateFile Film() const;

  // The audio track and the audio format that the client asked for.
  StateFile AudioId() const;
  StateFile AudioFormat() const;

  // The pid of the process that watches the stream's transcoder; for a progressive stream, of the
  // transcoder.
  StateFile MonitorPid() const;
  // Records a process as the monitor, with its start in a second file: a number alone may belong to
  // another process later. Returns false if the pid cannot be written.
  bool RecordMonitor(pid_t pid) const;
  // The recorded pid; nothing if there is none, if another process has this number now, or if the
  // record cannot be read.
  std::optional<pid_t> Monitor() const;
  // The same as a process, which can be signalled safely. No process if it has ended; nothing if
  // the record cannot be read.
  std::optional<orvo::Process> OpenMonitor() const;
  // Does the recorded monitor run? Also true if the record cannot be read: a monitor may run then,
  // and what it writes is not finished.
  bool IsMonitored() const;
  // Waits for the lock that serialises all changes of the recorded monitor.
  StreamLock LockMonitor() const;

  // Where the running transcoder began: the number of a segment (HLS) or a second of the film
  // (Smooth Streaming).
  StateFile SeekTime() const;
  // The time of the latest restart request.
  StateFile RequestSequence() const;
  // Was the monitor recorded after the latest restart request?
  bool IsMonitorOfLatestRestart() const;
  // The state of the work-around for Apple TV.
  StateFile AppleTvStatus() const;

  // What the player said when it last ran out of film.
  StateFile ClientReport() const;

  // The time of the last access. MarkAccess sets it to now. The next function returns the whole
  // seconds since then, or nothing before the first access.
  void MarkAccess() const;
  std::optional<unsigned long> SecondsSinceAccess() const;
  time_t LastAccess() const;  // 0 before the first

  // The number of the last requested piece, below 10000000. It limits how far a transcoder runs
  // ahead. In a stream without a transcoder it is a byte of the film. -1 before the first request.
  // Requests may run in another order than they came in: AskFor changes nothing if a process that
  // started after this one has called it. The viewer has gone elsewhere then.
  void AskFor(int64_t number) const;
  void AskForByte(int64_t offset) const;
  int64_t LastAskedFor() const;
  std::optional<timespec> LastAsked() const;  // the time of that request; nothing before the first

  // HLS.
  std::string SegmentPath(int number) const;
  std::string SegmentPattern() const;  // with a format for the number
  void RemoveSegments() const;         // those that this process may remove
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
  // What is recorded of the monitor.
  struct MonitorRecord {
    std::optional<pid_t> pid;  // as Monitor()
    bool isReadable = true;
  };
  StateFile File(const char* name) const;
  void WriteRequested(int64_t number) const;
  MonitorRecord ReadMonitor() const;

  std::string streamId_;
  std::string path_;
};

}  // namespace LibOrvoQMX
