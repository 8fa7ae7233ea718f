// One rendition of a film as one live WebM byte stream.
//
// Unlike a progressive stream's, its transcoder is watched by a monitor, which a signal stops: the
// transcoder gets SIGINT, is reaped and leaves the register. A seek is a new transcoder with
// another start time.
#pragma once

#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/unique_fd.h"
#include "stream/direct_stream.h"

namespace LibOrvoQMX {

class ORVO_API WebMStream : public DirectStream {
 public:
  explicit WebMStream(const std::string& streamId);
  // A stream that has not been opened.
  explicit WebMStream(const QMXMetaData& plan);
  ~WebMStream() override;

  // The common admission.
  bool Init(const std::string& audioId) override;

  // Ends the stream's monitor and starts one with a transcoder that writes into the pipe which Read
  // drains. Which program that is does not depend on `executable`, which only must not be empty.
  // False also for a start beyond the film's end.
  bool Transcoding(const std::string& executable, int startSeconds) override;

  // The bytes read, after waiting for some; 0 at the stream's end and before Transcoding, -1 on an
  // error.
  int Read(char* buffer, int length) override;

  int GetSeekTimeInMillisecond() const override;

  // The transcoder's arguments; empty for a start beyond the end, and when the file has no picture.
  std::vector<std::string> CalculateFFmpegArgument() const;
  // The whole command line of a transcoder that writes into `descriptor`; empty where there are no
  // arguments.
  std::vector<std::string> CommandLine(int descriptor) const;

  // What a monitor does: runs a transcoder that writes into `writeEnd`, which it takes, until it
  // ends or a signal comes.
  void ExecuteMointer(int writeEnd);
  static void MointerSignalHandler(int signal);

  // Stops this process's transcoder: SIGINT, and SIGKILL four seconds later.
  void WaitAllChild() const;

  // Ends the stream's monitor, without waiting.
  bool KillMonitor() const;

 private:
  bool IsBeyondEnd(unsigned seconds) const;
  void RunTranscoder(orvo::UniqueFd writeEnd);

  orvo::UniqueFd m_readEnd;
  unsigned m_startSeconds = 0;
};

}  // namespace LibOrvoQMX
