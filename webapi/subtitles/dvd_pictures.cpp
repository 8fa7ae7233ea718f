#include "webapi/subtitles/dvd_pictures.h"

#include <algorithm>
#include <charconv>

#include "metadata/matroska_elements.h"

namespace webapi {
namespace {

using LibOrvoQMX::BytesAt;
using LibOrvoQMX::ElementAt;
using LibOrvoQMX::ForEachWithin;
using LibOrvoQMX::MatroskaElement;
using LibOrvoQMX::OpenElementAt;

constexpr int kLargestSide = 4095;  // a packet cannot name more
constexpr int64_t kShownMilliseconds = 5000;

// --- The text

// The line behind "NAME:"; "" if there is none.
std::string_view LineOf(std::string_view text, std::string_view name) {
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view line = text.substr(begin, end - begin);
    if (line.substr(0, name.size()) == name) {
      return line.substr(name.size());
    }
    begin = end + 1;
  }
  return {};
}

// Takes the next number off the text, with what stands before it. Returns false if there is none.
bool TakeNumber(std::string_view& text, int base, uint32_t& number) {
  const size_t begin = text.find_first_of(base == 16 ? "0123456789abcdefABCDEF" : "0123456789");
  if (begin == std::string_view::npos) {
    return false;
  }
  const char* const end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data() + begin, end, number, base);
  text = {next, static_cast<size_t>(end - next)};
  return error == std::errc();
}

// --- A packet

// Bytes that may end anywhere: what is behind the end reads as 0.
class Bytes {
 public:
  explicit Bytes(std::string_view bytes) : bytes_(bytes) {}

  size_t Size() const { return bytes_.size(); }
  unsigned Byte(size_t place) const {
    return place < bytes_.size() ? static_cast<uint8_t>(bytes_[place]) : 0;
  }
  unsigned Word(size_t place) const { return Byte(place) << 8 | Byte(place + 1); }
  unsigned Nibble(size_t place) const {
    return place % 2 == 0 ? Byte(place / 2) >> 4 : Byte(place / 2) & 0xf;
  }

 private:
  std::string_view bytes_;
};

enum Command : uint8_t {
  kForce = 0,
  kStart = 1,
  kStop = 2,
  kColors = 3,
  kOpacities = 4,
  kPlace = 5,
  kFields = 6,
};

// How many bytes follow a command. Others, such as the end, stop the reading.
constexpr std::array<size_t, 7> kArguments = {0, 0, 0, 2, 2, 6, 4};

// What the commands of a packet say. A later value replaces an earlier one, but a fade does not
// hide the picture.
struct Control {
  std::optional<int64_t> start;  // ms after the packet's time
  std::optional<int64_t> stop;
  bool isForced = false;
  std::array<unsigned, 4> colors = {};
  std::array<unsigned, 4> opacities = {};
  unsigned left = 0;
  unsigned right = 0;
  unsigned top = 0;
  unsigned bottom = 0;
  std::array<unsigned, 2> fields = {};  // where the even and the odd rows begin
};

// Four values of four bits, the last colour's first.
std::array<unsigned, 4> FourOf(const Bytes& packet, size_t place) {
  const unsigned word = packet.Word(place);
  return {word & 0xf, word >> 4 & 0xf, word >> 8 & 0xf, word >> 12};
}

void TakeCommand(const Bytes& packet, unsigned command, size_t place, int64_t time,
                 Control& control) {
  switch (command) {
    case kForce:
      control.isForced = true;
      [[fallthrough]];
    case kStart:
      control.start = control.start.value_or(time);
      break;
    case kStop:
      control.stop = time;
      break;
    case kColors:
      control.colors = FourOf(packet, place);
      break;
    case kOpacities: {
      const auto opacities = FourOf(packet, place);
      const bool isHidden = opacities == std::array<unsigned, 4>{};
      control.opacities = isHidden ? control.opacities : opacities;
      break;
    }
    case kPlace:
      control.left = packet.Word(place) >> 4;
      control.right = packet.Word(place + 1) & 0xfff;
      control.top = packet.Word(place + 3) >> 4;
      control.bottom = packet.Word(place + 4) & 0xfff;
      break;
    default:
      control.fields = {packet.Word(place), packet.Word(place + 2)};
  }
}

// Each list of commands names its time and the next list, which stands behind it; the last one
// names itself.
Control ReadControl(const Bytes& packet) {
  constexpr int64_t kTickMicroseconds = 1024 * 1000 / 90;
  Control control;
  for (size_t list = packet.Word(2), last = 0; list > last && list + 4 <= packet.Size();) {
    const int64_t time = int64_t{packet.Word(list)} * kTickMicroseconds / 1000;
    for (size_t place = list + 4; packet.Byte(place) < kArguments.size() && place < packet.Size();
         place += 1 + kArguments[packet.Byte(place)]) {
      TakeCommand(packet, packet.Byte(place), place + 1, time, control);
    }
    last = list;
    list = packet.Word(list + 2);
  }
  return control;
}

// The runs of one field's rows. A run has one to four nibbles: the more, the longer.
class Field {
 public:
  Field(const Bytes& packet, size_t begin) : packet_(packet), nibble_(2 * begin) {}

  // The next row. What is missing at the packet's end has colour 0.
  std::vector<PixelRun> Row(int width) {
    std::vector<PixelRun> row;
    for (int left = width; left > 0; left -= row.back().length) {
      row.push_back(Run(left));
    }
    nibble_ += nibble_ % 2;
    return row;
  }

 private:
  PixelRun Run(int left) {
    unsigned value = Next();
    for (unsigned limit = 0x4; limit <= 0x40 && value < limit; limit <<= 2) {
      value = value << 4 | Next();
    }
    const auto length = static_cast<int>(value >> 2);
    return {length == 0 ? left : std::min(length, left), static_cast<uint8_t>(value & 3)};
  }

  unsigned Next() { return packet_.Nibble(nibble_++); }

  const Bytes& packet_;
  size_t nibble_;
};

std::vector<std::vector<PixelRun>> RowsOf(const Bytes& packet, const Control& control, int width,
                                          int height) {
  std::array<Field, 2> fields = {Field(packet, control.fields[0]),
                                 Field(packet, control.fields[1])};
  std::vector<std::vector<PixelRun>> rows;
  for (int row = 0; row < height; ++row) {
    rows.push_back(fields[static_cast<size_t>(row) % 2].Row(width));
  }
  return rows;
}

// --- A track

constexpr uint32_t kHeader = 0x1a45dfa3;
constexpr uint32_t kSegment = 0x18538067;
constexpr uint32_t kTracks = 0x1654ae6b;
constexpr uint32_t kTrack = 0xae;
constexpr uint32_t kPrivate = 0x63a2;
constexpr uint32_t kCluster = 0x1f43b675;
constexpr uint32_t kTimestamp = 0xe7;
constexpr uint32_t kSimpleBlock = 0xa3;
constexpr uint32_t kBlockGroup = 0xa0;
constexpr uint32_t kBlock = 0xa1;
constexpr size_t kBlockHeader = 4;          // the track, the time after the cluster's, the flags
constexpr size_t kLongestPacket = 0x10004;  // its length has 16 bits
constexpr size_t kLongestText = 65536;
constexpr int kDeepest = 2;  // level of a part that has others

class TrackReader {
 public:
  TrackReader(const orvo::MediaFile& track, size_t largest) : track_(track), largest_(largest) {}

  std::string Run() {
    const auto header = ElementAt(track_, 0);
    const auto segment =
        header && header->id == kHeader ? OpenElementAt(track_, header->end) : std::nullopt;
    if (segment && segment->id == kSegment) {
      ForEachWithin(track_, *segment, budget_, [&](const MatroskaElement& part) {
        Take(part, 1);
        return sup_.Size() < largest_;
      });
    }
    return sup_.Finish();
  }

 private:
  void TakeParts(const MatroskaElement& parent, int depth) {
    if (depth <= kDeepest) {
      ForEachWithin(track_, parent, budget_, [&](const MatroskaElement& part) {
        Take(part, depth + 1);
        return sup_.Size() < largest_;
      });
    }
  }

  void Take(const MatroskaElement& part, int depth) {
    switch (part.id) {
      case kTracks:
      case kTrack:
      case kCluster:
      case kBlockGroup:
        TakeParts(part, depth);
        break;
      case kPrivate:
        screen_ = ReadDvdScreen(ContentOf(part, kLongestText));
        sup_ = SupFile(screen_.width, screen_.height);
        break;
      case kTimestamp:
        cluster_ = NumberIn(ContentOf(part, sizeof(uint64_t)));
        break;
      case kSimpleBlock:
      case kBlock:
        TakeBlock(ContentOf(part, kLongestPacket + kBlockHeader));
        break;
      default:
        break;
    }
  }

  void TakeBlock(std::string_view block) {
    if (block.size() < kBlockHeader) {
      return;
    }
    const auto offset = static_cast<int16_t>(Bytes(block).Word(1));
    const auto picture = ReadDvdPicture(block.substr(kBlockHeader),
                                        std::max<int64_t>(cluster_ + offset, 0), screen_);
    if (picture) {
      sup_.Add(*picture);
    }
  }

  std::string ContentOf(const MatroskaElement& part, size_t most) const {
    return BytesAt(track_, part.body, std::min(most, static_cast<size_t>(part.Size())));
  }

  // A time in ms. One that no film has counts as 0.
  static int64_t NumberIn(const std::string& bytes) {
    constexpr uint64_t kLongestFilm = 1000ULL * 3600 * 1000;
    uint64_t number = 0;
    for (const char byte : bytes) {
      number = number << 8 | static_cast<uint8_t>(byte);
    }
    return number <= kLongestFilm ? static_cast<int64_t>(number) : 0;
  }

  const orvo::MediaFile& track_;
  size_t largest_;
  int budget_ = 1000000;  // elements that are looked at
  int64_t cluster_ = 0;
  DvdScreen screen_;
  SupFile sup_{screen_.width, screen_.height};
};

}  // namespace

DvdScreen ReadDvdScreen(std::string_view text) {
  DvdScreen screen;
  std::string_view size = LineOf(text, "size:");
  uint32_t width = 0;
  uint32_t height = 0;
  if (TakeNumber(size, 10, width) && TakeNumber(size, 10, height) && width > 0 && height > 0 &&
      width <= kLargestSide && height <= kLargestSide) {
    screen.width = static_cast<int>(width);
    screen.height = static_cast<int>(height);
  }
  std::string_view palette = LineOf(text, "palette:");
  for (uint32_t& color : screen.palette) {
    if (!TakeNumber(palette, 16, color)) {
      break;
    }
  }
  return screen;
}

std::optional<SubtitlePicture> ReadDvdPicture(std::string_view packet, int64_t time,
                                              const DvdScreen& screen) {
  const Bytes bytes(packet);
  const Control control = ReadControl(bytes);
  const auto width = static_cast<int>(control.right) - static_cast<int>(control.left) + 1;
  const auto height = static_cast<int>(control.bottom) - static_cast<int>(control.top) + 1;
  if (!control.start || control.right < control.left || control.bottom < control.top ||
      control.fields[0] == 0) {
    return std::nullopt;
  }
  SubtitlePicture picture;
  picture.start = time + *control.start;
  const int64_t end = time + control.stop.value_or(*control.start + kShownMilliseconds);
  picture.end = end > picture.start ? end : picture.start + kShownMilliseconds;
  picture.left = static_cast<int>(control.left);
  picture.top = static_cast<int>(control.top);
  picture.width = width;
  picture.isForced = control.isForced;
  for (size_t index = 0; index < picture.colors.size(); ++index) {
    picture.colors[index] = {screen.palette[control.colors[index]],
                             static_cast<uint8_t>(control.opacities[index] * 17)};
  }
  picture.rows = RowsOf(bytes, control, width, height);
  return picture;
}

std::string ReadDvdTrack(const orvo::MediaFile& track, size_t largest) {
  return TrackReader(track, largest).Run();
}

}  // namespace webapi
