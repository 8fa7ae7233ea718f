// The subtitles of one film: tracks in the film and files beside it.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "platform/media_file.h"
#include "webapi/http/answer.h"
#include "webapi/library/subtitle_form.h"

namespace webapi {

class SubtitleSource {
 public:
  // Finds the subtitle with this `id`: the number of a track in the container, or the path of
  // a file that is beside the film and named after it. Never opens any other path. `film` is the
  // metadata document of the open film `file`, which outlives the result. If there is no such
  // subtitle, returns null and sets `refusal` to the answer.
  static std::unique_ptr<SubtitleSource> Find(const Json::Value& film, const orvo::MediaFile& file,
                                              const std::string& id, Answer& refusal);
  virtual ~SubtitleSource() = default;

  virtual SubtitleForm Form() const = 0;

  // Must a process read the whole film for the text?
  virtual bool IsExtracted() const = 0;

  // Reads the text as it is in the file or the film; of pictures, a file of the format SUP. Returns
  // false and sets `refusal` to the answer if that failed and may succeed later, or the text is too
  // large.
  virtual bool Read(std::string& text, Answer& refusal) const = 0;

  // The whole track of such a text as WebVTT, without cues if none can be read. Not for pictures.
  // `characterSet` is the set of the text, "" if unknown.
  virtual std::string Convert(const std::string& text, const std::string& characterSet) const = 0;
};

}  // namespace webapi
