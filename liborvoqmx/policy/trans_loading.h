// The appliance's register of running transcoders.
//
// "/tmp/Mirevo/enabled" holds a JSON array of {"PID", "hardware_transcode", "offline_conversion"}.
// A TransLoading object holds the exclusive lock on that file from construction to destruction,
// which makes the check, the start and the entry one step. Keep such an object only for these
// calls.
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

  // Loads the file and keeps the entries of running processes. Returns false if the file cannot be
  // read or is not JSON. An empty file is valid. Gives up the lock if the file cannot be read.
  bool ReadAndCheckAlive();

  // May one more transcode of this kind start now? If the platform supports the kind, the answer is
  // always yes while nothing runs.
  bool TransEnable(bool hardware);

  // Is there room under this kind's limit?
  bool SoftwareTransEnable() const;
  bool HardwareTransEnable() const;
  bool CheckTransEnable(bool hardware) const;

  // Is an offline conversion running?
  bool IsOffineConverting() const;

  // Adds or removes a transcoder's entry. Returns false without the lock. The destructor writes the
  // file.
  bool SaveTransPID(int pid, bool hardware, bool offline);
  bool RemoveTransPIDLock(int pid);

  // The entries as they stand in memory, and the limits.
  const Json::Value& GetEntries() const;
  unsigned GetLimit(bool hardware) const;

 private:
  bool HasLock() const;  // logs if it does not

  Json::Value m_entries{Json::arrayValue};
  unsigned m_softwareLimit;
  unsigned m_hardwareLimit;
};

// What this machine can do: `hardware` transcoding, and a `remux` at playback speed. `transcode` is
// false on every machine.
ORVO_API void GetMachineTranscodeAndRemux(bool& transcode, bool& remux, bool& hardware);

// Does such a file need FFmpeg in software instead of the hardware GStreamer pipeline?
ORVO_API bool ForceFFmpegTranscoding(const std::string& container, const std::string& codec,
                                     const std::string& profile);

}  // namespace LibMirevo
