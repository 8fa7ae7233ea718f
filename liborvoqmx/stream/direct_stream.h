// Streams that one response carries from beginning to end.
#pragma once

#include <string>

#include "platform/export.h"
#include "stream/liborvoqmx.h"

namespace LibOrvoQMX {

class ORVO_API DirectStream : public QMXStream {
 public:
  DirectStream(const std::string& streamId, const std::string& streamKind);
  DirectStream(const QMXMetaData& plan, const std::string& streamKind);
  virtual ~DirectStream();

  // Prepares the stream for an audio track ("" for the first).
  virtual bool Init(const std::string& audioId) = 0;
  // Starts the transcoder `executable` at a position of the film.
  virtual bool Transcoding(const std::string& executable, int startSeconds) = 0;
  // Reads at most `length` bytes of the stream. Returns their number.
  virtual int Read(char* buffer, int length) = 0;
  // Stops the stream's processes and removes its directory.
  virtual bool Close();
};

}  // namespace LibOrvoQMX
