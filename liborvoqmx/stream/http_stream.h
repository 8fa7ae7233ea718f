// One rendition of a film as one progressive byte stream.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/unique_fd.h"
#include "stream/direct_stream.h"

namespace LibOrvoQMX {

class ORVO_API HttpStream : public DirectStream {
 public:
  explicit HttpStream(const std::string& streamId);
  // Makes a stream that is not open, for planning only.
  explicit HttpStream(const QMXMetaData& plan);
  ~HttpStream() override;

  // Waits up to 60 seconds for room for one more transcoder, and fails with "TransEnable" after
  // that. Stores the requested audio track. A failure leaves no stream directory.
  bool Init(const std::string& audioId) override;

  // Starts the transcoder in a detached process. It writes into the pipe that Read drains. Returns
  // at once. If the detached process cannot become the transcoder, it may return here too, with
  // false. A caller whose pid has changed is that process: it must exit at once and clean up
  // nothing.
  bool Transcoding(const std::string& executable, int startSeconds) override;

  // Returns the number of bytes read; -1 at the stream's end, after an error, or if nothing came
  // for 30 seconds.
  int Read(char* buffer, int length) override;

  bool Close() override;

  int GetSeekTimeInMillisecond() const override;
  unsigned GetMetaVideoRotate() const override;  // 0: the transcoder turns the picture

  // Sets `size` for a requested size. "hd480" and "hd720" take the film's shape, with the width
  // rounded up to a multiple of 10; any other text stays. Returns false for an empty request or an
  // unknown shape.
  bool QMX_HTTP_SCALE_RESOLUTION(const std::string& requested, std::string& size);

  // The bit rate that the profile key promises, in bit/s; -1 if the key names none. "vb" and "ab"
  // are in kbit/s. The audio rate counts twice, as a safety margin.
  int GetTransBitRate();

  // The predicted size in bytes of the whole stream at that rate; 0 if unknown.
  int64_t QMX_HTTP_PredictTransFileSize();

  // The second of the film at this byte; -1 if unknown.
  int ConvertByteRangeToTimeRange(int64_t offset);

  // The transcoder's arguments from the profile. Empty if the file has no picture or there is no
  // profile.
  std::vector<std::string> CalculateFFmpegArgument() const;
  std::vector<std::string> CalculateGstreamerArgument() const;

  // The whole command line of a transcoder that writes into `descriptor`. Empty if there are no
  // arguments.
  std::vector<std::string> CommandLine(const std::string& executable, int descriptor) const;

 private:
  bool IsAdmitted();  // waits for room
  bool FailInit();    // removes the directory and returns false
  void RemoveDirectory() const;
  std::vector<std::string> CalculateArgument() const;
  std::string OutputOf(int descriptor) const;
  void ExecuteTranscoder(const orvo::UniqueFd& writeEnd, const std::string& executable);

  bool m_isWmv2 = false;
  orvo::UniqueFd m_readEnd;
  int m_startSeconds = 0;
};

}  // namespace LibOrvoQMX
