// The probe in a process of its own, which the film cannot leave.
#pragma once

#include <json/value.h>

#include "platform/media_file.h"

namespace LibOrvoQMX {

// As ParseMetaDataFromFFMPEG_Impl, for an open file.
bool ProbeFile(const orvo::MediaFile& file, Json::Value& document, Json::Value& videos,
               Json::Value& audios, Json::Value& subtitles);

// The same in a forked and confined process with the limits of a probe. A process that dies or
// takes too long is a failed probe; the reason is logged.
bool ProbeConfined(const orvo::MediaFile& file, Json::Value& document, Json::Value& videos,
                   Json::Value& audios, Json::Value& subtitles);

}  // namespace LibOrvoQMX
