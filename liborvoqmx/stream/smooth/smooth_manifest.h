// The manifest of a Smooth Streaming stream, predicted from tables.
#pragma once

#include <ostream>
#include <string>

#include "metadata/qmxmetadata.h"

namespace LibOrvoQMX {

// The picture's size for a requested height ("240" to "1080") and the film's shape, as texts.
struct SmoothPicture {
  std::string width;
  std::string height;
  std::string size;  // "640x480"
};
// False for any other height, which is logged, and for a film without a shape.
bool FindPicture(const QMXMetaData& record, const std::string& requestedHeight,
                 SmoothPicture& picture);

// What is known ahead of a rendition. Rates are in bit/s, the codec's private data is hexadecimal.
struct SmoothRendition {
  SmoothPicture picture;
  std::string videoBitrate;
  std::string audioBitrate;
  std::string samplingRate;
  std::string codecPrivateData;
};
// False, with a log line, for a profile that the tables lack; what was found by then is filled in.
bool FindRendition(const QMXMetaData& record, bool hardware, SmoothRendition& rendition);

// The manifest of a film of `seconds` seconds: what it begins with, and the rest. `url`: the
// address of the fragments.
void WriteManifestHead(std::ostream& manifest, float seconds);
void WriteManifestBody(std::ostream& manifest, int seconds, const std::string& url,
                       const SmoothRendition& rendition);

}  // namespace LibOrvoQMX
