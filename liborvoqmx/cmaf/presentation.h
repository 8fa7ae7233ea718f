// The playlists of a CMAF presentation, as functions of values.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "cmaf/renditions.h"
#include "contract/cmaf.h"
#include "platform/export.h"

namespace LibOrvoQMX {

struct CmafSubtitle {
  std::string id;
  std::string language;
  std::string title{};    // for viewers; "" for none
  bool isForced = false;  // translates what viewers of the film's own language would not understand
};

struct CmafChapter {
  int64_t start = 0;  // ticks of the plan
  int64_t end = 0;
  std::string title;
};

struct CmafPresentation {
  orvo::CmafPlan plan;
  std::vector<CmafRendition> renditions;
  std::vector<CmafSubtitle> subtitles;
  std::string defaultSubtitle;  // its id; "" for none
  std::vector<CmafChapter> chapters;
  std::string dynamicRange;  // of the film: kCmafPq and so on (contract/cmaf.h)
  // The path and the parameters that all addresses have: "/webapi/entry.cgi" and
  // "api=...&stream_id=...".
  std::string path;
  std::string parameters;
  std::string subtitleParameters;  // those of whole subtitles

  // Null if there is none with this name.
  ORVO_API const CmafRendition* Find(const std::string& name) const;
};

// The HLS playlist that names all renditions.
ORVO_API std::string MultivariantPlaylist(const CmafPresentation& presentation);

// The HLS playlist of one rendition, and of one subtitle track.
ORVO_API std::string MediaPlaylist(const CmafPresentation& presentation,
                                   const CmafRendition& rendition);
ORVO_API std::string SubtitlePlaylist(const CmafPresentation& presentation, const std::string& id);

// The chapters as players of HLS read them: a JSON array.
ORVO_API std::string ChapterList(const CmafPresentation& presentation);

// The chapters of a metadata document within the plan's span, in the order of their start.
ORVO_API std::vector<CmafChapter> ChaptersOf(const Json::Value& document,
                                             const orvo::CmafPlan& plan);

// What the document says of subtitle tracks is added to those in the film itself.
ORVO_API void DescribeSubtitles(const VideoMetaData& film, std::vector<CmafSubtitle>& subtitles);

// The DASH manifest.
ORVO_API std::string DashManifest(const CmafPresentation& presentation);

}  // namespace LibOrvoQMX
