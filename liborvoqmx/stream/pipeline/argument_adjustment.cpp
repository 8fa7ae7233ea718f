// These functions log under the source file of the stream base class.
#define ORVO_LOG_SOURCE "liborvoqmx.cpp"

#include "stream/pipeline/argument_adjustment.h"

#include <cstdlib>

#include "platform/log.h"
#include "policy/argument_helper.h"
#include "util/lists.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

unsigned ParseBitrate(const std::string& text) {
  const auto rate = static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 10));
  return !text.empty() && text.back() == 'k' ? rate * 1000 : rate;
}

std::string EncoderOf(const std::string& format) {
  if (format == "mp3") {
    return ArgumentHelper::GetMP3Encoder();
  }
  if (format == "aac") {
    return ArgumentHelper::GetAACEncoder();
  }
  return format == "copy" ? format : "";
}

// A bit rate, a sample rate and a channel count make no sense for copied audio.
bool DescribesEncoding(const std::string& option) {
  return option == "-ab" || option == "-ar" || option == "-ac";
}

// A requested size becomes one or three arguments.
ArgumentList FitSize(const std::string& requested, const QMXMetaData& record,
                     const PictureSizeRules& rules) {
  unsigned width = 0;
  unsigned height = 0;
  ArgumentHelper(record).GetTransVideoSize(requested, rules.exact, rules.rotation, width, height);
  if (width == 0 || height == 0) {
    ORVO_LOG("Failed to GetTransVideoSize");
    return {requested};
  }
  const std::string size = ToString(width) + "x" + ToString(height);
  const float ratio = static_cast<float>(width) / static_cast<float>(height);
  if (rules.exact && ratio > 0 && record.GetVideoSampleAspectRatioNum() <= 0) {
    return {size, "-aspect", ToString(ratio)};
  }
  return {size};
}

}  // namespace

ArgumentList WithVideoBitrate(ArgumentList arguments, const QMXMetaData& record) {
  for (size_t i = 0; i + 1 < arguments.size(); ++i) {
    if (arguments[i] == "-vb" || arguments[i] == "--vb") {
      std::string& rate = arguments[i + 1];
      rate = ToString(ArgumentHelper(record).GetTransVideoBitrate(ParseBitrate(rate)));
      break;
    }
  }
  return arguments;
}

ArgumentList WithAudioFormat(const ArgumentList& arguments, const std::string& format) {
  ArgumentList adjusted;
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "-acodec") {
      Append(adjusted, {arguments[i], EncoderOf(format)});
      ++i;
    } else if (format == "copy" && DescribesEncoding(arguments[i])) {
      ++i;
    } else {
      adjusted.push_back(arguments[i]);
    }
  }
  return adjusted;
}

ArgumentList WithPictureSize(const ArgumentList& arguments, const QMXMetaData& record,
                             const PictureSizeRules& rules) {
  ArgumentList adjusted;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const bool isSize = i > 0 && arguments[i - 1] == "-s";
    Append(adjusted, isSize ? FitSize(arguments[i], record, rules) : ArgumentList{arguments[i]});
  }
  return adjusted;
}

}  // namespace LibOrvoQMX
