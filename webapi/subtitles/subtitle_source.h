// The subtitles of one film: tracks in the film and files beside it.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "platform/media_file.h"
#include "webapi/http/answer.h"

namespace webapi {

class SubtitleSource {
 public:
  // Finds the subtitle with this `id`: the number of a text track in the container, or the path of
  // a file that is beside the film and named after it. Never opens any other path. `film` is the
  // metadata document of the open film `file`, which outlives the result. If there is no such
  // subtitle, returns null and sets `refusal` to the answer.
  static std::unique_ptr<SubtitleSource> Find(const Json::Value& film, const orvo::MediaFile& file,
                                              const std::string& id, Answer& refusal);
  virtual ~SubtitleSource() = default;

  // Writes the whole track into `webVtt`, without cues if none can be read. `characterSet` is the
  // set of the text, "" if unknown. Returns false and sets `refusal` to the answer if the
  // conversion failed and a later one may succeed, or the file is too large.
  virtual bool Convert(const std::string& characterSet, std::string& webVtt,
                       Answer& refusal) const = 0;
};

}  // namespace webapi
