#include "transcoder/cmaf_boxes.h"

#include <algorithm>
#include <string_view>

namespace orvo::transcoder {
namespace {

constexpr uint32_t kTrackId = 1;
constexpr uint32_t kKeySample = 0x02000000;    // depends on no other
constexpr uint32_t kOtherSample = 0x01010000;  // depends on others, and is no entry
constexpr uint16_t kFullVolume = 0x0100;
constexpr uint32_t kNormalRate = 0x00010000;
constexpr size_t kSizeBytes = 4;

// Writes boxes, one in another.
class Boxes {
 public:
  // A box that ends with this object.
  class Scope {
   public:
    Scope(Boxes& boxes, std::string_view type) : boxes_(boxes), start_(boxes.bytes_.size()) {
      boxes_.Number(0, kSizeBytes).Text(type);
    }
    Scope(Boxes& boxes, std::string_view type, unsigned version, uint32_t flags)
        : Scope(boxes, type) {
      boxes_.Number(version, 1).Number(flags, 3);
    }
    ~Scope() { boxes_.Patch(start_, static_cast<uint32_t>(boxes_.bytes_.size() - start_)); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    Boxes& boxes_;
    size_t start_;
  };

  // Takes the memory for so many bytes at once.
  void Reserve(size_t bytes) { bytes_.reserve(bytes); }

  // The number in so many bytes, the highest first.
  Boxes& Number(uint64_t number, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) {
      bytes_ += static_cast<char>(number >> (8 * i));
    }
    return *this;
  }
  Boxes& Text(std::string_view text) {
    bytes_ += text;
    return *this;
  }
  Boxes& Zeros(size_t count) {
    bytes_.append(count, '\0');
    return *this;
  }
  void Patch(size_t position, uint32_t number) {
    for (size_t i = 0; i < kSizeBytes; ++i) {
      bytes_[position + i] = static_cast<char>(number >> (8 * (kSizeBytes - 1 - i)));
    }
  }
  size_t Size() const { return bytes_.size(); }
  std::string Take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

void WriteBrands(Boxes& out) {
  const Boxes::Scope box(out, "ftyp");
  out.Text("iso6").Number(0, 4).Text("iso6").Text("cmfc").Text("mp41");
}

void WriteMovieHeader(Boxes& out) {
  const Boxes::Scope box(out, "mvhd", 0, 0);
  out.Zeros(8).Number(1000, 4).Number(0, 4).Number(kNormalRate, 4).Number(kFullVolume, 2).Zeros(10);
  for (const uint32_t value : {0x10000U, 0U, 0U, 0U, 0x10000U, 0U, 0U, 0U, 0x40000000U}) {
    out.Number(value, 4);
  }
  out.Zeros(24).Number(kTrackId + 1, 4);
}

void WriteTrackHeader(Boxes& out, const CmafTrack& track) {
  constexpr uint32_t kShownAndUsed = 7;
  const Boxes::Scope box(out, "tkhd", 0, kShownAndUsed);
  out.Zeros(8).Number(kTrackId, 4).Zeros(4).Number(0, 4).Zeros(8).Zeros(4);
  out.Number(track.isPicture ? 0 : kFullVolume, 2).Zeros(2).Text(track.display);
}

void WriteEdits(Boxes& out, int64_t delay) {
  const Boxes::Scope edits(out, "edts");
  const Boxes::Scope box(out, "elst", 0, 0);
  out.Number(1, 4).Number(0, 4).Number(static_cast<uint64_t>(delay), 4).Number(kNormalRate, 4);
}

void WriteHandler(Boxes& out, const CmafTrack& track) {
  const Boxes::Scope box(out, "hdlr", 0, 0);
  out.Zeros(4).Text(track.isPicture ? "vide" : "soun").Zeros(12).Zeros(1);
}

void WriteDataReference(Boxes& out) {
  constexpr uint32_t kInThisFile = 1;
  const Boxes::Scope information(out, "dinf");
  const Boxes::Scope references(out, "dref", 0, 0);
  out.Number(1, 4);
  const Boxes::Scope reference(out, "url ", 0, kInThisFile);
}

void WriteSampleTable(Boxes& out, const CmafTrack& track) {
  const Boxes::Scope table(out, "stbl");
  out.Text(track.descriptions);
  for (const char* const empty : {"stts", "stsc", "stco"}) {
    const Boxes::Scope box(out, empty, 0, 0);
    out.Number(0, 4);
  }
  const Boxes::Scope sizes(out, "stsz", 0, 0);
  out.Zeros(8);
}

void WriteMediaInformation(Boxes& out, const CmafTrack& track) {
  const Boxes::Scope information(out, "minf");
  if (track.isPicture) {
    const Boxes::Scope box(out, "vmhd", 0, 1);
    out.Zeros(8);
  } else {
    const Boxes::Scope box(out, "smhd", 0, 0);
    out.Zeros(4);
  }
  WriteDataReference(out);
  WriteSampleTable(out, track);
}

void WriteMedia(Boxes& out, const CmafTrack& track) {
  const Boxes::Scope media(out, "mdia");
  {
    const Boxes::Scope box(out, "mdhd", 0, 0);
    out.Zeros(8).Number(track.clock, 4).Number(0, 4).Number(track.language, 2).Zeros(2);
  }
  WriteHandler(out, track);
  WriteMediaInformation(out, track);
}

void WriteTrack(Boxes& out, const CmafTrack& track, int64_t delay) {
  const Boxes::Scope box(out, "trak");
  WriteTrackHeader(out, track);
  if (delay > 0) {
    WriteEdits(out, delay);
  }
  WriteMedia(out, track);
}

void WriteFragmentDefaults(Boxes& out) {
  const Boxes::Scope extends(out, "mvex");
  const Boxes::Scope box(out, "trex", 0, 0);
  out.Number(kTrackId, 4).Number(1, 4).Zeros(12);
}

// Returns the place of the data's offset.
size_t WriteSamples(Boxes& out, const CmafTrack& track, const std::vector<CmafSample>& samples,
                    int64_t delay) {
  constexpr uint32_t kOffsetDurationSize = 0x000301;
  constexpr uint32_t kFlagsComposition = 0x000c00;
  const Boxes::Scope box(out, "trun", 0,
                         kOffsetDurationSize | (track.isPicture ? kFlagsComposition : 0));
  out.Number(samples.size(), 4);
  const size_t offset = out.Size();
  out.Number(0, 4);
  for (const CmafSample& sample : samples) {
    out.Number(static_cast<uint64_t>(sample.duration), 4).Number(sample.data.size(), 4);
    if (track.isPicture) {
      const int64_t later = std::max<int64_t>(sample.time + delay - sample.decodeTime, 0);
      out.Number(sample.isKey ? kKeySample : kOtherSample, 4);
      out.Number(static_cast<uint64_t>(later), 4);
    }
  }
  return offset;
}

// The same for the whole fragment.
size_t WriteFragment(Boxes& out, const CmafTrack& track, const std::vector<CmafSample>& samples,
                     int64_t delay, int64_t start) {
  constexpr uint32_t kBaseIsFragment = 0x020000;
  constexpr uint32_t kDefaultFlags = 0x000020;
  const Boxes::Scope fragment(out, "traf");
  {
    const Boxes::Scope box(out, "tfhd", 0, kBaseIsFragment | kDefaultFlags);
    out.Number(kTrackId, 4).Number(track.isPicture ? kOtherSample : kKeySample, 4);
  }
  {
    const Boxes::Scope box(out, "tfdt", 1, 0);
    out.Number(static_cast<uint64_t>(start), 8);
  }
  return WriteSamples(out, track, samples, delay);
}

}  // namespace

std::string CmafHeader(const CmafTrack& track, int64_t delay) {
  Boxes out;
  WriteBrands(out);
  {
    const Boxes::Scope movie(out, "moov");
    WriteMovieHeader(out);
    WriteTrack(out, track, delay);
    WriteFragmentDefaults(out);
  }
  return out.Take();
}

std::string CmafChunk(const CmafTrack& track, const std::vector<CmafSample>& samples, int64_t delay,
                      uint32_t sequence, int64_t start) {
  constexpr size_t kBoxHead = 8;
  constexpr size_t kHeads = 256;  // bytes of the boxes around a fragment's samples, roughly
  constexpr size_t kPerSample = 16;
  size_t size = kHeads + samples.size() * kPerSample;
  for (const CmafSample& sample : samples) {
    size += sample.data.size();
  }
  Boxes out;
  out.Reserve(size);
  size_t offset = 0;
  {
    const Boxes::Scope fragment(out, "moof");
    {
      const Boxes::Scope box(out, "mfhd", 0, 0);
      out.Number(sequence, 4);
    }
    offset = WriteFragment(out, track, samples, delay, start);
  }
  out.Patch(offset, static_cast<uint32_t>(out.Size() + kBoxHead));
  {
    const Boxes::Scope data(out, "mdat");
    for (const CmafSample& sample : samples) {
      out.Text(sample.data);
    }
  }
  return out.Take();
}

}  // namespace orvo::transcoder
