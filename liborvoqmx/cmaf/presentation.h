// The playlists of a CMAF presentation, as functions of values.
#pragma once

#include <string>
#include <vector>

#include "cmaf/renditions.h"
#include "contract/cmaf.h"
#include "platform/export.h"

namespace LibOrvoQMX {

struct CmafSubtitle {
  std::string id;
  std::string language;
};

struct CmafPresentation {
  orvo::CmafPlan plan;
  std::vector<CmafRendition> renditions;
  std::vector<CmafSubtitle> subtitles;
  std::string defaultSubtitle;  // its id; "" for none
  std::string dynamicRange;     // of the film: kCmafPq and so on (contract/cmaf.h)
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

// The DASH manifest.
ORVO_API std::string DashManifest(const CmafPresentation& presentation);

}  // namespace LibOrvoQMX
