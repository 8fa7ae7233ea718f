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
  // A stream that has not been opened.
  explicit HttpStream(const QMXMetaData& plan);
  ~HttpStream() override;

  // Waits up to 60 seconds for room for one more transcoder ("TransEnable" after that) and keeps
  // the wish for an audio track. A failure leaves no stream directory.
  bool Init(const std::string& audioId) override;

  // Starts the transcoder in a detached process that writes into the pipe which Read drains.
  // Returns at once. Where that process cannot become the transcoder it may return here too, with
  // false: a caller whose pid is not what it was must leave without a trace.
  bool Transcoding(const std::string& executable, int startSeconds) override;

  // The bytes read; -1 at the stream's end, on an error, and when nothing came for 30 seconds.
  int Read(char* buffer, int length) override;

  bool Close() override;

  int GetSeekTimeInMillisecond() const override;
  unsigned GetMetaVideoRotate() const override;  // 0: the transcoder turns the picture

  // `size` for a requested size: "hd480" and "hd720" take the film's shape, the width going up to
  // the next multiple of 10; any other text stays. False for an empty request and an unknown shape.
  bool QMX_HTTP_SCALE_RESOLUTION(const std::string& requested, std::string& size);

  // The rate that the profile key promises, in bit/s; -1 when it names none. "vb" and "ab" are in
  // kbit/s, and the audio's counts twice, to be on the safe side.
  int GetTransBitRate();

  // The size in bytes that the whole stream will have at that rate; 0 when unknown.
  int64_t QMX_HTTP_PredictTransFileSize();

  // The second of the film at which that byte would stand; -1 when unknown.
  int ConvertByteRangeToTimeRange(int64_t offset);

  // The transcoder's arguments from the profile; empty when the file or the profile has none.
  std::vector<std::string> CalculateFFmpegArgument() const;
  std::vector<std::string> CalculateGstreamerArgument() const;

  // The whole command line of a transcoder that writes into `descriptor`; empty where there are no
  // arguments.
  std::vector<std::string> CommandLine(const std::string& executable, int descriptor) const;

 private:
  bool IsAdmitted();  // waits for room
  bool FailInit();    // leaves no directory; false
  void RemoveDirectory() const;
  std::vector<std::string> CalculateArgument() const;
  std::string OutputOf(int descriptor) const;
  void ExecuteTranscoder(const orvo::UniqueFd& writeEnd, const std::string& executable);

  bool m_isWmv2 = false;
  orvo::UniqueFd m_readEnd;
  int m_startSeconds = 0;
};

}  // namespace LibOrvoQMX
