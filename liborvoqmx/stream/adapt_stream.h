// Streams that consist of pieces, which a manifest or a playlist lists.
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
  // Makes sure that a transcoder will produce `fragment` soon. Returns false on failure.
  virtual bool Transcoding(const std::string& fragment) = 0;
  // Waits for the complete fragment. Returns its path, or "".
  virtual std::string ReadFragment(const std::string& fragment) = 0;
  // Stops the stream's processes and removes its directory.
  virtual bool Close();

  // Checks admission with the request's "force_open_qmx" (a JSON boolean). Returns false also if
  // the request has no "url".
  bool InitAdaptStream(const Json::Value& request, const std::string& audioId);

  // Does this request use the newer web API, whose parameters are JSON texts?
  static bool IsWebapi5(const Json::Value& request);

  // The address of fragments in a manifest, without the parameters of the single fragment. "" if
  // the request lacks a parameter that it needs. Values are copied unchanged.
  std::string GetStreamURL(const Json::Value& request) const;

  // Prepares a restart at another place: stops the monitor and deletes the fragments. Returns true
  // on success.
  bool SeekingHandler() const;

  // Has no request touched "access_status" for `seconds`? False if the file is missing.
  bool QMXIsTimeout(unsigned long seconds) const;

  // Has the stream lost its client? If so, logs it for the source file `source`, removes the
  // stream's directory and returns true.
  bool RemoveWhenAbandoned(const char* source);
};

}  // namespace LibOrvoQMX
