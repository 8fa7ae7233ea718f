#include "playlist/subtitle_playlist.h"

#include <array>
#include <map>
#include <string_view>

#include "playlist/address_text.h"

namespace LibOrvoQMX {
namespace {

// Marks the place of the track id in the template playlist.
constexpr std::string_view kPlaceholder = "__ORVO_SUBTITLE_ID_PLACEHOLDER__";

// Options that the requests for subtitle segments repeat.
constexpr std::array kPassedOptions = {"api", "version", "method", "_sid", "OrvoToken", "ticket"};

bool Has(const Json::Value& options, const char* name) {
  return options.isObject() && options.isMember(name);
}

// Makes `language` unique: appends a count if the name was used before.
std::string UniqueName(const std::string& language, std::map<std::string, int>& counts) {
  const int count = ++counts[language];
  return count == 1 ? language : language + "-" + std::to_string(count);
}

}  // namespace

std::string SubtitleAddress(const Json::Value& options, const std::string& quote) {
  if (!Has(options, "url") || !Has(options, "subtitle_id") || !Has(options, "uid")) {
    return "";
  }
  std::string url = AddressText(options["url"]);
  if (Has(options, "id")) {
    url += "?id=" + AddressText(options["id"]);
  }
  url += "&subtitle_id=" + quote + std::string(kPlaceholder) + quote;
  url += "&uid=" + AddressText(options["uid"]);
  const std::string codepage = AddressText(options["subtitle_codepage"]);
  if (!codepage.empty()) {
    url += "&subtitle_codepage=" + codepage;
  }
  for (const char* name : kPassedOptions) {
    if (Has(options, name)) {
      url += std::string("&") + name + "=" + AddressText(options[name]);
    }
  }
  return url;
}

void WriteIndexPlaylist(std::ostream& index, const std::string& url, const std::string& quote,
                        const SubtitleList& subtitles) {
  std::map<std::string, int> counts;
  const char* isDefault = "YES";
  index << "#EXTM3U\n\n";
  for (const auto& [id, language] : subtitles) {
    const std::string name = UniqueName(language, counts);
    index << "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subs\",LANGUAGE=\"" << name << "\",NAME=\""
          << name << "\",DEFAULT=" << isDefault << ",FORCED=NO,URI=\"" << url
          << "&subtitle_id=" << quote << PercentEncode(id) << quote
          << "&playlist_type=subtitle\"\n";
    isDefault = "NO";
  }
  index << "\n#EXT-X-STREAM-INF:BANDWIDTH=300000,CODECS=\"mp4a.40.2,avc1.42001e\""
        << (subtitles.empty() ? "" : ",SUBTITLES=\"subs\"") << "\n"
        << url << "&playlist_type=video\n#EXT-X-ENDLIST";
}

void WriteTrackPlaylist(std::ostream& playlist, std::istream& templateFile, const std::string& id) {
  const std::string encoded = PercentEncode(id);
  for (std::string line; std::getline(templateFile, line);) {
    const auto position = line.find(kPlaceholder);
    if (position != std::string::npos) {
      line.replace(position, kPlaceholder.size(), encoded);
    }
    playlist << line << "\n";
  }
}

}  // namespace LibOrvoQMX
