#include "webapi/library/picture.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "metadata/video_metadata.h"
#include "platform/confinement.h"
#include "platform/plat.h"
#include "transcoder/filters.h"
#include "util/film_cache.h"
#include "util/film_memory.h"
#include "util/media_formats.h"
#include "webapi/http/send_file.h"
#include "webapi/http/work.h"
#include "webapi/library/art.h"
#include "webapi/library/film_cache.h"
#include "webapi/library/film_card.h"
#include "webapi/library/film_input.h"
#include "webapi/library/film_traits.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using orvo::CachePath;
using Clock = std::chrono::steady_clock;

constexpr char kDecoder[] = "/usr/bin/ffmpeg";
constexpr char kPictureType[] = "image/jpeg";
constexpr char kStartOfPicture[] = "\xff\xd8";
constexpr auto kTimeLimit = std::chrono::seconds(10);
constexpr int kNiceness = 10;
constexpr int kKilled = 128 + SIGKILL;

constexpr int64_t kSmallest = 16;
constexpr int kSecondsEach = 10;  // the part of a film that one thumbnail covers

// Skips pictures that are almost black, and selects the most typical of the next few.
constexpr char kTelling[] =
    "signalstats,metadata=select:key=lavfi.signalstats.YAVG:value=20:function=greater,thumbnail=4";

// Where and how to search the film for a picture.
struct Look {
  double second;
  const char* chooser;
  const char* track = "0:V:0";  // the film's pictures, not its cover
};
constexpr Look kCover = {0, "", "0:v:0"};

// What is known of a film.
struct Source {
  const orvo::MediaFile& file;
  std::string demuxer;  // FFmpeg's name: the film's descriptor has no name to tell it from
  std::string tones;    // filters; "" for a film of a standard range
  FilmInput input;
};

// The colors of a JPEG.
constexpr char kJpegColors[] = "scale=out_color_matrix=bt601:out_range=full,format=yuvj420p";

// The height is at most twice the width. A taller film is scaled down and keeps its shape.
std::string Scale(int width) {
  const std::string w = std::to_string(width);
  return "scale=" + w + ":max(2\\,trunc(min(" + w + "/dar\\,2*" + w + ")/2)*2),setsar=1";
}

std::string Filters(const Source& film, int width, const Look& look) {
  using orvo::transcoder::JoinFilters;
  return JoinFilters(JoinFilters(Scale(width), film.tones), JoinFilters(kJpegColors, look.chooser));
}

// A seek to the start loses a cover, and what a film without an index has before its first entry.
std::vector<std::string> SeekTo(double second) {
  if (second <= 0) {
    return {};
  }
  return {"-noaccurate_seek", "-ss", std::to_string(second)};
}

// What is read, and the picture that is made of it.
std::vector<std::string> DecodeOne(const Source& film, int width, const Look& look) {
  return {"-t",
          "60",
          "-skip_frame",
          "nokey",
          "-protocol_whitelist",
          film.input.Protocols(),
          "-format_whitelist",
          orvo::kSelfContainedFormats,
          "-f",
          film.demuxer,
          "-i",
          film.input.Address(),
          "-map",
          look.track,
          "-frames:v",
          "1",
          "-vf",
          Filters(film, width, look),
          "-threads",
          "1",
          "-c:v",
          "mjpeg",
          "-q:v",
          "4",
          "-f",
          "image2pipe",
          "pipe:1"};
}

// Decodes only key frames, and reads at most one minute of the film.
std::vector<std::string> CommandLine(const Source& film, int width, const Look& look) {
  std::vector<std::string> command = {kDecoder,          "-nostdin", "-hide_banner", "-v", "error",
                                      "-filter_threads", "1",        "-threads",     "1"};
  for (std::vector<std::string> part : {SeekTo(look.second), DecodeOne(film, width, look)}) {
    command.insert(command.end(), part.begin(), part.end());
  }
  return command;
}

// The picture; "" when there is none. False when that is not known, because the time was over or
// the decoder cannot be started.
bool Decode(const Source& film, int width, const Look& look, Clock::time_point deadline,
            std::string& picture) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  int status = kKilled;
  picture.clear();
  const auto memory = orvo::FilmMemory::Take(film.file, orvo::Job::kPicture,
                                             static_cast<int>(std::max<int64_t>(left, 0)));
  if (left > 0 && memory) {
    libmrv::DoActionAsRoot("MakePicture", [&] {
      status =
          orvo::RunConfined(orvo::Job::kPicture, {.program = kDecoder, .files = {film.file.Get()}},
                            CommandLine(film, width, look), static_cast<int>(left), &picture);
      return true;
    });
  }
  if (picture.rfind(kStartOfPicture, 0) != 0) {
    picture.clear();
  }
  return status >= 0 && status != kKilled;
}

// The film, the picture to make, and its path in the cache.
struct Wish {
  const orvo::MediaFile& film;
  std::string path;
  int width = 0;
  std::vector<Look> looks;  // tried in order until one gives a picture
  std::string demuxer;      // of a picture that lies beside films; "" for a film
};

// Nothing if the film cannot be read.
std::optional<Source> SourceOf(const Wish& wish) {
  if (!wish.demuxer.empty()) {
    return Source{wish.film, wish.demuxer, "", {wish.film, wish.demuxer}};
  }
  LibOrvoQMX::VideoMetaData known;
  if (!known.LoadFile(wish.film)) {
    return std::nullopt;
  }
  const std::string demuxer = orvo::DemuxerOf(known.GetContainer());
  return Source{wish.film, demuxer, ToneMappingOf(known), {wish.film, demuxer}};
}

// Tries one look after the other. False if it is not known whether there is a picture.
bool Search(const Source& film, const Wish& wish, Clock::time_point deadline,
            std::string& picture) {
  bool isKnown = true;
  for (const Look& look : wish.looks) {
    isKnown = Decode(film, wish.width, look, deadline, picture) && isKnown;
    if (!picture.empty()) {
      return true;
    }
  }
  return isKnown;
}

// Makes the picture. A film without a picture gets an empty file, so later requests do not try
// again.
bool Make(const Wish& wish) {
  auto source = SourceOf(wish);
  if (!source) {
    return false;
  }
  const auto deadline = Clock::now() + kTimeLimit;
  setpriority(PRIO_PROCESS, 0, kNiceness);
  std::string picture;
  bool isKnown = Search(*source, wish, deadline, picture);
  // An FFmpeg without `zscale` ends at once.
  if (picture.empty() && !source->tones.empty()) {
    source->tones.clear();
    isKnown = Search(*source, wish, deadline, picture);
  }
  return isKnown && KeepInCache(wish.path, picture);
}

bool IsKept(const std::string& path, bool& hasPicture) {
  struct stat status {};
  const bool isKept = stat(path.c_str(), &status) == 0;
  hasPicture = isKept && status.st_size > 0;
  return isKept;
}

Answer SendPicture(const Request& request, const Wish& wish) {
  bool hasPicture = false;
  if (!IsKept(wish.path, hasPicture)) {
    const auto place = TakePlace(kTileWork);
    if (!place) {
      return Answer::Failure(kBusy);
    }
    // Another request may have made the same file in the meantime.
    if (!IsKept(wish.path, hasPicture) && !Make(wish)) {
      return Answer::Failure(kInternal, "The picture could not be made in time.");
    }
  }
  if (!IsKept(wish.path, hasPicture) || !hasPicture ||
      !SendFile(request, wish.path, kPictureType, kKeepPicture)) {
    return Answer::Failure(kNotFound, "The server found no picture in this film.");
  }
  return Answer::Sent();
}

// The requested width, as an even number; nothing if it is out of bounds.
std::optional<int> WidthOf(const Request& request, int64_t usual, int64_t largest) {
  if (!request.Has("width")) {
    return static_cast<int>(usual);
  }
  const auto width = request.Number("width", largest);
  return width && *width >= kSmallest ? std::optional(static_cast<int>(*width) & ~1) : std::nullopt;
}

// A request's film and the width of its picture.
struct Subject {
  orvo::MediaFile film;
  int width;
};
std::optional<Subject> SubjectOf(const Request& request, int64_t usualWidth, int64_t largestWidth,
                                 Answer& refusal) {
  auto film = OpenFilm(request.Text("path"), refusal);
  if (!film) {
    return std::nullopt;
  }
  const auto width = WidthOf(request, usualWidth, largestWidth);
  if (!width) {
    refusal = Answer::Failure(kBadRequest, "The width must be a number from " +
                                               std::to_string(kSmallest) + " to " +
                                               std::to_string(largestWidth) + ".");
    return std::nullopt;
  }
  return Subject{std::move(*film), *width};
}

// The places where a poster is searched.
std::vector<Look> LooksFor(const Json::Value& facts) {
  if (facts["music"].asBool()) {
    return {kCover};
  }
  const double duration = facts["duration"].asUInt();
  return {{duration * 0.15, kTelling}, {duration * 0.4, kTelling}, {duration * 0.15, ""}, {0, ""}};
}

// A picture out of the film itself.
Answer SendOwnPoster(const Request& request, const orvo::MediaFile& film, int width) {
  Answer refusal = Answer::Failure(kInternal);
  Wish wish{film, CachePath(film, "poster 2 " + std::to_string(width), ".jpg"), width, {}, ""};
  bool ignored = false;
  if (!IsKept(wish.path, ignored)) {
    const auto facts = FactsOf(film, refusal);
    if (!facts) {
      return refusal;
    }
    wish.looks = LooksFor(*facts);
  }
  return SendPicture(request, wish);
}

// The picture `art` that lies beside the film or folder; nothing if there is none.
std::optional<Answer> SendArt(const Request& request, const orvo::MediaFile& art, int width) {
  const std::string demuxer = art.IsOpen() ? PictureDemuxer(art) : "";
  if (demuxer.empty()) {
    return std::nullopt;
  }
  const std::string path = CachePath(art, "art " + std::to_string(width), ".jpg");
  return SendPicture(request, {art, path, width, {kCover}, demuxer});
}

constexpr int64_t kUsualPoster = 320;
constexpr int64_t kLargestPoster = 1280;

// A folder's picture: the one in it, or that of its first film.
Answer SendFolderPoster(const Request& request, const std::string& folder, Art art, int width) {
  if (auto answer = SendArt(request, ArtBeside(folder, true, art), width)) {
    return *answer;
  }
  const std::string path = art == Art::kPoster ? FilmForFolder(folder) : "";
  const orvo::MediaFile film = path.empty() ? orvo::MediaFile() : OpenVisible(path);
  if (!film.IsOpen()) {
    return Answer::Failure(kNotFound, "The server found no picture for this folder.");
  }
  const auto answer = SendArt(request, ArtBeside(path, false, art), width);
  return answer ? *answer : SendOwnPoster(request, film, width);
}

// "poster" or "backdrop"; nothing for another word.
std::optional<Art> ArtOf(const Request& request) {
  const std::string word = request.Text("art");
  if (word.empty() || word == "poster") {
    return Art::kPoster;
  }
  return word == "backdrop" ? std::optional(Art::kBackdrop) : std::nullopt;
}

}  // namespace

Answer SendPoster(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto path = ResolveMediaPath(request.Text("path"), refusal);
  const auto width = WidthOf(request, kUsualPoster, kLargestPoster);
  const auto art = ArtOf(request);
  if (!path) {
    return refusal;
  }
  if (!width || !art) {
    return Answer::Failure(kBadRequest, "The width or the name of the picture is wrong.");
  }
  std::error_code failure;
  if (std::filesystem::is_directory(*path, failure)) {
    return SendFolderPoster(request, *path, *art, *width);
  }
  const auto film = OpenFilm(*path, refusal);
  if (!film) {
    return refusal;
  }
  if (auto answer = SendArt(request, ArtBeside(film->Path(), false, *art), *width)) {
    return *answer;
  }
  return *art == Art::kPoster
             ? SendOwnPoster(request, *film, *width)
             : Answer::Failure(kNotFound, "There is no such picture beside this film.");
}

Answer SendThumbnail(const Request& request) {
  constexpr int64_t kUsual = 160;
  constexpr int64_t kLargest = 320;
  Answer refusal = Answer::Failure(kInternal);
  const auto subject = SubjectOf(request, kUsual, kLargest, refusal);
  if (!subject) {
    return refusal;
  }
  const auto& [film, width] = *subject;
  const auto facts = FactsOf(film, refusal);
  if (!facts) {
    return refusal;
  }
  const auto time = request.Seconds("time", (*facts)["duration"].asUInt() + 1.0);
  if (!time) {
    return Answer::Failure(kBadRequest, "The time must be a second within the film.");
  }
  const int second = static_cast<int>(*time) / kSecondsEach * kSecondsEach;
  const std::string what = "thumbnail 2 " + std::to_string(width) + " " + std::to_string(second);
  return SendPicture(request, {film,
                               CachePath(film, what, ".jpg"),
                               width,
                               {{static_cast<double>(second), ""}, {0, ""}},
                               ""});
}

}  // namespace webapi
