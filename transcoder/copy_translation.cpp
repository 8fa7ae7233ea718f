#include "transcoder/copy_translation.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

#include "transcoder/option_values.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

// FFmpeg's own delay, in microseconds, which the multiplexer doubles. Frames of sound travel one by
// one: a bundle of them would cross the cuts.
constexpr char kSegmentStream[] = "max_delay=700000:avoid_negative_ts=disabled:pes_payload_size=0";

// What the options say.
struct Wish {
  FilmCopy copy;
  SoundRecipe recipe;
  bool encodesSound = false;
  bool copiesPictures = false;
  bool isStereo = false;
  bool keepsClock = false;
  bool dropsChapters = false;
  std::string fragments;  // options of the multiplexer, each after a colon
};

// What an option tells; false when a copy cannot do it.
using Read = bool (*)(const std::string& value, Wish& wish);

struct CopyOption {
  std::string_view name;
  bool hasValue;
  Read read;
};

bool Nothing(const std::string&, Wish&) {
  return true;
}

bool KeepsClock(const std::string&, Wish& wish) {
  wish.keepsClock = true;
  return true;
}

bool Chapters(const std::string& value, Wish& wish) {
  wish.dropsChapters = value == "-1";
  return true;
}

bool Container(const std::string& value, Wish& wish) {
  wish.copy.format.name = value;
  return true;
}

// Colons and equals signs separate options, and the other characters hide those.
bool Fragments(const char* option, const std::string& value, Wish& wish) {
  wish.fragments += std::string(":") + option + "=" + value;
  return value.find_first_of(":=\\'") == std::string::npos;
}

bool FragmentFlags(const std::string& value, Wish& wish) {
  return Fragments("movflags", value + kClockOfFragments, wish);
}

bool FragmentLength(const std::string& value, Wish& wish) {
  return Fragments("frag_duration", value, wish);
}

bool TimeCode(const std::string& value, Wish& wish) {
  return Fragments("write_tmcd", value, wish);
}

bool Film(const std::string& value, Wish& wish) {
  const bool isFirst = wish.copy.film.empty();
  wish.copy.film = value;
  return isFirst;
}

bool PictureCodec(const std::string& value, Wish& wish) {
  wish.copiesPictures = value == "copy";
  return wish.copiesPictures;
}

bool PictureFilters(const std::string& value, Wish& wish) {
  wish.copy.pictureFilters = value;
  return !value.empty();
}

bool SoundCodec(const std::string& value, Wish& wish) {
  wish.encodesSound = value != "copy";
  wish.recipe.encoder = value;
  return value == "copy" || value == "aac";
}

bool SoundCoder(const std::string& value, Wish& wish) {
  wish.recipe.coder = value;
  return true;
}

bool SoundBits(const std::string& value, Wish& wish) {
  wish.recipe.bitRate = std::lround(ParseValue(ValueKind::kBitRate, value).value_or(0));
  return wish.recipe.bitRate > 0;
}

bool SoundRate(const std::string& value, Wish& wish) {
  wish.recipe.rate = std::lround(ParseValue(ValueKind::kSampleRate, value).value_or(0));
  return wish.recipe.rate > 0;
}

bool Channels(const std::string& value, Wish& wish) {
  wish.isStereo = value == "2";
  return wish.isStereo;
}

// The film's own channels may be more than two.
bool Sound(const std::string& value, Wish&) {
  return value != "original";
}

// "0:1", "0:v", "0:a?" and the like.
bool Map(const std::string& value, Wish& wish) {
  std::string_view text = value;
  TrackChoice choice{true, -1, text.ends_with("?")};
  text.remove_suffix(choice.isOptional ? 1 : 0);
  if (!text.starts_with("0:")) {
    return false;
  }
  text.remove_prefix(2);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), choice.number);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  // The library names the pictures first.
  const bool isPicture = text == "v" || (isNumber && !wish.copy.pictures.isWanted);
  TrackChoice& track = isPicture ? wish.copy.pictures : wish.copy.sound;
  const bool isKnown = text == "v" || text == "a" || (isNumber && choice.number >= 0);
  const bool isNew = !track.isWanted;
  track = choice;
  return isKnown && isNew;
}

constexpr auto kCopyOptions = std::to_array<CopyOption>({
    {"-i", true, Film},
    {"-ss", true, Nothing},  // the entry says where
    {"-prefer_smd", false, Nothing},
    {"-copyts", false, KeepsClock},
    {"-sn", false, Nothing},
    {"-dn", false, Nothing},
    {"-map", true, Map},
    {"-map_chapters", true, Chapters},
    {"-max_muxing_queue_size", true, Nothing},
    {"-vcodec", true, PictureCodec},
    {"-c:v", true, PictureCodec},
    {"-codec:v", true, PictureCodec},
    {"-bsf:v", true, PictureFilters},
    {"-acodec", true, SoundCodec},
    {"-c:a", true, SoundCodec},
    {"-codec:a", true, SoundCodec},
    {"-aac_coder", true, SoundCoder},
    {"-ab", true, SoundBits},
    {"-ar", true, SoundRate},
    {"-ac", true, Channels},
    {"-af", true, Nothing},  // the caller says it, together with the mix
    {"-sound", true, Sound},
    {"-hls_seek_time", true, Nothing},
    {"-segment_time", true, Nothing},
    {"-segment_start_number", true, Nothing},
    {"-segment_format", true, Nothing},
    {"-segment_list_type", true, Nothing},
    {"-segment_time_delta", true, Nothing},
    {"-individual_header_trailer", true, Nothing},
    {"-avoid_negative_ts", true, Nothing},
    {"-break_non_keyframes", true, Nothing},
    {"-f", true, Container},
    {"-movflags", true, FragmentFlags},
    {"-frag_duration", true, FragmentLength},
    {"-write_tmcd", true, TimeCode},
});

const CopyOption* FindOption(std::string_view name) {
  const auto found = std::find_if(kCopyOptions.begin(), kCopyOptions.end(),
                                  [&](const CopyOption& option) { return option.name == name; });
  return found == kCopyOptions.end() ? nullptr : &*found;
}

// All but the last argument, which is the output.
std::optional<Wish> ReadWish(const Strings& arguments) {
  Wish wish;
  for (size_t i = 0; i + 1 < arguments.size(); ++i) {
    const CopyOption* const option = FindOption(arguments[i]);
    const bool seeksBehindInput = arguments[i] == "-ss" && !wish.copy.film.empty();
    if (option == nullptr || seeksBehindInput) {
      return std::nullopt;
    }
    i += option->hasValue ? 1 : 0;
    if (!option->read(arguments[i], wish)) {
      return std::nullopt;
    }
  }
  return wish;
}

bool IsCopy(const Wish& wish) {
  return wish.copiesPictures && wish.copy.pictures.isWanted &&
         (!wish.encodesSound || wish.isStereo);
}

// A transport stream has no fragments.
bool IsContainer(const Wish& wish) {
  return wish.copy.format.name == kMp4 ||
         (wish.copy.format.name == kTransportStream && wish.fragments.empty());
}

}  // namespace

std::optional<FilmCopy> PlanCopy(const Strings& arguments, const SegmentRequest& request,
                                 const SegmentEntry& entry) {
  auto wish = ReadWish(arguments);
  const bool isSeekable = request.isSeekable && !request.lacksIndex && !request.clockJumps;
  if (!wish || !isSeekable || !IsCopy(*wish) || !wish->fragments.empty()) {
    return std::nullopt;
  }
  wish->copy.format = {kTransportStream, kSegmentStream};
  wish->copy.seek = entry.seek;
  wish->copy.pictureFilters = Decodable(wish->copy.pictureFilters, request);
  if (wish->encodesSound) {
    wish->recipe.rate = request.soundRate;
    wish->recipe.filters = request.soundFilters;
    wish->recipe.first = entry.firstSample;
    wish->copy.recipe = wish->recipe;
  }
  return wish->copy;
}

std::optional<FilmCopy> PlanByteCopy(const Strings& arguments, double start,
                                     const std::string& soundFilters) {
  auto wish = ReadWish(arguments);
  if (!wish || !IsCopy(*wish) || !IsContainer(*wish) || !wish->keepsClock || !wish->dropsChapters ||
      (wish->encodesSound && wish->recipe.rate <= 0)) {
    return std::nullopt;
  }
  wish->copy.format.options = kByteStream + wish->fragments;
  wish->copy.seek = start;
  wish->copy.pictureFilters =
      wish->copy.pictureFilters.empty() ? "null" : wish->copy.pictureFilters;
  if (wish->encodesSound) {
    wish->recipe.filters = soundFilters;
    wish->copy.recipe = wish->recipe;
  }
  return wish->copy;
}

}  // namespace orvo::transcoder
