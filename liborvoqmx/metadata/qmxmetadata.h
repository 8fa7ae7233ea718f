// The arguments that open a stream, and the record of its media file that all its requests read.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "metadata/video_metadata.h"
#include "platform/export.h"

namespace LibOrvoQMX {

// The arguments that open a stream.
struct ORVO_API QMXInitArgument {
  QMXInitArgument(const std::string& file, const std::string& kind, const std::string& profileFile,
                  const std::string& key);

  std::string filePath;
  std::string streamKind;   // "HTTP", "WEBM", "HLS" or "SS"
  std::string profilePath;  // a JSON object of profile keys to profile values
  std::string profileKey;
  // The request's own arguments. Read here: "stream_id" (text: join that stream), "hls_header"
  // (boolean) and "sound" (text: "stereo", "night" or "original"; without it the profile decides).
  Json::Value args{Json::objectValue};
  std::string device;
  uint64_t needSpace = 0;  // bytes; 0 lets the library choose
  bool usePreAnalysis = false;
};

// The record "video_metadata" of a stream: the metadata document, with "profile_key",
// "profile_value", "device", "hls_header" and "use_pre_analysis". It is written once, when the
// stream is opened.
class ORVO_API QMXMetaData : public VideoMetaData {
 public:
  QMXMetaData(const std::string& streamId, const std::string& streamKind);

  // Probes the file of `argument`, adds its profile and writes the record into the stream's
  // directory, which must exist. Returns false if an argument is missing or a step fails.
  static bool ParserMetaData(const QMXInitArgument& argument, const std::string& streamId,
                             bool hlsHeader);
  // The same for a film that the caller has opened.
  static bool ParserMetaData(const QMXInitArgument& argument, const orvo::MediaFile& film,
                             const std::string& streamId, bool hlsHeader);

  // Copies one profile from the profile file into `document`. Returns false if the file cannot be
  // read or has no such key.
  static bool ReadTransProfile(const std::string& profilePath, const std::string& profileKey,
                               Json::Value& document);

  // The record that a stream of `film` with this profile would have. No stream need exist.
  static QMXMetaData Plan(const VideoMetaData& film, const std::string& profileKey,
                          const std::string& profileValue, const std::string& device);

  // Reads the record from disk. Returns false if it is missing or damaged.
  bool LoadMetaData();

  std::string GetDevice() const;
  std::string GetProfileKey() const;
  std::string GetProfileValue() const;
  bool IsHLSHeader() const;       // false unless the record says so
  bool IsUsePreAnalysis() const;  // true unless the record says not to

 private:
  std::string m_streamId;
  std::string m_streamKind;
};

}  // namespace LibOrvoQMX
