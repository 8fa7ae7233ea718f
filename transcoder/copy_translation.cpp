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

// What the options say.
struct Wish {
  FilmCopy copy;
  SoundRecipe recipe;
  bool encodesSound = false;
  bool copiesPictures = false;
  bool isStereo = false;
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
    {"-sn", false, Nothing},
    {"-dn", false, Nothing},
    {"-map", true, Map},
    {"-map_chapters", true, Nothing},
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
    {"-ar", true, Nothing},  // the request says it
    {"-ac", true, Channels},
    {"-af", true, Nothing},  // the same
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
    {"-f", true, Nothing},
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

}  // namespace

std::optional<FilmCopy> PlanCopy(const Strings& arguments, const SegmentRequest& request,
                                 const SegmentEntry& entry) {
  auto wish = ReadWish(arguments);
  const bool isSeekable = request.isSeekable && !request.lacksIndex && !request.clockJumps;
  if (!wish || !isSeekable || !wish->copiesPictures || !wish->copy.pictures.isWanted ||
      (wish->encodesSound && !wish->isStereo)) {
    return std::nullopt;
  }
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

}  // namespace orvo::transcoder
