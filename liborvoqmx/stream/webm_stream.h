// One rendition of a film as one live WebM byte stream.
//
// A monitor watches the transcoder, unlike in a progressive stream. A signal stops the monitor,
// which sends SIGINT to the transcoder, reaps it and removes it from the register. A seek starts a
// new transcoder with another start time.
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
  // Makes a stream that is not open, for planning only.
  explicit WebMStream(const QMXMetaData& plan);
  ~WebMStream() override;

  // The admission check of all streams.
  bool Init(const std::string& audioId) override;

  // Ends the stream's monitor and starts a new one, whose transcoder writes into the pipe that Read
  // drains. `executable` must not be empty but does not choose the program. Returns false also if
  // the start lies beyond the film's end.
  bool Transcoding(const std::string& executable, int startSeconds) override;

  // Waits for data and returns the number of bytes read; 0 at the stream's end and before
  // Transcoding, -1 on an error.
  int Read(char* buffer, int length) override;

  int GetSeekTimeInMillisecond() const override;

  // The transcoder's arguments. Empty if the start lies beyond the film's end or the file has no
  // picture.
  std::vector<std::string> CalculateFFmpegArgument() const;
  // The whole command line of a transcoder that writes into `descriptor`. Empty if there are no
  // arguments.
  std::vector<std::string> CommandLine(int descriptor) const;

  // The monitor's work: runs a transcoder that writes into `writeEnd` until it ends or a signal
  // arrives. Takes ownership of `writeEnd`.
  void ExecuteMointer(int writeEnd);
  static void MointerSignalHandler(int signal);

  // Stops this process's transcoder with SIGINT, and with SIGKILL four seconds later.
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
