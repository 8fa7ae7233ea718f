#include "transcoder/translation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "liborvoqmx/util/media_formats.h"
#include "transcoder/copy_translation.h"
#include "transcoder/filters.h"
#include "transcoder/option_values.h"
#include "transcoder/private_options.h"
#include "transcoder/segment_translation.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

// --- Encoders and what stands in for them ---

enum class Kind { kSoftware, kFdkAac, kHardware, kVaapi };

struct Encoder {
  std::string_view name;
  std::string_view replacement;
  Kind kind;
};

constexpr auto kEncoders = std::to_array<Encoder>({
    {"libfdk_aac", "aac", Kind::kFdkAac},
    {"libshine", "libmp3lame", Kind::kSoftware},
    {"h264_smd", "libx264", Kind::kHardware},
    {"h264_vaapi", "libx264", Kind::kVaapi},
    {"h264_qsv", "libx264", Kind::kHardware},
    {"h264_nvenc", "libx264", Kind::kHardware},
    {"h264_v4l2m2m", "libx264", Kind::kHardware},
    {"h264_omx", "libx264", Kind::kHardware},
});

const Encoder* FindEncoder(std::string_view name) {
  const auto row = std::find_if(kEncoders.begin(), kEncoders.end(),
                                [&](const Encoder& encoder) { return encoder.name == name; });
  return row == kEncoders.end() ? nullptr : &*row;
}

bool IsOfEngine(const Encoder& encoder) {
  return encoder.kind == Kind::kHardware || encoder.kind == Kind::kVaapi;
}

constexpr double kPreroll = 3;  // seconds: most broadcasts have a key frame more often

// Its clock may tick finer than once a picture without upsetting its rate control.
constexpr std::string_view kFineClockEncoder = "libx264";

constexpr char kSoundOfUnframed[] = "libmp3lame";

constexpr char kFallbackPreset[] = "veryfast";  // the default one is too slow for an appliance
constexpr auto kSoftwarePresets =
    std::to_array<std::string_view>({"ultrafast", "superfast", "veryfast", "faster", "fast",
                                     "medium", "slow", "slower", "veryslow"});

// Encoders that make forced key frames plain I pictures, where no decoder can start, unless they
// are told otherwise.
struct KeyFrameOption {
  std::string_view encoder;
  const char* name;
};
constexpr auto kKeyFrameOptions = std::to_array<KeyFrameOption>({
    {"h264_nvenc", "-forced-idr"},
    {"h264_qsv", "-forced_idr"},
});

// --- What the command line as a whole says ---

struct Facts {
  const Surroundings* surroundings = nullptr;
  bool hasInput = false;
  bool keepsFilmClock = false;
  bool copiesVideo = false;
  bool namesPreset = false;
  bool hardwareLost = false;  // a hardware encoder was asked for and is not there
  bool fdkLost = false;
  bool copiesUnframed = false;  // sound is copied from a film that does not describe it in a header
  bool vaapiUsed = false;
  std::string engine;  // the encoder, if it is one of a video engine
  bool namesVaapiDevice = false;
  bool namesFilter = false;
  bool resizes = false;
  bool namesBitStreamFilter = false;
  std::string input;
  std::string seek;      // the input's start position, as given
  double start = 0;      // the same in seconds
  double preroll = 0;    // how much earlier the input is entered, in seconds; cut off again
  std::string offset;    // where the output's clock starts, as given
  std::string size;      // the picture size asked for
  bool isMusic = false;  // the film's picture is a cover and stays away
  SoundWish sound = SoundWish::kStereo;
  long channels = 0;           // that were asked for; 0 for those of the film
  std::string soundEncoder;    // as given; "" for the container's usual one
  std::string pictureEncoder;  // the same for the picture
  double ceiling = 0;          // the highest bit rate that was asked for; 0 if none was
  bool namesSoundFilter = false;
  std::string toneMapping;        // filters; empty for a film of standard dynamic range
  bool lacksToneMapping = false;  // the film needs it, and this FFmpeg has no filter for it
  double fragmentStart = 0;       // where the first fragment is wanted, in seconds
  Strings lost;                   // encoders that are replaced
  SegmentRequest segments;
  SegmentEntry entry;
  std::string container;  // of a stream
  std::string fragments;  // the multiplexer's options for it, each after a colon
};

struct Option;

struct Argument {
  const Option* option = nullptr;  // null for one that is passed on as it is
  bool behindInput = false;
  std::string name;
  std::string value;
};

using Observe = void (*)(const Argument&, Facts&);
using Emit = void (*)(const Argument&, const Facts&, Strings&);

struct Option {
  std::string_view name;  // also matches with a stream specifier after it: "-c:v" is "-c:v:0" too
  std::optional<ValueKind> value;  // nothing for an option that takes none
  Observe observe;                 // what it tells about the command line
  Emit emit;                       // what it becomes
};

// Values are checked as they are read from the command line.
double ValueOf(const Argument& argument) {
  return ParseValue(*argument.option->value, argument.value).value_or(0);
}

// --- What options tell ---

void Nothing(const Argument&, Facts&) {}
void HasInput(const Argument& argument, Facts& facts) {
  facts.hasInput = true;
  facts.input = argument.value;
}
void KeepsFilmClock(const Argument&, Facts& facts) {
  facts.keepsFilmClock = true;
}
void NamesPreset(const Argument&, Facts& facts) {
  facts.namesPreset = true;
}
void NamesVaapiDevice(const Argument&, Facts& facts) {
  facts.namesVaapiDevice = true;
}
void NamesBitStreamFilter(const Argument&, Facts& facts) {
  facts.namesBitStreamFilter = true;
}
void NamesFilter(const Argument& argument, Facts& facts) {
  facts.namesFilter = true;
  facts.resizes |= argument.value.find("scale") != std::string::npos;
}
void NamesSound(const Argument& argument, Facts& facts) {
  facts.sound = static_cast<SoundWish>(std::lround(ValueOf(argument)));
}
void NamesChannels(const Argument& argument, Facts& facts) {
  facts.channels = std::lround(ValueOf(argument));
}
void NamesSoundFilters(const Argument& argument, Facts& facts) {
  facts.namesSoundFilter = true;
  facts.segments.soundFilters = argument.value;
}
void NamesSoundRate(const Argument& argument, Facts& facts) {
  facts.segments.soundRate = std::lround(ValueOf(argument));
}
void NamesMusic(const Argument& argument, Facts& facts) {
  facts.isMusic = ValueOf(argument) > 0;
}
void NamesSegmentStart(const Argument& argument, Facts& facts) {
  facts.segments.isWanted = true;
  facts.segments.start = ValueOf(argument);
}
void NamesSegmentLength(const Argument& argument, Facts& facts) {
  facts.segments.length = ValueOf(argument);
}
void NamesSegmentNumber(const Argument& argument, Facts& facts) {
  facts.segments.number = static_cast<int>(ValueOf(argument));
}
void NamesFragmentLength(const Argument& argument, Facts& facts) {
  facts.segments.isWanted = true;
  facts.segments.areFragments = true;
  facts.segments.length = ValueOf(argument);
}
void NamesFragmentStart(const Argument& argument, Facts& facts) {
  facts.fragmentStart = ValueOf(argument);
}
void NamesCeiling(const Argument& argument, Facts& facts) {
  facts.ceiling = ValueOf(argument);
}
void NamesPictureBits(const Argument& argument, Facts& facts) {
  facts.segments.pictureBits = std::lround(ValueOf(argument));
}
void NamesSoundBits(const Argument& argument, Facts& facts) {
  facts.segments.soundBits = std::lround(ValueOf(argument));
}
void NamesContainer(const Argument& argument, Facts& facts) {
  facts.container = argument.behindInput ? argument.value : facts.container;
}
// As an option of the multiplexer. Colons and equals signs separate these.
void NamesFragments(const Argument& argument, Facts& facts) {
  facts.fragments += ":" + argument.name.substr(1) + "=" + argument.value;
}
void NamesFragmentFlags(const Argument& argument, Facts& facts) {
  facts.fragments += ":movflags=" + argument.value + kClockOfFragments;
}
void NamesCuts(const Argument& argument, Facts& facts) {
  facts.segments.cutsAnywhere = ValueOf(argument) > 0;
}
void NamesSize(const Argument& argument, Facts& facts) {
  facts.size = argument.value;
  facts.resizes = true;
}
void NamesAspect(const Argument&, Facts& facts) {
  facts.resizes = true;
}
void NamesOffset(const Argument& argument, Facts& facts) {
  facts.offset = argument.value;
}

// Behind the input the same option cuts the output, which moves no clock.
void NamesSeek(const Argument& argument, Facts& facts) {
  if (!argument.behindInput) {
    facts.seek = argument.value;
    facts.start = ValueOf(argument);
  }
}

bool IsLost(const Facts& facts, std::string_view encoder) {
  return std::find(facts.lost.begin(), facts.lost.end(), encoder) != facts.lost.end();
}

void NamesEncoder(const Argument& argument, Facts& facts) {
  const Encoder* encoder = FindEncoder(argument.value);
  if (encoder == nullptr || IsLost(facts, encoder->name)) {
    return;
  }
  if (facts.surroundings->canEncode(encoder->name)) {
    facts.vaapiUsed |= encoder->kind == Kind::kVaapi;
    facts.engine = IsOfEngine(*encoder) ? encoder->name : facts.engine;
    return;
  }
  facts.lost.emplace_back(encoder->name);
  facts.fdkLost |= encoder->kind == Kind::kFdkAac;
  facts.hardwareLost |= IsOfEngine(*encoder);
}

void NamesVideoEncoder(const Argument& argument, Facts& facts) {
  facts.copiesVideo |= argument.value == "copy";
  facts.segments.takesFineClock |= argument.value == kFineClockEncoder;
  facts.pictureEncoder = argument.value;
  NamesEncoder(argument, facts);
}

void NamesSoundEncoder(const Argument& argument, Facts& facts) {
  facts.segments.copiesSound |= argument.value == "copy";
  facts.soundEncoder = argument.value;
  NamesEncoder(argument, facts);
}

// Without a stream specifier, that is: "-c:s copy" is about neither.
void NamesEveryEncoder(const Argument& argument, Facts& facts) {
  if (argument.name == argument.option->name && argument.value == "copy") {
    facts.copiesVideo = true;
    facts.segments.copiesSound = true;
  }
}

// --- What options become ---

void Append(Strings& out, std::initializer_list<std::string> more) {
  out.insert(out.end(), more.begin(), more.end());
}

void AppendUnlessEmpty(const std::string& option, const std::string& value, Strings& out) {
  if (!value.empty()) {
    Append(out, {option, value});
  }
}

void Same(const Argument& argument, const Facts&, Strings& out) {
  Append(out, {argument.name, argument.value});
}

void Dropped(const Argument&, const Facts&, Strings&) {}

std::string Seconds(double seconds) {
  std::array<char, 32> text;
  snprintf(text.data(), text.size(), "%.3f", seconds);
  return text.data();
}

// What segments need instead is said at the end of the command line.
void UnlessSegments(const Argument& argument, const Facts& facts, Strings& out) {
  if (!facts.segments.isWanted || !argument.behindInput) {
    Same(argument, facts, out);
  }
}

void UnlessStream(const Argument& argument, const Facts& facts, Strings& out) {
  if (!facts.segments.isStream) {
    Same(argument, facts, out);
  }
}

void KeyFrames(const Argument& argument, const Facts& facts, Strings& out) {
  if (facts.segments.isStream) {
    Same(argument, facts, out);
  } else {
    UnlessSegments(argument, facts, out);
  }
}

bool EncodesSound(const Facts& facts) {
  return !facts.segments.copiesSound || facts.copiesUnframed;
}

// Of the encoders that profiles name, those of AAC alone take more than two channels. The manifest
// of fragments promises two.
bool KeepsChannels(const Facts& facts) {
  const bool isAac = facts.soundEncoder == "aac" || facts.soundEncoder == "libfdk_aac";
  return facts.sound == SoundWish::kOriginal && isAac && !facts.segments.areFragments;
}

// What is added to the sound's filters; empty where nothing is mixed.
std::string Mix(const Facts& facts) {
  constexpr long kStereo = 2;
  const bool isMixed = EncodesSound(facts) && facts.channels == kStereo && !KeepsChannels(facts);
  return isMixed ? StereoMix(facts.sound == SoundWish::kNight) : "";
}

// Options of the picture have no effect then.
void Music(const Argument&, const Facts& facts, Strings& out) {
  if (facts.isMusic) {
    out.emplace_back("-vn");
  }
}

// Whoever copies the sound of a film may have left the filters of an encoder in place.
void SoundFilters(const Argument& argument, const Facts& facts, Strings& out) {
  if (EncodesSound(facts) && !facts.segments.isWanted) {
    Append(out, {argument.name, JoinFilters(argument.value, Mix(facts))});
  }
}

void Channels(const Argument& argument, const Facts& facts, Strings& out) {
  if (!KeepsChannels(facts)) {
    Same(argument, facts, out);
  }
}

// Each key frame states its parameter sets.
bool StatesSets(const Facts& facts) {
  return facts.segments.areFragments || facts.segments.isStream;
}

void BitStreamFilters(const Argument& argument, const Facts& facts, Strings& out) {
  const bool cut = (facts.segments.isWanted && facts.copiesVideo) || StatesSets(facts);
  Append(out, {argument.name, cut ? Decodable(argument.value, facts.segments) : argument.value});
}

// A seek to the start is none: it would lose what a film without an index has before its first
// entry.
void Seek(const Argument& argument, const Facts& facts, Strings& out) {
  if (argument.behindInput) {
    Same(argument, facts, out);
    return;
  }
  const double seek = facts.segments.isWanted ? facts.entry.seek : facts.start - facts.preroll;
  const bool asGiven = !facts.segments.isWanted && facts.preroll <= 0;
  if (seek > 0) {
    Append(out, {argument.name, asGiven ? argument.value : Seconds(seek)});
  }
}

// The encoder that does the work of the named one here.
std::string UsedEncoder(const std::string& name, const Facts& facts) {
  return IsLost(facts, name) ? std::string(FindEncoder(name)->replacement) : name;
}

void ReplacedEncoder(const Argument& argument, const Facts& facts, Strings& out) {
  Append(out, {argument.name, UsedEncoder(argument.value, facts)});
}

// For options of picture encoders: an option that only another one knows is left out.
void ForPictures(const Argument& argument, const Facts& facts, Strings& out) {
  if (TakesOption(UsedEncoder(facts.pictureEncoder, facts), argument.option->name)) {
    Same(argument, facts, out);
  }
}

void ForSound(const Argument& argument, const Facts& facts, Strings& out) {
  if (TakesOption(UsedEncoder(facts.soundEncoder, facts), argument.option->name)) {
    Same(argument, facts, out);
  }
}

// The limits of a profile belong to the profile's own rate. The rate may have been changed for the
// film, and the limits follow it.
bool HasOtherCeiling(const Facts& facts) {
  return facts.ceiling > 0 && facts.segments.pictureBits > 0 &&
         std::lround(facts.ceiling) != facts.segments.pictureBits;
}

void Ceiling(const Argument& argument, const Facts& facts, Strings& out) {
  const long bits = facts.segments.pictureBits;
  Append(out, {argument.name, HasOtherCeiling(facts) ? std::to_string(bits) : argument.value});
}

// Keeps the buffer's length in seconds.
void BufferSize(const Argument& argument, const Facts& facts, Strings& out) {
  const double share = static_cast<double>(facts.segments.pictureBits) / facts.ceiling;
  Append(out, {argument.name, HasOtherCeiling(facts)
                                  ? std::to_string(std::lround(ValueOf(argument) * share))
                                  : argument.value});
}

// Such AAC cannot be put into Matroska, and the command line does not tell whether it is AAC.
void SoundEncoder(const Argument& argument, const Facts& facts, Strings& out) {
  if (facts.copiesUnframed && argument.value == "copy") {
    Append(out, {argument.name, kSoundOfUnframed});
  } else {
    ReplacedEncoder(argument, facts, out);
  }
}

void UnlessHardwareLost(const Argument& argument, const Facts& facts, Strings& out) {
  if (!facts.hardwareLost) {
    Same(argument, facts, out);
  }
}

// Frames on the graphics card have the card's format.
void PixelFormat(const Argument& argument, const Facts& facts, Strings& out) {
  if (!facts.vaapiUsed || !argument.behindInput) {
    Same(argument, facts, out);
  }
}

void UnlessFdkLost(const Argument& argument, const Facts& facts, Strings& out) {
  if (!facts.fdkLost) {
    Same(argument, facts, out);
  }
}

// Frames on the graphics card cannot pass the software scaler that this option would put behind the
// upload, and tones are mapped faster when pictures are small: the size joins the filters.
bool SizeIsFilter(const Facts& facts) {
  return facts.vaapiUsed || facts.segments.areFragments || !facts.toneMapping.empty();
}

void Size(const Argument& argument, const Facts& facts, Strings& out) {
  if (!SizeIsFilter(facts)) {
    Same(argument, facts, out);
  }
}

void Preset(const Argument& argument, const Facts& facts, Strings& out) {
  if (!TakesOption(UsedEncoder(facts.pictureEncoder, facts), argument.option->name)) {
    return;
  }
  const bool known = std::find(kSoftwarePresets.begin(), kSoftwarePresets.end(), argument.value) !=
                     kSoftwarePresets.end();
  if (known && !facts.engine.empty()) {
    return;  // it was meant for the software that may have to stand in
  }
  Append(out, {argument.name, facts.hardwareLost && !known ? kFallbackPreset : argument.value});
}

void VideoProfile(const Argument& argument, const Facts& facts, Strings& out) {
  const bool rename = facts.hardwareLost && argument.value == "constrained_baseline";
  Append(out, {argument.name, rename ? "baseline" : argument.value});
}

// The shape follows from the film whatever the size: pixels are square where the film does not say
// otherwise, and a scaler keeps the shape of what it knows.
std::string Shaped(const std::string& chain, const Facts& facts) {
  return facts.resizes && !facts.copiesVideo ? WithPixelShape(chain) : chain;
}

// The size comes first: there is less to map then.
std::string ToneMapped(const std::string& chain, const Facts& facts) {
  if (facts.toneMapping.empty()) {
    return chain;
  }
  const std::string scaler = facts.segments.areFragments ? "" : ScaleFilter(facts.size);
  return JoinFilters(JoinFilters(chain, scaler), facts.toneMapping);
}

// What is cut off is not scaled.
std::string CutFilters(const std::string& chain, const Facts& facts) {
  const bool isCut = facts.segments.isWanted && !facts.copiesVideo;
  const std::string cut = isCut ? WithoutLead(chain, facts.entry) : chain;
  const std::string fitted = facts.segments.areFragments ? Fitted(cut, facts.size) : cut;
  const std::string mapped = facts.vaapiUsed ? fitted : ToneMapped(fitted, facts);
  return isCut ? Marked(mapped, facts.segments, facts.entry) : mapped;
}

// The chain that ends on the graphics card.
std::string OnDevice(const std::string& chain, const Facts& facts) {
  return VaapiFilters(chain, JoinFilters(ScaleFilter(facts.size), facts.toneMapping));
}

// The shape of encoded pictures comes from the film, not from what was asked for.
void Aspect(const Argument& argument, const Facts& facts, Strings& out) {
  if (facts.copiesVideo || !argument.behindInput) {
    Same(argument, facts, out);
  }
}

void VideoFilters(const Argument& argument, const Facts& facts, Strings& out) {
  std::string chain = argument.value;
  if (facts.hardwareLost) {
    chain = SoftwareFilters(chain);
  } else if (facts.vaapiUsed) {
    chain = OnDevice(chain, facts);
  }
  AppendUnlessEmpty(argument.name, CutFilters(Shaped(chain, facts), facts), out);
}

void MovFlags(const Argument& argument, const Facts& facts, Strings& out) {
  if (!facts.segments.isStream) {
    const char* clock = facts.keepsFilmClock ? kClockOfFragments : "";
    Append(out, {argument.name, argument.value + clock});
  }
}

bool IsDescriptor(const std::string& input) {
  return input.rfind("pipe:", 0) == 0 || input.rfind("fd:", 0) == 0;
}

// The guards stand right before the input, so that they override whatever was said earlier. A name
// is only ever a local file's name, whatever it looks like.
void GuardedInput(const Argument& argument, const Facts& facts, Strings& out) {
  if (facts.copiesVideo) {
    // Copied pictures start at the key frame before the seek point; decoded sound shall start there
    // too.
    out.emplace_back("-noaccurate_seek");
  }
  const bool descriptor = IsDescriptor(argument.value);
  Append(out, {"-protocol_whitelist", "file,pipe,fd", "-format_whitelist", kSelfContainedFormats});
  Append(out, {"-i", descriptor ? argument.value : "file:" + argument.value});
}

// --- The table ---

using V = ValueKind;
constexpr std::nullopt_t kNoValue = std::nullopt;

constexpr auto kOptions = std::to_array<Option>({
    {"-i", V::kAny, HasInput, GuardedInput},
    {"-ss", V::kTime, NamesSeek, Seek},
    {"-prefer_smd", kNoValue, Nothing, Dropped},
    {"-copyts", kNoValue, KeepsFilmClock, Dropped},
    {"-webm_seek_time", V::kSeconds, NamesOffset, Dropped},
    {"-movflags", V::kAny, NamesFragmentFlags, MovFlags},
    {"-frag_duration", V::kAny, NamesFragments, UnlessStream},
    {"-write_tmcd", V::kAny, NamesFragments, UnlessStream},
    {"-vcodec", V::kAny, NamesVideoEncoder, ReplacedEncoder},
    {"-c:v", V::kAny, NamesVideoEncoder, ReplacedEncoder},
    {"-codec:v", V::kAny, NamesVideoEncoder, ReplacedEncoder},
    {"-acodec", V::kAny, NamesSoundEncoder, SoundEncoder},
    {"-c:a", V::kAny, NamesSoundEncoder, SoundEncoder},
    {"-codec:a", V::kAny, NamesSoundEncoder, SoundEncoder},
    {"-c", V::kAny, NamesEveryEncoder, Same},
    {"-codec", V::kAny, NamesEveryEncoder, Same},
    {"-preset", V::kAny, NamesPreset, Preset},
    {"-profile:v", V::kAny, Nothing, VideoProfile},
    {"-s", V::kSize, NamesSize, Size},
    {"-aspect", V::kAspect, NamesAspect, Aspect},
    {"-maxrate", V::kBitRate, NamesCeiling, Ceiling},
    {"-bufsize", V::kBitRate, Nothing, BufferSize},
    {"-pix_fmt", V::kAny, Nothing, PixelFormat},
    {"-ac", V::kChannels, NamesChannels, Channels},
    {"-sound", V::kSound, NamesSound, Dropped},
    {"-music", V::kFlag, NamesMusic, Music},
    {"-vf", V::kAny, NamesFilter, VideoFilters},
    {"-filter:v", V::kAny, NamesFilter, VideoFilters},
    {"-bsf:v", V::kAny, NamesBitStreamFilter, BitStreamFilters},
    {"-ar", V::kSampleRate, NamesSoundRate, UnlessSegments},
    {"-af", V::kAny, NamesSoundFilters, SoundFilters},
    {"-filter:a", V::kAny, NamesSoundFilters, SoundFilters},
    {"-f", V::kAny, NamesContainer, UnlessSegments},
    {"-force_key_frames", V::kAny, Nothing, KeyFrames},
    {"-enc_time_base", V::kAny, Nothing, UnlessSegments},
    {"-avoid_negative_ts", V::kAny, Nothing, UnlessSegments},
    {"-fragment_length", V::kLength, NamesFragmentLength, Dropped},
    {"-seek_time", V::kSeconds, NamesFragmentStart, Dropped},
    {"-filled", V::kFlag, Nothing, Dropped},
    {"-vb", V::kBitRate, NamesPictureBits, Same},
    {"-ab", V::kBitRate, NamesSoundBits, Same},
    {"-hls_seek_time", V::kMilliseconds, NamesSegmentStart, Dropped},
    {"-segment_time", V::kLength, NamesSegmentLength, UnlessSegments},
    {"-segment_start_number", V::kNumber, NamesSegmentNumber, UnlessSegments},
    {"-segment_format", V::kAny, Nothing, UnlessSegments},
    {"-segment_list_type", V::kAny, Nothing, UnlessSegments},
    {"-segment_time_delta", V::kDifference, Nothing, UnlessSegments},
    {"-individual_header_trailer", V::kFlag, Nothing, UnlessSegments},
    {"-break_non_keyframes", V::kFlag, NamesCuts, UnlessSegments},
    {"-vaapi_device", V::kAny, NamesVaapiDevice, UnlessHardwareLost},
    {"-qsv_device", V::kAny, Nothing, UnlessHardwareLost},
    {"-init_hw_device", V::kAny, NamesVaapiDevice, UnlessHardwareLost},
    {"-filter_hw_device", V::kAny, Nothing, UnlessHardwareLost},
    {"-hwaccel", V::kAny, Nothing, UnlessHardwareLost},
    {"-hwaccel_device", V::kAny, Nothing, UnlessHardwareLost},
    {"-hwaccel_output_format", V::kAny, Nothing, UnlessHardwareLost},
    {"-profile:a", V::kAny, Nothing, UnlessFdkLost},
    {"-crf", V::kAny, Nothing, ForPictures},
    {"-tune", V::kAny, Nothing, ForPictures},
    {"-x264-params", V::kAny, Nothing, ForPictures},
    {"-x264opts", V::kAny, Nothing, ForPictures},
    {"-deadline", V::kAny, Nothing, ForPictures},
    {"-cpu-used", V::kAny, Nothing, ForPictures},
    {"-lag-in-frames", V::kAny, Nothing, ForPictures},
    {"-auto-alt-ref", V::kAny, Nothing, ForPictures},
    {"-row-mt", V::kAny, Nothing, ForPictures},
    {"-tile-columns", V::kAny, Nothing, ForPictures},
    {"-rc_mode", V::kAny, Nothing, ForPictures},
    {"-low_power", V::kAny, Nothing, ForPictures},
    {"-async_depth", V::kAny, Nothing, ForPictures},
    {"-look_ahead", V::kAny, Nothing, ForPictures},
    {"-rc", V::kAny, Nothing, ForPictures},
    {"-cq", V::kAny, Nothing, ForPictures},
    {"-num_output_buffers", V::kAny, Nothing, ForPictures},
    {"-num_capture_buffers", V::kAny, Nothing, ForPictures},
    {"-aac_coder", V::kAny, Nothing, ForSound},
    {"-afterburner", V::kAny, Nothing, ForSound},
    {"-vbr", V::kAny, Nothing, ForSound},
    {"-signaling", V::kAny, Nothing, ForSound},
    {"-eld_sbr", V::kAny, Nothing, ForSound},
});

bool Names(const Option& option, std::string_view text) {
  const size_t length = option.name.size();
  return text.substr(0, length) == option.name && (text.size() == length || text[length] == ':');
}

const Option* FindOption(std::string_view text) {
  const auto row = std::find_if(kOptions.begin(), kOptions.end(),
                                [&](const Option& option) { return Names(option, text); });
  return row == kOptions.end() ? nullptr : &*row;
}

// --- Reading and writing the command line ---

// All but the last argument, which is the output. Returns what is wrong, or an empty text.
std::string Parse(const Strings& arguments, std::vector<Argument>& parsed) {
  bool behindInput = false;
  for (size_t i = 0; i + 1 < arguments.size(); ++i) {
    Argument argument;
    argument.option = FindOption(arguments[i]);
    argument.name = arguments[i];
    argument.behindInput = behindInput;
    behindInput |= arguments[i] == "-i";
    if (argument.option != nullptr && argument.option->value) {
      if (i + 2 >= arguments.size()) {
        return "no value for " + arguments[i] + ", or no output after it";
      }
      argument.value = arguments[++i];
      const std::string error =
          ValueComplaint(argument.name, *argument.option->value, argument.value);
      if (!error.empty()) {
        return error;
      }
    }
    parsed.push_back(std::move(argument));
  }
  return "";
}

// A film without an index is entered early enough to meet a key frame before the seek point. Copied
// pictures cannot be cut off again between key frames.
double Preroll(const Facts& facts) {
  const double seek = facts.start;
  const bool wanted = seek > 0 && !facts.copiesVideo && !facts.segments.isWanted &&
                      facts.surroundings->lacksIndex(facts.input);
  return wanted ? std::min(seek, kPreroll) : 0;
}

// Only what plays while it comes has a clock of its own and yet copies sound.
bool CopiesUnframed(const Facts& facts) {
  return facts.segments.copiesSound && !facts.copiesVideo && !facts.offset.empty() &&
         facts.surroundings->lacksIndex(facts.input);
}

// A film that comes through a pipe can be looked at only once.
void MapTones(Facts& facts) {
  if (facts.copiesVideo || !facts.hasInput || IsDescriptor(facts.input)) {
    return;
  }
  const auto range = facts.surroundings->findHighRange(facts.input);
  facts.lacksToneMapping = range && !facts.surroundings->hasFilter("zscale");
  facts.toneMapping = range && !facts.lacksToneMapping ? ToneMapping(*range) : "";
}

// A film that comes through a pipe was entered by whoever sends it.
void EnterForSegments(Facts& facts) {
  SegmentRequest& segments = facts.segments;
  if (segments.areFragments) {
    segments.start = FragmentStart(facts.fragmentStart, segments.length);
  }
  segments.isSeekable = !IsDescriptor(facts.input);
  segments.copiesPictures = facts.copiesVideo;
  segments.takesFineClock |= facts.hardwareLost;
  segments.lacksIndex =
      segments.isSeekable && segments.isWanted && facts.surroundings->lacksIndex(facts.input);
  segments.clockJumps =
      segments.lacksIndex && segments.start > 0 && facts.surroundings->clockJumps(facts.input);
  facts.entry = EnterFilm(segments);
}

Facts Observed(const std::vector<Argument>& parsed, const Surroundings& surroundings) {
  Facts facts;
  facts.surroundings = &surroundings;
  for (const Argument& argument : parsed) {
    if (argument.option != nullptr) {
      argument.option->observe(argument, facts);
    }
  }
  facts.preroll = Preroll(facts);
  facts.copiesUnframed = CopiesUnframed(facts);
  MapTones(facts);
  facts.segments.soundFilters = JoinFilters(facts.segments.soundFilters, Mix(facts));
  if (facts.segments.isWanted) {
    EnterForSegments(facts);
  }
  return facts;
}

// Fragments are called by their rates, and pictures that are copied cannot be cut where the
// manifest says.
std::string FragmentComplaint(const Facts& facts, const std::string& output) {
  const FragmentPlan plan = PlanFragments(facts.segments, output);
  if (plan.videoRate.empty() || plan.audioRate.empty()) {
    return "no bit rates for fragments: -vb or -ab is missing";
  }
  if (facts.copiesVideo || facts.segments.copiesSound) {
    return "fragments cannot be made of copied streams";
  }
  return output.empty() ? "no folder for the fragments" : "";
}

std::string Complaint(const Strings& arguments, const Facts& facts) {
  if (FindOption(arguments.back()) != nullptr) {
    return "no output: the command line ends with " + arguments.back();
  }
  if (!facts.hasInput) {
    return "no input: -i is missing";
  }
  return facts.segments.areFragments ? FragmentComplaint(facts, arguments.back()) : "";
}

// What holds for every command line. Nothing but the film may reach the stream's descriptors.
void AppendGeneral(const Surroundings& surroundings, Strings& out) {
  Append(out, {surroundings.executable, "-nostdin", "-hide_banner", "-loglevel", "warning",
               "-nostats", "-y"});
  if (surroundings.progressFd >= 0) {
    Append(out,
           {"-progress", "pipe:" + std::to_string(surroundings.progressFd), "-stats_period", "2"});
  }
}

// The picture filters of a command line that has none.
std::string AddedFilters(const Facts& facts) {
  const std::string chain = facts.vaapiUsed ? OnDevice("", facts) : "";
  return CutFilters(Shaped(chain, facts), facts);
}

// What a hardware encoder needs that is there, and what stands in for one that is not.
void AppendEncoderNeeds(const Facts& facts, Strings& out) {
  if (facts.hardwareLost && !facts.namesPreset) {
    Append(out, {"-preset", kFallbackPreset});
  }
  for (const KeyFrameOption& row : kKeyFrameOptions) {
    if (row.encoder == facts.engine) {
      Append(out, {row.name, "1"});
    }
  }
  if (!facts.namesFilter) {
    AppendUnlessEmpty("-vf", AddedFilters(facts), out);
  }
  if (!facts.namesSoundFilter && !facts.segments.isWanted) {
    AppendUnlessEmpty("-af", Mix(facts), out);
  }
  if (StatesSets(facts) && !facts.namesBitStreamFilter) {
    Append(out, {"-bsf:v", Decodable("", facts.segments)});
  }
}

// FFmpeg starts every output at 0, wherever the source's clock stands; moving that by the seek
// gives the film's own time line. The multiplexer's usual start-up delay would shift it again.
void AppendClock(const Facts& facts, Strings& out) {
  if (facts.preroll > 0) {
    Append(out, {"-ss", Seconds(facts.preroll)});
  }
  if (facts.keepsFilmClock) {
    Append(out, {"-output_ts_offset", facts.seek.empty() ? "0" : facts.seek, "-muxdelay", "0"});
  }
  if (!facts.offset.empty()) {
    Append(out, {"-output_ts_offset", facts.offset});
  }
  // Pictures that are encoded start at the seek point; copied sound would start at the key frame
  // before it.
  if (facts.segments.copiesSound && !facts.copiesVideo && !facts.copiesUnframed) {
    Append(out, {"-copypriorss:a", "0"});
  }
}

void EmitArgument(const Argument& argument, const Facts& facts, Strings& out) {
  if (argument.option == nullptr) {
    out.push_back(argument.name);
  } else {
    argument.option->emit(argument, facts, out);
  }
}

Strings Command(const std::vector<Argument>& parsed, const Facts& facts,
                const std::string& output) {
  Strings out;
  AppendGeneral(*facts.surroundings, out);
  if (facts.vaapiUsed && !facts.namesVaapiDevice) {
    Append(out, {"-vaapi_device", facts.surroundings->nodeOf(facts.engine)});
  }
  for (const Argument& argument : parsed) {
    EmitArgument(argument, facts, out);
  }
  AppendEncoderNeeds(facts, out);
  if (facts.segments.isWanted) {
    const Strings options = SegmentOptions(facts.segments, facts.entry);
    out.insert(out.end(), options.begin(), options.end());
    return out;
  }
  AppendClock(facts, out);
  out.push_back(output);
  return out;
}

Strings Notes(const Facts& facts) {
  Strings notes;
  for (const std::string& name : facts.lost) {
    notes.push_back("this machine cannot encode with " + name + ": using " +
                    std::string(FindEncoder(name)->replacement));
  }
  if (facts.lacksToneMapping) {
    notes.push_back("the colors of " + facts.input +
                    " are wrong: this FFmpeg has no filter zscale for a high dynamic range");
  }
  return notes;
}

// Nothing is asked of the machine for a command line that cannot be read.
std::string Read(const Strings& arguments, std::vector<Argument>& parsed) {
  return arguments.empty() ? "no arguments" : Parse(arguments, parsed);
}

// Further and further ahead of the fragments, each time twice as far: the film's last picture is
// seldom far from them.
constexpr double kFirstSearch = 8;  // seconds

std::vector<Strings> PictureSearches(const std::vector<Argument>& parsed, Facts facts) {
  const double start = facts.segments.start;
  std::vector<Strings> searches;
  facts.segments.isSilent = true;
  for (double back = kFirstSearch; facts.entry.seek > 0; back *= 2) {
    facts.entry = {std::max(0.0, start - back), 0, 0};
    searches.push_back(Command(parsed, facts, ""));
  }
  return searches;
}

// A stream with the film's clock, of encoded pictures and sound.
bool CanBeContinued(const Facts& facts, const std::string& output) {
  const bool isEngine = !facts.engine.empty() || facts.hardwareLost;
  const bool isEncoded = !facts.copiesVideo && !facts.segments.copiesSound && !facts.isMusic;
  const bool isContainer = facts.container == kMp4 || facts.container == kTransportStream;
  return isEngine && isEncoded && isContainer && facts.keepsFilmClock && IsDescriptor(output) &&
         !IsDescriptor(facts.input);
}

StreamPlan PlanStream(const std::vector<Argument>& parsed, Facts facts) {
  facts.preroll = 0;
  facts.segments.isWanted = facts.segments.isStream = true;
  facts.segments.start = facts.start;
  EnterForSegments(facts);
  return {Command(parsed, facts, ""),
          {facts.container, kByteStream + (facts.container == kMp4 ? facts.fragments : "")},
          facts.start};
}

// Films without an index cannot be entered by their key frames.
bool IsEnteredAtKeyFrames(const Facts& facts) {
  return !IsDescriptor(facts.input) &&
         (facts.start <= 0 || !facts.surroundings->lacksIndex(facts.input));
}

void PlanOutput(const std::vector<Argument>& parsed, const Facts& facts, const Strings& arguments,
                Translation& translation) {
  const std::string& output = arguments.back();
  if (facts.segments.areFragments) {
    translation.fragments = PlanFragments(facts.segments, output);
    translation.fragments->searches = PictureSearches(parsed, facts);
  } else if (facts.segments.isWanted) {
    translation.segments = PlanSegments(facts.segments, facts.entry, output);
    translation.copy = PlanCopy(arguments, facts.segments, facts.entry);
  } else if (CanBeContinued(facts, output)) {
    translation.stream = PlanStream(parsed, facts);
  } else if (facts.copiesVideo && IsEnteredAtKeyFrames(facts)) {
    translation.copy = PlanByteCopy(arguments, facts.start, facts.segments.soundFilters);
  }
}

}  // namespace

Translation Translate(const std::vector<std::string>& arguments, const Surroundings& surroundings) {
  Translation translation;
  std::vector<Argument> parsed;
  translation.error = Read(arguments, parsed);
  if (!translation.error.empty()) {
    return translation;
  }
  const Facts facts = Observed(parsed, surroundings);
  translation.error = Complaint(arguments, facts);
  if (translation.error.empty()) {
    translation.command = Command(parsed, facts, arguments.back());
    translation.engine = facts.engine;
    translation.isEngineReplaced = facts.hardwareLost;
    translation.notes = Notes(facts);
    PlanOutput(parsed, facts, arguments, translation);
  }
  return translation;
}

}  // namespace orvo::transcoder
