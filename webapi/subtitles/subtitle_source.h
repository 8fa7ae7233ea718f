// The subtitles of one film: tracks in it and files beside it.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "webapi/http/answer.h"

namespace webapi {

class SubtitleSource {
 public:
  // Finds the subtitle that `id` names: the number of a text track in the container, or the path of
  // a file that lies beside the film and is named after it. Any other path is never opened. `film`
  // is the metadata document. Null, with the answer in `refusal`, when there is no such subtitle.
  static std::unique_ptr<SubtitleSource> Find(const Json::Value& film, const std::string& id,
                                              Answer& refusal);
  virtual ~SubtitleSource() = default;

  // Puts the whole track into `webVtt`; one without cues where nothing of it can be read. The text
  // is in `characterSet`, "" for any. False, with the answer in `refusal`, when there is none to
  // give and trying again may help, or the file is too large.
  virtual bool Convert(const std::string& characterSet, std::string& webVtt,
                       Answer& refusal) const = 0;
};

}  // namespace webapi
