// This function logs under the source file of the stream class.
#define ORVO_LOG_SOURCE "smooth_stream.cpp"

#include "stream/smooth/smooth_arguments.h"

#include "contract/fragments.h"
#include "platform/log.h"
#include "stream/smooth/smooth_manifest.h"
#include "util/lists.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {

ArgumentList SmoothArguments(const QMXMetaData& record, bool hardware, int seekSeconds) {
  const std::string profile = record.GetProfileValue();
  if (profile.empty() || record.GetVideoRatio() <= 0) {
    return {};
  }
  ArgumentList arguments = StringExplode(profile, " \n");
  for (size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i - 1] != "-s") {
      continue;
    }
    SmoothPicture picture;
    if (!FindPicture(record, arguments[i], picture)) {
      ORVO_LOG("Failed to calculate transcoding resolution");
      return {};
    }
    arguments[i] = picture.size;
  }
  Append(arguments, {"-fragment_length", std::to_string(orvo::kFragmentSeconds), "-seek_time",
                     std::to_string(seekSeconds)});
  if (hardware) {
    Append(arguments, {"-filled", "1"});
  }
  return arguments;
}

}  // namespace LibOrvoQMX
