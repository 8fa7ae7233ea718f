// The subtitles of an HLS stream: which there are, and their playlists. Members of the stream, and
// logging under its name.
#define ORVO_LOG_SOURCE "http_live_stream.cpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <map>
#include <string_view>

#include "platform/log.h"
#include "stream/http_live_stream.h"
#include "util/subtitle.h"

namespace LibOrvoQMX {
namespace {

// Stands in the template playlist for the id of the track that a copy of it is for.
constexpr std::string_view kPlaceholder = "__ORVO_SUBTITLE_ID_PLACEHOLDER__";
constexpr char kTemplateName[] = "subtitle.m3u8.tpl";
constexpr std::string_view kShooter = "shooter-";

// Options that the subtitle segments' requests repeat.
constexpr std::array kPassedOptions = {"api", "version", "method", "_sid", "OrvoToken"};

// Letters and digits as ASCII has them, whatever the locale.
bool IsLetter(char character) {
  const auto lower = static_cast<unsigned char>(character | 0x20);
  return lower >= 'a' && lower <= 'z';
}

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

bool IsLanguageCode(const std::string& language) {
  return language.size() == 3 && std::all_of(language.begin(), language.end(), IsLetter);
}

bool IsShooter(const std::string& language) {
  return language.size() == kShooter.size() + 1 && language.rfind(kShooter, 0) == 0 &&
         IsDigit(language.back());
}

std::string ValidateLanguage(const Json::Value& description, const std::string& fallback) {
  if (!description.isObject() || !description["language"].isString()) {
    return fallback;
  }
  const std::string language = description["language"].asString();
  return IsLanguageCode(language) || IsShooter(language) ? language : fallback;
}

std::string PercentEncode(const std::string& text) {
  std::string encoded;
  for (const char character : text) {
    if (IsLetter(character) || IsDigit(character) ||
        std::string_view("-_.~").find(character) != std::string_view::npos) {
      encoded += character;
      continue;
    }
    char hexadecimal[4];
    snprintf(hexadecimal, sizeof(hexadecimal), "%%%02X", static_cast<unsigned char>(character));
    encoded += hexadecimal;
  }
  return encoded;
}

bool Has(const Json::Value& options, const char* name) {
  return options.isObject() && options.isMember(name);
}

// An option as it goes into an address; "" for what has no text.
std::string TextOf(const Json::Value& options, const char* name) {
  if (!Has(options, name) || !options[name].isConvertibleTo(Json::stringValue)) {
    return "";
  }
  return options[name].asString();
}

// `language`, made unlike the earlier ones by their count.
std::string UniqueName(const std::string& language, std::map<std::string, int>& counts) {
  const int count = ++counts[language];
  return count == 1 ? language : language + "-" + std::to_string(count);
}

}  // namespace

std::string HttpLiveStream::GetSubtitleURL(const Json::Value& options) const {
  if (!Has(options, "url") || !Has(options, "subtitle_id") || !Has(options, "uid")) {
    return "";
  }
  const std::string quote = IsWebapi5(options) ? "%22" : "";
  std::string url = TextOf(options, "url");
  if (Has(options, "id")) {
    url += "?id=" + TextOf(options, "id");
  }
  url += "&subtitle_id=" + quote + std::string(kPlaceholder) + quote;
  url += "&uid=" + TextOf(options, "uid");
  const std::string codepage = TextOf(options, "subtitle_codepage");
  if (!codepage.empty()) {
    url += "&subtitle_codepage=" + codepage;
  }
  for (const char* name : kPassedOptions) {
    if (Has(options, name)) {
      url += std::string("&") + name + "=" + TextOf(options, name);
    }
  }
  return url;
}

bool HttpLiveStream::GenIndexPlaylist(const Json::Value& request,
                                      const Json::Value& options) const {
  const std::string url = GetStreamURL(request);
  if (url.empty() || m_streamId.empty()) {
    return false;
  }
  std::ofstream index(GetQMXFileFullPath(m_streamId + ".m3u8"));
  if (!index.is_open()) {
    return false;
  }
  const std::string quote = IsWebapi5(request) ? "%22" : "";
  const SubtitleList subtitles = GetSubtitleMap(TextOf(options, "subtitle_id"));
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
  return true;
}

std::string HttpLiveStream::GetSubtitleManifestPath(const std::string& subtitleId) const {
  const std::string name = subtitleId.substr(subtitleId.rfind('/') + 1);
  if (name.empty()) {
    return "";
  }
  const std::string templatePath = GetQMXFileFullPath(kTemplateName);
  std::ifstream source(templatePath);
  if (!source.is_open()) {
    ORVO_LOG("failed to open file %s", templatePath.c_str());
    return "";
  }
  const std::string path = GetQMXFileFullPath(name + ".subtitle.m3u8");
  // Another request may be sending the same playlist just now.
  const std::string temporary = GetQMXFileFullPath(".subtitle." + std::to_string(getpid()));
  std::ofstream playlist(temporary);
  const std::string id = PercentEncode(subtitleId);
  for (std::string line; std::getline(source, line);) {
    const auto position = line.find(kPlaceholder);
    if (position != std::string::npos) {
      line.replace(position, kPlaceholder.size(), id);
    }
    playlist << line << "\n";
  }
  playlist.close();
  if (!playlist || rename(temporary.c_str(), path.c_str()) != 0) {
    unlink(temporary.c_str());
    ORVO_LOG("failed to open output file %s", path.c_str());
    return "";
  }
  return path;
}

std::string HttpLiveStream::GetMainfest(const std::string& type, const std::string& subtitleId) {
  if (m_streamId.empty()) {
    return "";
  }
  if (type == "subtitle") {
    return GetSubtitleManifestPath(subtitleId);
  }
  return GetQMXFileFullPath(type == "video" ? "video.m3u8" : m_streamId + ".m3u8");
}

HttpLiveStream::SubtitleList HttpLiveStream::GetSubtitleMap(const std::string& subtitleId) const {
  if (subtitleId.empty()) {
    return {};
  }
  if (subtitleId != "all") {
    return {{subtitleId, "Undefined"}};
  }
  SubtitleList all = GetExternalSubtitle();
  const SubtitleList internal = GetInternalSubtitle();
  all.insert(all.end(), internal.begin(), internal.end());
  return all;
}

HttpLiveStream::SubtitleList HttpLiveStream::GetExternalSubtitle() const {
  Json::Value files(Json::arrayValue);
  libmrv::subtitle::GetExternalSubtitle(m_metaData.GetFilePath(), files);
  SubtitleList list;
  for (const Json::Value& file : files) {
    const std::string path = file.asString();
    list.emplace_back(path, ValidateLanguage(libmrv::subtitle::PathInfo(path), "External"));
  }
  return list;
}

HttpLiveStream::SubtitleList HttpLiveStream::GetInternalSubtitle() const {
  Json::Value tracks;
  if (!libmrv::subtitle::IsAllowEmbaddedSubtitleContiner(m_metaData.GetContainer()) ||
      !m_metaData.GetSubtitleTrackInfo(tracks)) {
    return {};
  }
  SubtitleList list;
  for (const Json::Value& track : tracks) {
    if (libmrv::subtitle::IsTextBaseSubtitleCodec(TextOf(track, "codec"))) {
      list.emplace_back(TextOf(track, "track"), ValidateLanguage(track, "Internal"));
    }
  }
  return list;
}

}  // namespace LibOrvoQMX
