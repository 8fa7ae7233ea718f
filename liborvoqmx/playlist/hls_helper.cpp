#include "playlist/hls_helper.h"

#include <cstdio>
#include <locale>

#include "util/saturate.h"

namespace LibOrvoQMX {

HLSHelper::HLSHelper(const std::string& path, ManifestType type, const std::string& url)
    : std::ofstream(path, std::ios::out | std::ios::trunc), m_type(type), m_url(url) {
  // The format's numbers do not depend on the program's locale.
  imbue(std::locale::classic());
}

HLSHelper::~HLSHelper() = default;

void HLSHelper::SetFragmentIdQuote(const std::string& quote) {
  m_fragmentIdQuote = quote;
}

void HLSHelper::WriteHeader(int targetDuration) {
  *this << "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:" << targetDuration
        << "\n#EXT-X-MEDIA-SEQUENCE:0\n";
  if (m_type == MANIFEST_TYPE_SUBTITLE) {
    *this << "#EXT-X-PLAYLIST-TYPE:VOD\n#EXT-X-ALLOW-CACHE:YES\n";
  }
}

void HLSHelper::WriteFragmentInfo(const HLSFragment& fragment) {
  setf(std::ios::fixed, std::ios::floatfield);
  precision(3);
  *this << "#EXTINF:" << fragment.duration << ",\n" << m_url;
  if (m_type == MANIFEST_TYPE_SUBTITLE) {
    *this << "&preview=false&output_webvtt=true&webvtt_start_time="
          << SaturateToInt(fragment.startTime)
          << "&webvtt_end_time=" << SaturateToInt(fragment.endTime) << "\n";
    return;
  }
  char number[16];
  snprintf(number, sizeof(number), "%05d", fragment.fragmentId);
  *this << "&fragment_id=" << m_fragmentIdQuote << number << m_fragmentIdQuote << "\n";
}

void HLSHelper::WriteEnder() {
  *this << "#EXT-X-ENDLIST\n";
}

}  // namespace LibOrvoQMX
