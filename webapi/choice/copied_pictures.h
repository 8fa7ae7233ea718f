// Can CMAF presentations of a film contain its own pictures? Its plan tells, and the plan is made
// when the film is opened; so what the last one told is kept with the other facts about films.
#pragma once

#include <string>

#include "contract/cmaf.h"
#include "metadata/video_metadata.h"
#include "platform/media_file.h"
#include "webapi/http/request.h"

namespace webapi {

// Keeps what the plan of this film has told, unless it is kept already.
void KeepCmafKnowledge(const orvo::MediaFile& file, const orvo::CmafKnowledge& known);

// Why the client of this request does not get the film's own pictures, as one sentence; "" if it
// does, if there are none, and if nothing is known against it yet.
std::string WhyPicturesAreNotCopied(const Request& request, const orvo::MediaFile& file,
                                    const LibOrvoQMX::VideoMetaData& film);

}  // namespace webapi
