#include "webapi/streams/cmaf_opening.h"

#include <string>

#include "cmaf/renditions.h"
#include "preprocess/stored_result.h"
#include "webapi/choice/machine_speed.h"

namespace webapi {
namespace {

using LibOrvoQMX::CmafRendition;
using LibOrvoQMX::VideoMetaData;

constexpr char kEncoder[] = "libx264 superfast";  // of the ladder (transcoder/cmaf_command.cpp)

Conversion ConversionOf(const VideoMetaData& film, const CmafRendition& row) {
  Conversion conversion = ConversionFrom(film);
  conversion.encoder = kEncoder;
  conversion.outWidth = row.width;
  conversion.outHeight = row.height;
  return conversion;
}

}  // namespace

unsigned SustainedHeight(const VideoMetaData& film) {
  const MachineSpeed machine = MachineSpeed::Load();
  unsigned height = 0;
  for (const CmafRendition& row : ListCmafRenditions(film, {})) {
    const double speed = row.IsEncodedPicture() ? machine.Of(ConversionOf(film, row)) : 0;
    if (speed > 0) {
      height = row.height;
    }
    if (speed >= 1) {
      break;
    }
  }
  return height;
}

void FixCmafChoices(const VideoMetaData& film, const std::optional<Ticket>& joined,
                    Json::Value& parameters) {
  if (joined) {
    parameters[kLadderParameter] = joined->Parameter(kLadderParameter);
    parameters[kAnalysisParameter] = joined->Parameter(kAnalysisParameter);
    return;
  }
  const unsigned height = SustainedHeight(film);
  parameters[kLadderParameter] = height > 0 ? std::to_string(height) : "";
  const bool isAnalyzed = LibOrvoQMX::preprocess::HasCurrentResult(film.GetFilePath());
  parameters[kAnalysisParameter] = isAnalyzed ? "yes" : "";
}

}  // namespace webapi
