#include "transcoder/engine_proof.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>

#include "platform/confinement.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "transcoder/ffmpeg_listing.h"
#include "transcoder/places.h"
#include "transcoder/translation.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

constexpr char kProofFilm[] = "/transcoder_proof_";
constexpr char kEncodersName[] = "/transcoder_encoders";
constexpr int kPatience = 10000;  // milliseconds
// Of software, which does not hang, and of the wrapper, whose first run lists GStreamer's plugins.
constexpr int kLongPatience = 60000;

// The pictures of a proof: a grid of gray squares that changes with each picture.
constexpr int kColumns = 16;
constexpr int kRows = 9;
constexpr int kSquare = 20;
constexpr int kWidth = kColumns * kSquare;
constexpr int kHeight = kRows * kSquare;
constexpr int kRate = 25;
constexpr int kFewPictures = 5;
constexpr int kManyPictures = 25;
constexpr int kNeutral = 128;
constexpr int kTolerance = 8;  // mean difference of a square's gray

struct Size {
  int lines;
  const char* name;  // also as FFmpeg's filters take it
  const char* rate;
};
constexpr auto kSizes = std::to_array<Size>({
    {480, "852x480", "1200k"},
    {720, "1280x720", "2500k"},
    {1080, "1920x1080", "5000k"},
});

constexpr auto kEncoders = std::to_array<std::string_view>(
    {"h264_vaapi", "h264_qsv", "h264_nvenc", "h264_v4l2m2m", "h264_omx", "h264_smd"});

int GrayOf(int column, int row, int picture) {
  constexpr int kDarkest = 40;
  constexpr int kStep = 15;
  constexpr int kGrays = 12;
  return kDarkest + (column * 7 + row * 13 + picture * 31) % kGrays * kStep;
}

std::string Grays(int picture) {
  std::string grays;
  for (int square = 0; square < kColumns * kRows; ++square) {
    grays += static_cast<char>(GrayOf(square % kColumns, square / kColumns, picture));
  }
  return grays;
}

std::string RawPicture(int picture) {
  const std::string grays = Grays(picture);
  std::string raw;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      raw += grays[static_cast<size_t>(y) / kSquare * kColumns + static_cast<size_t>(x) / kSquare];
    }
  }
  return raw + std::string(static_cast<size_t>(kWidth) * kHeight / 2, static_cast<char>(kNeutral));
}

// A file without a name and with this content. A confined process may get one on a file system, and
// none in memory.
UniqueFd Unnamed(const std::string& content) {
  constexpr mode_t kMode = 0600;
  UniqueFd file(open(CacheFile("/").c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kMode));
  if (!file.IsOpen() || !WriteAll(file.Get(), content) || lseek(file.Get(), 0, SEEK_SET) != 0) {
    return {};
  }
  return file;
}

std::string Pipe(const UniqueFd& file) {
  return "pipe:" + std::to_string(file.Get());
}

Strings EncodingOf(const Size& size, const std::string& encoder, const std::string& node,
                   const UniqueFd& pictures) {
  Surroundings surroundings;
  surroundings.executable = kExecutable;
  surroundings.canEncode = [](std::string_view) { return true; };
  surroundings.nodeOf = [&](std::string_view) { return node; };
  return Translate({"-f",          "rawvideo",
                    "-pix_fmt",    "yuv420p",
                    "-video_size", std::to_string(kWidth) + "x" + std::to_string(kHeight),
                    "-framerate",  std::to_string(kRate),
                    "-i",          Pipe(pictures),
                    "-vcodec",     encoder,
                    "-fps_mode",   "vfr",
                    "-vf",         "yadif=deint=interlaced",
                    "-s",          size.name,
                    "-vb",         size.rate,
                    "-maxrate",    size.rate,
                    "-bufsize",    size.rate,
                    "-bf",         "0",
                    "-g",          "300",
                    "-f",          "mpegts",
                    "pipe:1"},
                   surroundings)
      .command;
}

// What the program writes; nothing if it fails or takes too long.
std::optional<std::string> OutputOf(const Strings& command, const UniqueFd& input, bool hardware) {
  Reach reach{.program = kExecutable};
  reach.files = {input.Get()};
  reach.hardware = hardware;
  std::string output;
  const int status =
      RunConfined(Job::kTranscoder, reach, command, hardware ? kPatience : kLongPatience, &output);
  return status == 0 ? std::optional(std::move(output)) : std::nullopt;
}

// The grays of all squares of the encoded pictures.
std::string Decoded(const std::string& stream) {
  const UniqueFd input = Unnamed(stream);
  return OutputOf({kExecutable, "-nostdin", "-loglevel", "quiet", "-f", "mpegts", "-i", Pipe(input),
                   "-vf",
                   "scale=" + std::to_string(kColumns) + ":" + std::to_string(kRows) +
                       ":flags=area,format=yuv420p,extractplanes=y,format=gray",
                   "-f", "rawvideo", "pipe:1"},
                  input, false)
      .value_or("");
}

int MeanDifference(const std::string& one, const std::string& other) {
  int64_t sum = 0;
  for (size_t i = 0; i < one.size(); ++i) {
    sum += std::abs(static_cast<unsigned char>(one[i]) - static_cast<unsigned char>(other[i]));
  }
  return static_cast<int>(sum / static_cast<int64_t>(one.size()));
}

bool ShowsThePictures(const std::string& stream) {
  const std::string decoded = Decoded(stream);
  constexpr size_t kPicture = size_t{kColumns} * kRows;
  bool isSame = decoded.size() == kPicture * kFewPictures;
  for (int picture = 0; isSame && picture < kFewPictures; ++picture) {
    isSame = MeanDifference(Grays(picture), decoded.substr(static_cast<size_t>(picture) * kPicture,
                                                           kPicture)) <= kTolerance;
  }
  return isSame;
}

std::string Pictures(int count) {
  std::string raw;
  for (int picture = 0; picture < count; ++picture) {
    raw += RawPicture(picture);
  }
  return raw;
}

// A file with the pictures as a film of this size. It exists as long as the object.
class ProofFilm {
 public:
  ProofFilm(const Size& size, int count)
      : path_(CacheFile(kProofFilm + std::to_string(getpid()) + ".ts")) {
    constexpr mode_t kMode = 0600;
    const UniqueFd pictures = Unnamed(Pictures(count));
    const auto film =
        OutputOf({kExecutable,   "-nostdin",
                  "-loglevel",   "quiet",
                  "-f",          "rawvideo",
                  "-pix_fmt",    "yuv420p",
                  "-video_size", std::to_string(kWidth) + "x" + std::to_string(kHeight),
                  "-framerate",  std::to_string(kRate),
                  "-i",          Pipe(pictures),
                  "-vf",         std::string("scale=") + size.name + ":flags=neighbor",
                  "-vcodec",     "libx264",
                  "-preset",     "ultrafast",
                  "-f",          "mpegts",
                  "pipe:1"},
                 pictures, false);
    isMade_ = film && ReplaceFile(path_, *film, kMode);
  }
  ProofFilm(const ProofFilm&) = delete;
  ProofFilm& operator=(const ProofFilm&) = delete;
  ~ProofFilm() { unlink(path_.c_str()); }

  // What the wrapper makes of it on the machine's engines; nothing if it fails.
  std::optional<std::string> Wrapped(const Size& size) const {
    const std::string program = SystemPath(kWrapperProgram);
    std::string output;
    const int status =
        isMade_ ? RunWithin(program,
                            {program, "-s", "0", "-i", path_, "--vb", size.rate, "--size",
                             size.name, "--encoders", "hardware", "-o", "fd:1"},
                            kLongPatience, &output)
                : -1;
    return status == 0 ? std::optional(std::move(output)) : std::nullopt;
  }

 private:
  std::string path_;
  bool isMade_ = false;
};

// The pictures, encoded; nothing if that fails.
std::optional<std::string> Encoded(const Size& size, const std::string& encoder,
                                   const std::string& node, int count) {
  if (encoder == kWrapper) {
    return ProofFilm(size, count).Wrapped(size);
  }
  const UniqueFd pictures = Unnamed(Pictures(count));
  return OutputOf(EncodingOf(size, encoder, node, pictures), pictures, true);
}

// Why pictures of this size cannot be encoded; "" if they can.
std::string Complaint(const Size& size, const std::string& encoder, const std::string& node) {
  const auto stream = Encoded(size, encoder, node, kFewPictures);
  const std::string lines = std::to_string(size.lines) + " lines";
  if (!stream) {
    return "It fails to encode pictures of " + lines + ".";
  }
  return ShowsThePictures(*stream) ? ""
                                   : "What it encodes at " + lines + " is not what it was given.";
}

// Seconds of film a second, the start of the program included.
double SpeedAt(const Size& size, const std::string& encoder, const std::string& node) {
  const auto start = Clock::now();
  if (!Encoded(size, encoder, node, kManyPictures)) {
    return 0;
  }
  const std::chrono::duration<double> took = Clock::now() - start;
  return static_cast<double>(kManyPictures) / kRate / took.count();
}

Engine Proof(const std::string& encoder, const std::string& node) {
  Engine engine{.encoder = encoder, .node = node};
  for (const Size& size : kSizes) {
    engine.reason = Complaint(size, encoder, node);
    if (!engine.reason.empty()) {
      break;
    }
    engine.lines = size.lines;
  }
  for (const Size& size : kSizes) {
    if (size.lines == engine.lines) {
      engine.speed = SpeedAt(size, encoder, node);
    }
  }
  return engine;
}

bool IsBetter(const Engine& one, const Engine& other) {
  return one.lines != other.lines ? one.lines > other.lines : one.speed > other.speed;
}

Engine BestOf(const std::string& encoder, FfmpegListing& listing) {
  Engine best{.encoder = encoder};
  const Strings nodes = NodesOf(encoder);
  if (nodes.empty()) {
    best.reason = "This machine has no device for it.";
  } else if (!listing.Has(encoder)) {
    best.reason = "This FFmpeg cannot use it.";
  } else {
    for (const std::string& node : nodes) {
      const Engine engine = Proof(encoder, node);
      best = best.node.empty() || IsBetter(engine, best) ? engine : best;
    }
  }
  return best;
}

// The wrapper chooses the device.
Engine WrapperProof() {
  const Strings nodes = NodesOf(kWrapper);
  return nodes.empty() ? Engine{.encoder = kWrapper, .reason = "This machine has no device for it."}
                       : Proof(kWrapper, nodes.front());
}

}  // namespace

EngineRecord ProveEngines() {
  FfmpegListing listing(kExecutable, "-encoders", CacheFile(kEncodersName));
  EngineRecord record;
  for (const std::string_view encoder : kEncoders) {
    record.Set(BestOf(std::string(encoder), listing));
  }
  record.Set(WrapperProof());
  return record;
}

EngineRecord ProveAndSaveEngines() {
  EngineRecord record = ProveEngines();
  record.Save();
  return record;
}

}  // namespace orvo::transcoder
