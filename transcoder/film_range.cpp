#include "transcoder/film_range.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "liborvoqmx/metadata/media_input.h"
#include "transcoder/film_bytes.h"

namespace orvo::transcoder {
namespace {

using namespace std::string_view_literals;

constexpr size_t kLook = 131072;           // bytes; headers are shorter, and tables are repeated
constexpr size_t kDescriptionLook = 4096;  // bytes of a track's sample descriptions
constexpr int kMostBoxes = 4096;

uint64_t Number(std::string_view bytes, size_t at, size_t count) {
  uint64_t number = 0;
  for (size_t i = at; i < at + count; ++i) {
    number = number << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return number;
}

// --- Codecs with more than eight bits ---

constexpr auto kSigns = std::to_array<std::string_view>({
    "av01"sv,
    "V_AV1"sv,
    "vpcC\x01\0\0\0\x02"sv,
    "vpcC\x01\0\0\0\x03"sv,
});

// The profile in the parameters of such a film: H.264 High 10, 4:2:2 and 4:4:4, and HEVC Main 10
// and its range extensions in either tier.
constexpr auto kDeepProfiles = "\x6E\x7A\xF4\x02\x22\x04\x24"sv;

// Parameters begin with a version and the profile.
bool AreDeep(std::string_view bytes, size_t at) {
  return at + 1 < bytes.size() && bytes[at] == 1 &&
         kDeepProfiles.find(bytes[at + 1]) != std::string_view::npos;
}

// True when `isDeep` holds of the place behind one of the marks.
template <typename Predicate>
bool AnyBehind(std::string_view bytes, std::string_view mark, Predicate isDeep) {
  size_t at = bytes.find(mark);
  while (at != std::string_view::npos && !isDeep(at + mark.size())) {
    at = bytes.find(mark, at + 1);
  }
  return at != std::string_view::npos;
}

// In Matroska a length of one or two bytes stands before the parameters.
bool HasDeepParameters(std::string_view bytes) {
  const auto follow = [&](size_t at) { return AreDeep(bytes, at); };
  const auto followLength = [&](size_t at) {
    return at < bytes.size() && AreDeep(bytes, at + ((bytes[at] & 0x80) != 0 ? 1 : 2));
  };
  return AnyBehind(bytes, "avcC"sv, follow) || AnyBehind(bytes, "hvcC"sv, follow) ||
         AnyBehind(bytes, "\x63\xA2"sv, followLength);
}

bool ShowsSign(std::string_view bytes) {
  return HasDeepParameters(bytes) ||
         std::any_of(kSigns.begin(), kSigns.end(), [&](std::string_view sign) {
           return bytes.find(sign) != std::string_view::npos;
         });
}

// The sample descriptions of an MP4 film's tracks, whose place in it is anywhere.
class Descriptions {
 public:
  explicit Descriptions(const FilmBytes& film) : film_(film) { Collect(0, film.Size()); }

  const std::string& Get() const { return found_; }

 private:
  void Collect(off_t from, off_t end) {
    while (from < end && boxes_++ < kMostBoxes) {
      const std::string header = film_.At(from, 16);
      const off_t size = header.size() < 16 ? 0 : SizeOf(header, end - from);
      if (size < 8) {
        return;
      }
      Enter(header.substr(4, 4), from + 8, from + size);
      from += size;
    }
  }

  // At most `rest`. 0 for a box that is damaged.
  static off_t SizeOf(const std::string& header, off_t rest) {
    const uint64_t brief = Number(header, 0, 4);
    const uint64_t size = brief == 1 ? Number(header, 8, 8) : brief;
    const auto most = static_cast<uint64_t>(rest);
    return static_cast<off_t>(brief == 0 ? most : std::min(size, most));
  }

  // A description is a box of a fixed part and more boxes; all of it is looked at as text.
  void Enter(const std::string& name, off_t from, off_t end) {
    if (name == "stsd") {
      found_ += film_.At(from, std::min<size_t>(kDescriptionLook, static_cast<size_t>(end - from)));
    } else if ("moov trak mdia minf stbl"sv.find(name) != std::string_view::npos) {
      Collect(from, end);
    }
  }

  const FilmBytes& film_;
  std::string found_;
  int boxes_ = 0;
};

// A program map table at the start of a packet's payload, and in it a stream of HEVC pictures.
bool HasHevcTable(std::string_view bytes) {
  constexpr auto kTable = "\x00\x02\xB0"sv;
  constexpr unsigned char kHevc = 0x24;
  for (size_t at = bytes.find(kTable); at != std::string_view::npos && at + 13 < bytes.size();
       at = bytes.find(kTable, at + 1)) {
    const size_t end = std::min(bytes.size(), at + 4 + Number(bytes, at + 3, 1));
    size_t entry = at + 13 + (Number(bytes, at + 11, 2) & 0x3FF);
    for (; entry + 5 <= end; entry += 5 + (Number(bytes, entry + 3, 2) & 0x3FF)) {
      if (static_cast<unsigned char>(bytes[entry]) == kHevc) {
        return true;
      }
    }
  }
  return false;
}

bool IsTransportStream(std::string_view bytes) {
  constexpr char kSyncByte = 0x47;
  return bytes.size() > 4 && (bytes[0] == kSyncByte || bytes[4] == kSyncByte);
}

bool IsMatroska(std::string_view bytes) {
  return bytes.substr(0, 4) == "\x1A\x45\xDF\xA3"sv;
}

// --- What the header states ---

// The box of an MP4 film's track.
std::optional<HighRange> BoxColors(std::string_view bytes) {
  constexpr auto kBox = "colrnclx"sv;
  const size_t at = bytes.find(kBox);
  if (at == std::string_view::npos || at + kBox.size() + 7 > bytes.size()) {
    return std::nullopt;
  }
  const auto value = [&](size_t offset, size_t count) {
    return static_cast<int>(Number(bytes, at + kBox.size() + offset, count));
  };
  return HighRange{value(2, 2), value(0, 2), value(4, 2), (value(6, 1) & 0x80) != 0};
}

// The value of an element of Matroska of one byte.
int Element(std::string_view bytes, std::string_view name, int otherwise) {
  const size_t at = bytes.find(name);
  const bool isThere = at != std::string_view::npos && at + name.size() < bytes.size();
  return isThere ? static_cast<unsigned char>(bytes[at + name.size()]) : otherwise;
}

std::optional<HighRange> ElementColors(std::string_view bytes) {
  constexpr int kFullRange = 2;
  const int transfer = Element(bytes, "\x55\xBA\x81"sv, AVCOL_TRC_UNSPECIFIED);
  return HighRange{transfer, Element(bytes, "\x55\xBB\x81"sv, AVCOL_PRI_UNSPECIFIED),
                   Element(bytes, "\x55\xB1\x81"sv, AVCOL_SPC_UNSPECIFIED),
                   Element(bytes, "\x55\xB9\x81"sv, 0) == kFullRange};
}

struct Header {
  std::optional<HighRange> stated;
  bool mayBeDeep = false;  // the codec may have more than eight bits
};

Header HeaderOf(const std::string& path) {
  const FilmBytes film(path);
  const std::string start = film.At(0, kLook);
  if (IsTransportStream(start)) {
    return {std::nullopt, HasHevcTable(start)};
  }
  if (IsMatroska(start)) {
    return {ElementColors(start), ShowsSign(start)};
  }
  const Descriptions descriptions(film);
  return {BoxColors(descriptions.Get()), ShowsSign(descriptions.Get())};
}

bool IsStated(const Header& header) {
  return header.stated && header.stated->transfer != AVCOL_TRC_UNSPECIFIED;
}

// --- What the libraries find ---

std::optional<HighRange> RangeOf(const AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  const bool isCover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
  if (codec.codec_type != AVMEDIA_TYPE_VIDEO || isCover) {
    return std::nullopt;
  }
  return HighRangeOf({codec.color_trc, codec.color_primaries, codec.color_space,
                      codec.color_range == AVCOL_RANGE_JPEG});
}

std::optional<HighRange> RangeOf(const AVFormatContext& film) {
  for (unsigned i = 0; i < film.nb_streams; ++i) {
    if (const auto range = RangeOf(*film.streams[i])) {
      return range;
    }
  }
  return std::nullopt;
}

std::optional<HighRange> LookInside(const std::string& path) {
  const auto* const media = LibOrvoQMX::MediaLibraries::Get();
  if (media == nullptr) {
    return std::nullopt;
  }
  const LibOrvoQMX::QuietMediaLibraries quiet(*media);
  LibOrvoQMX::MediaInput input(*media);
  const orvo::MediaFile film = orvo::MediaFile::Open(path);
  return film.IsOpen() && input.Open(film) ? RangeOf(input.Get()) : std::nullopt;
}

}  // namespace

bool HidesItsRange(const std::string& path) {
  const Header header = HeaderOf(path);
  return !IsStated(header) && header.mayBeDeep;
}

std::optional<HighRange> FindHighRange(const std::string& path) {
  const Header header = HeaderOf(path);
  if (IsStated(header)) {
    return HighRangeOf(*header.stated);
  }
  return header.mayBeDeep ? LookInside(path) : std::nullopt;
}

}  // namespace orvo::transcoder
