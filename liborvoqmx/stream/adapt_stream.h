// Streams that a manifest names piece by piece.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"
#include "stream/liborvoqmx.h"

namespace LibOrvoQMX {

class ORVO_API AdaptStream : public QMXStream {
 public:
  AdaptStream(const std::string& streamId, const std::string& streamKind);
  AdaptStream(const QMXMetaData& plan, const std::string& streamKind);
  virtual ~AdaptStream();

  virtual bool Init(const Json::Value& request, const Json::Value& options,
                    const std::string& audioId, const std::string& audioFormat) = 0;
  // Sees to it that a transcoder will produce `fragment` soon.
  virtual bool Transcoding(const std::string& fragment) = 0;
  // Waits for the complete fragment: its path, or "".
  virtual std::string ReadFragment(const std::string& fragment) = 0;
  // Stops the stream's processes and removes its directory.
  virtual bool Close();

  // Admission with the request's "force_open_qmx" (a JSON boolean). False also without a "url".
  bool InitAdaptStream(const Json::Value& request, const std::string& audioId);

  // Is this request one of the newer web API, whose parameters are JSON texts?
  static bool IsWebapi5(const Json::Value& request);

  // The address under which a manifest names its fragments, up to and without the fragment's own
  // parameters; "" when the request lacks what it needs. Values go in as they are.
  std::string GetStreamURL(const Json::Value& request) const;

  // Before a restart elsewhere: stops the monitor and deletes the fragments. True when that
  // succeeded.
  bool SeekingHandler() const;

  // Has no request touched "access_status" for `seconds`? False without that file.
  bool QMXIsTimeout(unsigned long seconds) const;

  // Has the stream lost its client? Then that is logged, as of the source file `source`, and the
  // stream's directory is gone.
  bool RemoveWhenAbandoned(const char* source);
};

}  // namespace LibOrvoQMX
