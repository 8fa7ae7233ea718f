#include "metadata/attached_fonts.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>

#include "metadata/font_names.h"
#include "metadata/matroska_elements.h"
#include "platform/confined_call.h"
#include "platform/log.h"
#include "util/film_memory.h"

namespace LibOrvoQMX {
namespace {

// Elements of Matroska.
constexpr uint32_t kHeader = 0x1a45dfa3;
constexpr uint32_t kSegment = 0x18538067;
constexpr uint32_t kSeekHead = 0x114d9b74;
constexpr uint32_t kSeek = 0x4dbb;
constexpr uint32_t kSeekId = 0x53ab;
constexpr uint32_t kSeekPosition = 0x53ac;
constexpr uint32_t kCluster = 0x1f43b675;
constexpr uint32_t kTracks = 0x1654ae6b;
constexpr uint32_t kTrack = 0xae;
constexpr uint32_t kAttachments = 0x1941a469;
constexpr uint32_t kAttachedFile = 0x61a7;
constexpr uint32_t kFileName = 0x466e;
constexpr uint32_t kMediaType = 0x4660;
constexpr uint32_t kData = 0x465c;

constexpr std::string_view kAttachmentsId = "\x19\x41\xa4\x69";
constexpr int kMostElements = 20000;  // that are looked at
constexpr size_t kLongestName = 255;
constexpr int64_t kLongestHeader = 12;
// A probe or a picture of the same film may run for so long.
constexpr int kPatienceMilliseconds = 15000;

constexpr size_t kMostFamilies = 8;  // of one font

// Where an attachment is, as the confined process tells it.
struct Place {
  int32_t id;
  int32_t nameSize;
  int64_t name;
  int64_t data;
  int64_t size;
  std::array<FontName, kMostFamilies> families;  // unused ones have no size
};

// Attachments that are smaller in all do no harm.
constexpr int64_t kLarge = 32 << 20;

class Search {
 public:
  explicit Search(const orvo::MediaFile& film) : film_(film) {}

  // The element that holds the attachments; nothing if there is none.
  std::optional<MatroskaElement> FindList() {
    const auto header = ElementAt(film_, 0);
    const auto segment =
        header && header->id == kHeader ? OpenElementAt(film_, header->end) : std::nullopt;
    if (!segment || segment->id != kSegment) {
      return std::nullopt;
    }
    ForEachWithin(film_, *segment, budget_, [&](const MatroskaElement& part) {
      LookAt(*segment, part);
      return part.id != kCluster;
    });
    // They may stand behind the film.
    if (!attachments_ && attachmentsPosition_ > 0) {
      attachments_ = ElementAt(film_, attachmentsPosition_);
    }
    return attachments_ && attachments_->id == kAttachments ? attachments_ : std::nullopt;
  }

  std::vector<Place> FindFonts() {
    if (FindList()) {
      LookForFonts();
    }
    return std::move(found_);
  }

 private:
  void LookAt(const MatroskaElement& segment, const MatroskaElement& part) {
    if (part.id == kAttachments) {
      attachments_ = part;
    } else if (part.id == kTracks) {
      CountTracks(part);
    } else if (part.id == kSeekHead) {
      ForEachWithin(film_, part, budget_, [&](const MatroskaElement& seek) {
        TakeSeek(segment, seek);
        return true;
      });
    }
  }

  void CountTracks(const MatroskaElement& tracks) {
    ForEachWithin(film_, tracks, budget_, [&](const MatroskaElement& track) {
      streams_ += track.id == kTrack ? 1 : 0;
      return true;
    });
  }

  void TakeSeek(const MatroskaElement& segment, const MatroskaElement& seek) {
    std::string id;
    uint64_t position = 0;
    ForEachWithin(film_, seek, budget_, [&](const MatroskaElement& part) {
      const std::string bytes =
          BytesAt(film_, part.body, static_cast<size_t>(std::min<int64_t>(part.Size(), 8)));
      if (part.id == kSeekId) {
        id = bytes;
      } else if (part.id == kSeekPosition) {
        position = NumberOf(bytes);
      }
      return true;
    });
    if (seek.id == kSeek && id == kAttachmentsId &&
        position < static_cast<uint64_t>(segment.Size())) {
      attachmentsPosition_ = segment.body + static_cast<int64_t>(position);
    }
  }

  static uint64_t NumberOf(const std::string& bytes) {
    uint64_t number = 0;
    for (const char byte : bytes) {
      number = number << 8 | static_cast<uint8_t>(byte);
    }
    return number;
  }

  void LookForFonts() {
    ForEachWithin(film_, *attachments_, budget_, [&](const MatroskaElement& attachment) {
      if (attachment.id == kAttachedFile) {
        Take(attachment);
      }
      return found_.size() < kMostFonts;
    });
  }

  // FFmpeg makes no stream of an attachment that lacks one of these.
  void Take(const MatroskaElement& attachment) {
    std::optional<MatroskaElement> name;
    std::optional<MatroskaElement> data;
    bool hasType = false;
    ForEachWithin(film_, attachment, budget_, [&](const MatroskaElement& part) {
      name = part.id == kFileName ? part : name;
      data = part.id == kData && part.Size() > 0 ? part : data;
      hasType = hasType || part.id == kMediaType;
      return true;
    });
    if (name && data && hasType) {
      const auto nameSize = std::min<int64_t>(name->Size(), kLongestName);
      found_.push_back({streams_++, static_cast<int32_t>(nameSize), name->body, data->body,
                        data->Size(), FamiliesAt(*data)});
    }
  }

  std::array<FontName, kMostFamilies> FamiliesAt(const MatroskaElement& data) const {
    std::array<FontName, kMostFamilies> families{};
    const std::vector<FontName> found = FindFontNames(film_, data.body, data.end, kMostFamilies);
    std::copy(found.begin(), found.end(), families.begin());
    return families;
  }

  const orvo::MediaFile& film_;
  int budget_ = kMostElements;
  int streams_ = 0;
  std::optional<MatroskaElement> attachments_;
  int64_t attachmentsPosition_ = 0;
  std::vector<Place> found_;
};

std::string PlacesIn(const orvo::MediaFile& film) {
  const std::vector<Place> places = Search(film).FindFonts();
  return {reinterpret_cast<const char*>(places.data()), places.size() * sizeof(Place)};
}

// The two ends of the list, if it is large.
std::string LargeListIn(const orvo::MediaFile& film) {
  const auto list = Search(film).FindList();
  return list && list->Size() > kLarge
             ? std::string(reinterpret_cast<const char*>(&*list), sizeof(*list))
             : "";
}

struct FontType {
  std::string_view start;
  const char* type;
};
constexpr std::array kFontTypes = {
    FontType{std::string_view("\0\1\0\0", 4), "font/ttf"},
    FontType{"true", "font/ttf"},
    FontType{"OTTO", "font/otf"},
    FontType{"ttcf", "font/collection"},
    FontType{"wOFF", "font/woff"},
    FontType{"wOF2", "font/woff2"},
};

// Null if these are not the first bytes of a font.
const char* TypeOf(const std::string& start) {
  const auto* const row = std::find_if(kFontTypes.begin(), kFontTypes.end(),
                                       [&](const FontType& one) { return one.start == start; });
  return row == kFontTypes.end() ? nullptr : row->type;
}

bool LiesIn(const orvo::MediaFile& film, int64_t position, int64_t size) {
  const int64_t all = film.Status().st_size;
  return position >= 0 && size >= 0 && position <= all && size <= all - position;
}

std::vector<std::string> FamiliesOf(const orvo::MediaFile& film, const Place& place) {
  std::vector<std::string> families;
  for (const FontName& name : place.families) {
    const bool isThere =
        name.size > 0 && name.size <= kLongestFontName && LiesIn(film, name.position, name.size);
    std::string text = isThere ? TextOf(film, name) : "";
    if (!text.empty()) {
      families.push_back(std::move(text));
    }
  }
  return families;
}

// Nothing of what the confined process tells is taken on trust.
std::optional<AttachedFont> FontAt(const orvo::MediaFile& film, const Place& place) {
  const bool isPossible = LiesIn(film, place.data, place.size) && place.size <= kLargestFont &&
                          LiesIn(film, place.name, place.nameSize) &&
                          place.nameSize <= static_cast<int32_t>(kLongestName);
  const char* const type = isPossible ? TypeOf(BytesAt(film, place.data, 4)) : nullptr;
  if (type == nullptr) {
    return std::nullopt;
  }
  const std::string name = BytesAt(film, place.name, static_cast<size_t>(place.nameSize));
  // It may be filled up with zeros.
  return AttachedFont{place.id,   name.substr(0, name.find('\0')), type, place.data,
                      place.size, FamiliesOf(film, place)};
}

// What `look` returns in a confined process.
std::optional<std::string> LookConfined(const orvo::MediaFile& film, size_t most,
                                        const std::function<std::string()>& look) {
  const auto memory = orvo::FilmMemory::Take(film, orvo::Job::kProbe, kPatienceMilliseconds);
  return memory ? orvo::CallConfined(orvo::Job::kProbe, {.files = {film.Get()}}, most, look)
                : std::nullopt;
}

}  // namespace

std::optional<std::vector<AttachedFont>> FindAttachedFonts(const orvo::MediaFile& film) {
  const auto bytes =
      LookConfined(film, kMostFonts * sizeof(Place), [&film] { return PlacesIn(film); });
  if (!bytes) {
    ORVO_LOG("The fonts of [%s] were not looked for: %s.", film.Path().c_str(), strerror(errno));
    return std::nullopt;
  }
  std::vector<AttachedFont> fonts;
  for (size_t at = 0; at + sizeof(Place) <= bytes->size(); at += sizeof(Place)) {
    Place place;
    std::memcpy(&place, bytes->data() + at, sizeof(place));
    if (auto font = FontAt(film, place)) {
      fonts.push_back(std::move(*font));
    }
  }
  return fonts;
}

std::optional<AttachmentList> FindLargeAttachments(const orvo::MediaFile& film) {
  MatroskaElement list;
  const auto bytes = film.Status().st_size > kLarge
                         ? LookConfined(film, sizeof(list), [&film] { return LargeListIn(film); })
                         : std::nullopt;
  if (!bytes || bytes->size() != sizeof(list)) {
    return std::nullopt;
  }
  std::memcpy(&list, bytes->data(), sizeof(list));
  const bool isPossible = list.begin < list.body && list.body - list.begin <= kLongestHeader &&
                          list.body < list.end && LiesIn(film, list.begin, list.end - list.begin);
  return isPossible ? std::optional(AttachmentList{list.begin, list.end, VoidHeader(list)})
                    : std::nullopt;
}

}  // namespace LibOrvoQMX
