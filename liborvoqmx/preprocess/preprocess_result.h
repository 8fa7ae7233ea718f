// The key frame times of a film, stored beside it by an earlier analysis.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"

struct AVFrame;
struct AVRational;

namespace LibOrvoQMX::preprocess {

namespace proto {
class PreprocessResult;
}

class ORVO_API PreprocessUtil {
 public:
  // The path of the result of the film `videoPath`; "" for an empty path and for a path that can
  // have no result.
  static std::string GetPreprocessResultPath(const std::string& videoPath);
};

// One result. The file is the serialized message and nothing else.
class ORVO_API PreprocessResultWrapper {
 public:
  PreprocessResultWrapper();
  PreprocessResultWrapper(const PreprocessResultWrapper& other);
  PreprocessResultWrapper(PreprocessResultWrapper&& other) noexcept;
  PreprocessResultWrapper& operator=(const PreprocessResultWrapper& other);
  PreprocessResultWrapper& operator=(PreprocessResultWrapper&& other) noexcept;
  ~PreprocessResultWrapper();

  // Appends a key frame that is presented at `seconds`.
  void PushPtsTime(double seconds);
  // The same for a decoded frame. The caller makes sure that it is a key frame.
  void ProcessFrame(const AVFrame& frame, const AVRational& timeBase);

  // The end of the video in seconds; 0 if it was never set. The name is the message's field.
  void set_end_time(double seconds);
  double end_time() const;

  // Replaces the file's content.
  bool WriteToFile(const std::string& path) const;
  // Returns false, with unspecified content, if the file is missing or damaged.
  bool ReadFromFile(const std::string& path);

  // The key frame times in seconds, in stored order, relative to the first one.
  std::vector<double> GetAllKeyframePtsTime() const;

 private:
  std::unique_ptr<proto::PreprocessResult> m_message;  // null only in a moved-from object
};

}  // namespace LibOrvoQMX::preprocess
