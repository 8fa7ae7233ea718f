#include "cmaf/addresses.h"

#include "playlist/address_text.h"

namespace LibOrvoQMX {
namespace {

std::string Address(const CmafPresentation& presentation, const char* file,
                    const std::string& parameters) {
  return presentation.path + file + "?" + parameters;
}

}  // namespace

std::string SegmentAddress(const CmafPresentation& presentation, const std::string& rendition) {
  return Address(presentation, "/segment.m4s", presentation.parameters) +
         "&rendition=" + rendition + "&segment=";
}

std::string HeaderAddress(const CmafPresentation& presentation, const std::string& rendition) {
  return Address(presentation, "/init.mp4", presentation.parameters) + "&rendition=" + rendition +
         "&segment=init";
}

std::string MediaPlaylistAddress(const CmafPresentation& presentation,
                                 const std::string& rendition) {
  return Address(presentation, "/media.m3u8", presentation.parameters) + "&rendition=" + rendition;
}

std::string ChapterListAddress(const CmafPresentation& presentation) {
  return Address(presentation, "/chapters.json", presentation.parameters) +
         "&playlist_type=chapters";
}

std::string SubtitlePlaylistAddress(const CmafPresentation& presentation, const std::string& id) {
  return Address(presentation, "/subtitle.m3u8", presentation.parameters) +
         "&playlist_type=subtitle&subtitle_id=" + PercentEncode(id);
}

std::string SubtitleAddress(const CmafPresentation& presentation, const std::string& id) {
  return Address(presentation, "/subtitle.vtt", presentation.subtitleParameters) +
         "&subtitle_id=" + PercentEncode(id);
}

}  // namespace LibOrvoQMX
