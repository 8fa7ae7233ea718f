// The key frame times of a film, as an earlier analysis stored them beside it.
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
  // Where the result of the film `videoPath` is stored; "" for an empty path and for one that can
  // have none.
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
  // The same for a decoded frame, which the caller knows to be a key frame.
  void ProcessFrame(const AVFrame& frame, const AVRational& timeBase);

  // The message's own field: the time at which the video ends, in seconds; 0 when nobody set it.
  void set_end_time(double seconds);
  double end_time() const;

  // Replaces the file's content.
  bool WriteToFile(const std::string& path) const;
  // False, with unspecified content, for a missing or damaged file.
  bool ReadFromFile(const std::string& path);

  // The key frame times in stored order, counted from the first one.
  std::vector<double> GetAllKeyframePtsTime() const;

 private:
  std::unique_ptr<proto::PreprocessResult> m_message;  // never null but in a moved-from object
};

}  // namespace LibOrvoQMX::preprocess
