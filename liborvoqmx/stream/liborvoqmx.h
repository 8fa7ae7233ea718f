// The base of all kinds of streams.
//
// QMX_Init opens a stream once and returns its id. Each request is a separate process and rebuilds
// the stream from that id. The stream's directory, "/tmp/Mirevo" / kind / id, holds all data that
// outlives a request. It is a plain directory for the kind "HTTP" and a link to one on a data
// volume for the other kinds.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "metadata/qmxmetadata.h"
#include "platform/export.h"

namespace LibOrvoQMX {

class StreamDirectory;
struct PassedFilm;

// Makes the directory of a stream on a volume with `space` bytes free. On failure returns false and
// sets the platform error: 0x2900 if no volume is writable, 0x8300 if there is no volume, 0xDD00 if
// none has enough space.
ORVO_API bool GetTmpDir(uint64_t space, const std::string& kind, const std::string& streamId,
                        std::string& dir);

class ORVO_API QMXStream {
 public:
  // Rebuilds a stream: loads its record and derives the flags below from its profile.
  QMXStream(const std::string& streamId, const std::string& streamKind);

  // Makes a stream that is not open. It has no id and no directory. It can tell the commands that
  // it would run, but cannot run them.
  QMXStream(const QMXMetaData& plan, const std::string& streamKind);

  // Opens a stream. Returns its id, "" on failure, or "TransSapceNotEnough". A directory that was
  // made before the failure stays. A film whose path is not UTF-8 is a failure, because the record
  // cannot hold the path.
  static std::string QMX_Init(const QMXInitArgument& argument);
  // The same for a film that the caller has opened.
  static std::string QMX_Init(const QMXInitArgument& argument, const orvo::MediaFile& film);

  // A new stream id: 32 hexadecimal digits that depend only on the path, "_", 8 random letters and
  // digits.
  static std::string GetRandStreamID(const std::string& path);

  // Makes the stream's directory on a volume with enough space: `space` bytes, or the kind's
  // default.
  static bool CreateTmpDir(const std::string& streamId, const std::string& streamKind,
                           const std::string& profilePath, const std::string& profileKey,
                           uint64_t space);
  static bool GetVolTmpAndSymlink(uint64_t space, const std::string& streamId,
                                  const std::string& streamKind);

  // Does this profile copy the video?
  static bool IsRemux(const std::string& profilePath, const std::string& profileKey);

  // The stream's start position in milliseconds; negative if there is none.
  virtual int GetSeekTimeInMillisecond() const = 0;
  // The rotation of the source's video in degrees.
  virtual unsigned GetMetaVideoRotate() const;

  std::string GetStreamID() const;
  std::string GetErrorString() const;       // the error word for the client; "" if there is none
  bool SetError(const std::string& error);  // for an empty word: changes nothing, returns false

  // The path of a file in the stream's directory; the directory itself for an empty name.
  std::string GetQMXFileFullPath(const std::string& name) const;
  Json::Value GetFirstVideoInfo() const;
  std::string GetRequestAudioID() const;  // the client's choice; "" if it made none
  bool IsSourceAudioCodec(const std::string& codec) const;

  // May this file be transcoded now? Sets the error word if not. Stores the requested audio track.
  // With `force`, asks a running offline conversion to pause.
  bool InitStreamCommon(const std::string& audioId, bool force);
  bool CheckTransLoading(bool force);

  // Stops the stream's monitor and removes its directory. Returns false if the id or the kind is
  // empty.
  bool CloseStreamCommon();
  bool RemoveTransDir();

  // Complete the command line around `arguments`, register the transcoder and replace the process
  // image by it. They return only on failure, with false.
  bool ExecuteTranscoding(bool copyTimestamps, const std::vector<std::string>& arguments,
                          const std::string& output, const std::string& executable);
  bool ExecuteGstreamerTranscoding(const std::string& output,
                                   const std::vector<std::string>& arguments,
                                   const std::string& executable, bool shiftTimestamps);

  // The command lines that these functions run. FFmpeg's is empty for an HLS stream of a film
  // without sound or without a picture.
  std::vector<std::string> TranscodingCommand(bool copyTimestamps,
                                              const std::vector<std::string>& arguments,
                                              const std::string& output,
                                              const std::string& executable) const;
  std::vector<std::string> GstreamerCommand(const std::string& output,
                                            const std::vector<std::string>& arguments,
                                            const std::string& executable,
                                            bool shiftTimestamps) const;

  // The name of the transcoder program that the stream's profile needs.
  std::string GetTranscoder() const;

  // Change a list of transcoder arguments: the first video bit rate, the audio encoder ("copy",
  // "mp3", "aac"), the picture size.
  void ForceTranscodeBitrate(std::vector<std::string>& arguments) const;
  static std::vector<std::string> ForceFFmpegAudioFormat(const std::vector<std::string>& arguments,
                                                         const std::string& format);
  std::vector<std::string> ForceFFmpegVideoSize(const std::vector<std::string>& arguments,
                                                bool keepAspect) const;

  // Ends the stream's monitor and records `pid` as the new one. A pid of 0 or less only ends the
  // monitor; the old number stays recorded. With `wait`, waits at most about 5 seconds until the
  // old monitor has ended. Returns false if the lock file cannot be opened.
  bool SaveMonitorPid(int pid, bool wait) const;
  bool IsFFmpegRun() const;  // the recorded monitor is alive

 protected:
  StreamDirectory Directory() const;
  // Stores the requested audio track. Returns true also for an empty id. Logs a failure for the
  // source file `source`.
  bool SaveAudioId(const std::string& audioId, const char* source) const;

  std::string m_streamId;
  std::string m_streamKind;
  std::string m_errorString;
  std::string m_profileValue;
  bool m_isRemux = false;        // the profile copies the video
  bool m_isHwTranscode = false;  // the hardware encodes
  QMXMetaData m_metaData;
  bool m_isGstreamer = false;  // the profile is for the GStreamer wrapper
  bool m_isVaapi = false;      // the profile uses the VA-API encoder

 private:
  void ReadProfile();  // from the record

  // Can a transcoder be started? Enters this process in the register, unless the video is copied.
  bool MayLaunch(const std::string& executable) const;
  PassedFilm FilmToPass() const;
};

}  // namespace LibOrvoQMX
