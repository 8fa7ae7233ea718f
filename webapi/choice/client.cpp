#include "webapi/choice/client.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "util/qmxutils.h"

namespace webapi {
namespace {

// Names of codecs up to their first dot.
struct CodecRow {
  std::string_view name;
  std::string_view codec;  // FFmpeg's name
};
constexpr auto kCodecs = std::to_array<CodecRow>({
    {"avc1", "h264"}, {"avc3", "h264"}, {"hvc1", "hevc"}, {"hev1", "hevc"}, {"dvh1", "hevc"},
    {"dvhe", "hevc"}, {"vp8", "vp8"},   {"vp08", "vp8"},  {"vp9", "vp9"},   {"vp09", "vp9"},
    {"av01", "av1"},  {"mp4a", "aac"},  {"mp3", "mp3"},   {"ac-3", "ac3"},  {"ec-3", "eac3"},
    {"opus", "opus"}, {"Opus", "opus"}, {"fLaC", "flac"}, {"flac", "flac"}, {"vorbis", "vorbis"},
});

// Parts of full names that stand for ten bits.
struct TenBitRow {
  std::string_view codec;
  std::string_view part;
};
constexpr auto kTenBits = std::to_array<TenBitRow>({
    {"hevc", "hvc1.2"},
    {"hevc", "hev1.2"},
    {"hevc", "dvh1"},
    {"hevc", "dvhe"},
    {"vp9", "vp09.02"},
});
constexpr std::string_view kAv1TenBits = ".10";

bool IsNameOf(const std::string& name, const std::string& codec) {
  const std::string_view base = std::string_view(name).substr(0, name.find('.'));
  return std::any_of(kCodecs.begin(), kCodecs.end(),
                     [&](const CodecRow& row) { return row.name == base && row.codec == codec; });
}

bool IsTenBitNameOf(const std::string& name, const std::string& codec) {
  if (codec == "av1") {
    return IsNameOf(name, codec) && name.find(kAv1TenBits) != std::string::npos;
  }
  return std::any_of(kTenBits.begin(), kTenBits.end(), [&](const TenBitRow& row) {
    return row.codec == codec && name.rfind(row.part, 0) == 0;
  });
}

}  // namespace

Client ClientOf(const Request& request) {
  return {request.Header("USER_AGENT"), request.Text("device"),
          LibOrvoQMX::StringExplode(request.Text("codecs"), ", "),
          request.Text("dynamic_range") == "hdr"};
}

bool NamesCodec(const Client& client, const std::string& codec) {
  return std::any_of(client.codecs.begin(), client.codecs.end(),
                     [&](const std::string& name) { return IsNameOf(name, codec); });
}

bool NamesTenBits(const Client& client, const std::string& codec) {
  return (client.showsHighRange && NamesCodec(client, codec)) ||
         std::any_of(client.codecs.begin(), client.codecs.end(),
                     [&](const std::string& name) { return IsTenBitNameOf(name, codec); });
}

}  // namespace webapi
