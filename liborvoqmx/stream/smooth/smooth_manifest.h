// The manifest of a Smooth Streaming stream, predicted from tables.
#pragma once

#include <ostream>
#include <string>

#include "metadata/qmxmetadata.h"

namespace LibOrvoQMX {

// The picture's size as texts, for a requested height ("240" to "1080") and the film's shape.
struct SmoothPicture {
  std::string width;
  std::string height;
  std::string size;  // "640x480"
};
// Returns false, with a log line, for any other height. Returns false for a film without a shape.
bool FindPicture(const QMXMetaData& record, const std::string& requestedHeight,
                 SmoothPicture& picture);

// The predicted values of a rendition. Rates are in bit/s; the codec's private data is hexadecimal.
struct SmoothRendition {
  SmoothPicture picture;
  std::string videoBitrate;
  std::string audioBitrate;
  std::string samplingRate;
  std::string codecPrivateData;
};
// Returns false, with a log line, for a profile that the tables lack. The values found before that
// stay filled in.
bool FindRendition(const QMXMetaData& record, bool hardware, SmoothRendition& rendition);

// Write the manifest of a film of `seconds` seconds: its beginning, and the rest. `url` is the
// address of the fragments.
void WriteManifestHead(std::ostream& manifest, float seconds);
void WriteManifestBody(std::ostream& manifest, int seconds, const std::string& url,
                       const SmoothRendition& rendition);

}  // namespace LibOrvoQMX
