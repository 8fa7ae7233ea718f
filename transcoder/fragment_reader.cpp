#include "transcoder/fragment_reader.h"

namespace orvo::transcoder {
namespace {

constexpr size_t kBoxHead = 8;
constexpr size_t kLongestBox = 256 << 20;
constexpr size_t kDisplayBytes = 44;  // matrix, width, height

// Reads numbers and boxes from the front of a text. What lies beyond its end reads as 0.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : rest_(text) {}

  uint64_t Number(size_t bytes) {
    uint64_t number = 0;
    for (const char byte : Take(bytes)) {
      number = number << 8 | static_cast<unsigned char>(byte);
    }
    return number;
  }
  std::string_view Take(size_t bytes) {
    const std::string_view taken = rest_.substr(0, bytes);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  bool IsAtEnd() const { return rest_.empty(); }
  std::string_view Rest() const { return rest_; }

 private:
  std::string_view rest_;
};

// The content of the first such box; empty if there is none. `whole` includes the box's head.
std::string_view Find(std::string_view boxes, std::string_view type, bool whole = false) {
  while (boxes.size() >= kBoxHead) {
    const size_t size = Cursor(boxes).Number(4);
    if (size < kBoxHead || size > boxes.size()) {
      return {};
    }
    if (boxes.substr(4, 4) == type) {
      return whole ? boxes.substr(0, size) : boxes.substr(kBoxHead, size - kBoxHead);
    }
    boxes.remove_prefix(size);
  }
  return {};
}

// The flags of a trun and a tfhd box that this reader knows.
enum RunFlags : uint32_t { kRunOffset = 1, kRunFirstFlags = 4 };
enum SampleFlags : uint32_t { kDuration = 0x100, kSize = 0x200, kFlags = 0x400, kLater = 0x800 };
enum TrackFlags : uint32_t {
  kBase = 1,
  kDescription = 2,
  kDefaultDuration = 8,
  kDefaultSize = 0x10,
  kDefaultFlags = 0x20
};
constexpr uint32_t kIsNoEntry = 0x00010000;

struct Defaults {
  uint32_t duration = 0;
  uint32_t size = 0;
  uint32_t flags = 0;
};

Defaults ReadDefaults(std::string_view box) {
  Cursor cursor(box);
  const auto flags = static_cast<uint32_t>(cursor.Number(4));
  cursor.Take(4);
  cursor.Take((flags & kBase) != 0 ? 8 : 0);
  cursor.Take((flags & kDescription) != 0 ? 4 : 0);
  Defaults defaults;
  defaults.duration = static_cast<uint32_t>(cursor.Number((flags & kDefaultDuration) != 0 ? 4 : 0));
  defaults.size = static_cast<uint32_t>(cursor.Number((flags & kDefaultSize) != 0 ? 4 : 0));
  defaults.flags = static_cast<uint32_t>(cursor.Number((flags & kDefaultFlags) != 0 ? 4 : 0));
  return defaults;
}

}  // namespace

bool FragmentReader::Add(std::string_view bytes) {
  pending_ += bytes;
  size_t taken = 0;
  while (pending_.size() - taken >= kBoxHead) {
    const std::string_view rest = std::string_view(pending_).substr(taken);
    const size_t size = Cursor(rest).Number(4);
    if (size < kBoxHead || size > kLongestBox) {
      return false;
    }
    if (rest.size() < size) {
      break;
    }
    if (!TakeBox(rest.substr(4, 4), rest.substr(kBoxHead, size - kBoxHead))) {
      return false;
    }
    taken += size;
  }
  pending_.erase(0, taken);
  return true;
}

bool FragmentReader::TakeBox(std::string_view type, std::string_view content) {
  if (type == "moov") {
    return TakeHeader(content);
  }
  if (type == "moof") {
    return TakeFragment(content);
  }
  return type != "mdat" || TakeData(content);
}

bool FragmentReader::TakeHeader(std::string_view movie) {
  const std::string_view trak = Find(movie, "trak");
  const std::string_view media = Find(trak, "mdia");
  const std::string_view head = Find(trak, "tkhd");
  const std::string_view table = Find(Find(media, "minf"), "stbl");
  CmafTrack track;
  Cursor times(Find(media, "mdhd"));
  const bool isLong = times.Number(1) == 1;
  times.Take(3 + (isLong ? 16 : 8));
  track.clock = static_cast<uint32_t>(times.Number(4));
  times.Take(isLong ? 8 : 4);
  track.language = static_cast<uint16_t>(times.Number(2));
  track.isPicture = Find(media, "hdlr").substr(0, 12).ends_with("vide");
  track.descriptions = Find(table, "stsd", true);
  if (head.size() < kDisplayBytes || track.descriptions.empty() || track.clock == 0) {
    return false;
  }
  track.display = head.substr(head.size() - kDisplayBytes);
  track_ = std::move(track);
  return true;
}

bool FragmentReader::TakeFragment(std::string_view fragment) {
  const std::string_view traf = Find(fragment, "traf");
  const Defaults defaults = ReadDefaults(Find(traf, "tfhd"));
  Cursor base(Find(traf, "tfdt"));
  const bool isLong = base.Number(1) == 1;
  base.Take(3);
  auto time = static_cast<int64_t>(base.Number(isLong ? 8 : 4));
  Cursor run(Find(traf, "trun"));
  const auto flags = static_cast<uint32_t>(run.Number(4)) & 0xffffff;
  auto count = run.Number(4);
  run.Take((flags & kRunOffset) != 0 ? 4 : 0);
  const bool hasFirst = (flags & kRunFirstFlags) != 0;
  auto first = static_cast<uint32_t>(run.Number(hasFirst ? 4 : 0));
  announced_.clear();
  sizes_.clear();
  for (; count > 0; --count) {
    // Samples without fields of their own are as many as the count says.
    if (run.IsAtEnd() && (flags & (kDuration | kSize | kFlags | kLater)) != 0) {
      return false;
    }
    CmafSample sample;
    sample.duration =
        static_cast<int64_t>((flags & kDuration) != 0 ? run.Number(4) : defaults.duration);
    const auto size = static_cast<uint32_t>((flags & kSize) != 0 ? run.Number(4) : defaults.size);
    uint32_t its = (flags & kFlags) != 0 ? static_cast<uint32_t>(run.Number(4)) : defaults.flags;
    its = hasFirst && announced_.empty() ? first : its;
    const auto later = (flags & kLater) != 0 ? static_cast<int32_t>(run.Number(4)) : 0;
    sample.decodeTime = time;
    sample.time = time + later;
    sample.isKey = (its & kIsNoEntry) == 0;
    time += sample.duration;
    announced_.push_back(std::move(sample));
    sizes_.push_back(size);
    if (announced_.size() > kLongestBox / kBoxHead) {
      return false;
    }
  }
  return true;
}

bool FragmentReader::TakeData(std::string_view data) {
  for (size_t i = 0; i < announced_.size(); ++i) {
    if (sizes_[i] > data.size()) {
      return false;
    }
    announced_[i].data = data.substr(0, sizes_[i]);
    data.remove_prefix(sizes_[i]);
    take_(std::move(announced_[i]));
  }
  announced_.clear();
  return true;
}

}  // namespace orvo::transcoder
