// The appliance's register of running transcoders.
//
// "/tmp/Mirevo/enabled" holds a JSON array of {"PID", "hardware_transcode", "offline_conversion"}.
// An object of TransLoading holds the exclusive lock on that file from construction to destruction,
// so that asking, starting and recording are one step; it must live only around these calls.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"
#include "policy/lock.h"

namespace LibMirevo {

class ORVO_API TransLoading : public Lock {
 public:
  // Waits for the lock and reads the entries whose processes still run.
  TransLoading();
  // Writes the entries back and releases the lock.
  ~TransLoading() override;

  // Loads the file and keeps the live entries. False when it cannot be read or is no JSON; a
  // missing content (an empty file) is no failure.
  bool ReadAndCheckAlive();

  // May one more transcode of this kind start now? Always where nothing runs, if the platform has
  // the kind at all.
  bool TransEnable(bool hardware);

  // Is there room under this kind's limit?
  bool SoftwareTransEnable() const;
  bool HardwareTransEnable() const;
  bool CheckTransEnable(bool hardware) const;

  // Is an offline conversion running?
  bool IsOffineConverting() const;

  // Records a transcoder; forgets one. False without the lock. The file changes on destruction.
  bool SaveTransPID(int pid, bool hardware, bool offline);
  bool RemoveTransPIDLock(int pid);

  // The entries as they stand in memory, and the limits.
  const Json::Value& GetEntries() const;
  unsigned GetLimit(bool hardware) const;

 private:
  bool HasLock() const;  // logs when there is none

  Json::Value m_entries{Json::arrayValue};
  unsigned m_softwareLimit;
  unsigned m_hardwareLimit;
};

// What this machine can do: `hardware` transcoding, a `remux` at playing speed; `transcode` is
// false on every machine.
ORVO_API void GetMachineTranscodeAndRemux(bool& transcode, bool& remux, bool& hardware);

// Must the software FFmpeg path be used instead of the hardware GStreamer pipeline for such a file?
ORVO_API bool ForceFFmpegTranscoding(const std::string& container, const std::string& codec,
                                     const std::string& profile);

}  // namespace LibMirevo
