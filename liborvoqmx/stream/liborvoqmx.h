// What all kinds of streams share.
//
// A stream is opened once (QMX_Init, which hands out its id) and rebuilt from that id by every
// request, each in a process of its own. All that outlives a request lies in the stream's
// directory, "/tmp/Mirevo" / kind / id: a directory for the kind "HTTP", a link to one on a data
// volume for the others.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "metadata/qmxmetadata.h"
#include "platform/export.h"

namespace LibOrvoQMX {

class StreamDirectory;

// Makes the directory of a stream on a volume with `space` bytes free. False, with the platform
// error set (0x2900 no volume is writable, 0x8300 there is none, 0xDD00 none has room), when it
// cannot.
ORVO_API bool GetTmpDir(uint64_t space, const std::string& kind, const std::string& streamId,
                        std::string& dir);

class ORVO_API QMXStream {
 public:
  // Rebuilds a stream: loads its record and derives the flags below from its profile.
  QMXStream(const std::string& streamId, const std::string& streamKind);

  // A stream that has not been opened: without an id and a directory, it can say what it would run
  // and do nothing.
  QMXStream(const QMXMetaData& plan, const std::string& streamKind);

  // Opens a stream: its id, "" on failure, or "TransSapceNotEnough". A failure after the directory
  // was made leaves it. A film whose path is not UTF-8 is a failure: the record could not name it.
  static std::string QMX_Init(const QMXInitArgument& argument);

  // 32 hexadecimal digits that depend on the path alone, "_", 8 random letters and digits.
  static std::string GetRandStreamID(const std::string& path);

  // Makes the stream's directory with the room its kind needs (`space` bytes or a default).
  static bool CreateTmpDir(const std::string& streamId, const std::string& streamKind,
                           const std::string& profilePath, const std::string& profileKey,
                           uint64_t space);
  static bool GetVolTmpAndSymlink(uint64_t space, const std::string& streamId,
                                  const std::string& streamKind);

  // Does this profile copy the video?
  static bool IsRemux(const std::string& profilePath, const std::string& profileKey);

  // The stream's start position in milliseconds; negative when there is none.
  virtual int GetSeekTimeInMillisecond() const = 0;
  // The rotation of the source's video in degrees.
  virtual unsigned GetMetaVideoRotate() const;

  std::string GetStreamID() const;
  std::string GetErrorString() const;       // the word for the client; "" when there is none
  bool SetError(const std::string& error);  // an empty word changes nothing and is false

  // A file of the stream's directory; the directory itself for an empty name.
  std::string GetQMXFileFullPath(const std::string& name) const;
  Json::Value GetFirstVideoInfo() const;
  std::string GetRequestAudioID() const;  // what the client asked for; "" for no wish
  bool IsSourceAudioCodec(const std::string& codec) const;

  // May this file be transcoded, and now? Sets the error word where it may not, and keeps the wish
  // for an audio track. `force`: an offline conversion has to give way.
  bool InitStreamCommon(const std::string& audioId, bool force);
  bool CheckTransLoading(bool force);

  // Stops the stream's monitor and removes its directory. False without an id or a kind.
  bool CloseStreamCommon();
  bool RemoveTransDir();

  // Complete the command line around `arguments`, register the transcoder and replace the process
  // image with it. They return only on failure, with false.
  bool ExecuteTranscoding(bool copyTimestamps, const std::vector<std::string>& arguments,
                          const std::string& output, const std::string& executable);
  bool ExecuteGstreamerTranscoding(const std::string& output,
                                   const std::vector<std::string>& arguments,
                                   const std::string& executable, bool shiftTimestamps);

  // The command lines that these run. That of FFmpeg is empty for an HLS stream whose film lacks
  // sound or picture.
  std::vector<std::string> TranscodingCommand(bool copyTimestamps,
                                              const std::vector<std::string>& arguments,
                                              const std::string& output,
                                              const std::string& executable) const;
  std::vector<std::string> GstreamerCommand(const std::string& output,
                                            const std::vector<std::string>& arguments,
                                            const std::string& executable,
                                            bool shiftTimestamps) const;

  // The companion program that the stream's profile is written for.
  std::string GetTranscoder() const;

  // Adjust a list of transcoder arguments: the first video bit rate, the audio encoder ("copy",
  // "mp3", "aac"), the picture size.
  void ForceTranscodeBitrate(std::vector<std::string>& arguments) const;
  static std::vector<std::string> ForceFFmpegAudioFormat(const std::vector<std::string>& arguments,
                                                         const std::string& format);
  std::vector<std::string> ForceFFmpegVideoSize(const std::vector<std::string>& arguments,
                                                bool keepAspect) const;

  // Makes `pid` the stream's monitor and ends the one before it; a pid of 0 or less only does the
  // latter, and its number stays recorded. `wait`: until it is gone, about 5 seconds at most. False
  // when the lock file cannot be opened.
  bool SaveMonitorPid(int pid, bool wait) const;
  bool IsFFmpegRun() const;  // the recorded monitor is alive

 protected:
  StreamDirectory Directory() const;
  // Keeps the wish for an audio track. True also for no wish (""); a failure is logged as of the
  // source file `source`.
  bool SaveAudioId(const std::string& audioId, const char* source) const;

  std::string m_streamId;
  std::string m_streamKind;
  std::string m_errorString;
  std::string m_profileValue;
  bool m_isRemux = false;        // the profile copies the video
  bool m_isHwTranscode = false;  // the encoder is the hardware's
  QMXMetaData m_metaData;
  bool m_isGstreamer = false;  // the profile is one of the GStreamer wrapper
  bool m_isVaapi = false;      // the profile uses the VA-API encoder

 private:
  void ReadProfile();  // from the record

  // Has a launch all that it needs? Enters this process in the register, unless the video is
  // copied.
  bool MayLaunch(const std::string& executable) const;
};

}  // namespace LibOrvoQMX
