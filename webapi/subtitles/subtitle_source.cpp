#include "webapi/subtitles/subtitle_source.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/confinement.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "util/film_memory.h"
#include "util/subtitle.h"
#include "webapi/library/beside.h"
#include "webapi/library/dvd_subtitles.h"
#include "webapi/library/film_input.h"
#include "webapi/library/media_library.h"
#include "webapi/subtitles/character_set.h"
#include "webapi/subtitles/dvd_pictures.h"
#include "webapi/subtitles/subtitle_formats.h"

namespace webapi {
namespace {

constexpr char kExtractor[] = "/usr/bin/ffmpeg";
constexpr int64_t kLargestFile = 20 << 20;
// A track of pictures for a long film has 30 to 50 MB.
constexpr int64_t kLargestPictures = 60 << 20;
// An extraction that needs more processor time than this is an attack.
constexpr char kExtractionSeconds[] = "300";

// Another track of the same film may be extracted for so long.
constexpr int kPatienceMilliseconds = 60000;
constexpr int kSignalled = 128;
constexpr int kTimeLimitReached = 255;

std::string TextIn(const Json::Value& object, const char* key) {
  return object.isObject() && object[key].isString() ? object[key].asString() : "";
}

bool ReadAllOf(int fd, std::string& content, int64_t largest = kLargestFile) {
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = read(fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0 || content.size() > static_cast<size_t>(largest)) {
      return count == 0;
    }
    content.append(buffer.data(), static_cast<size_t>(count));
  }
}

std::string ConvertText(const std::string& text, const std::string& characterSet,
                        SubtitleParser parse) {
  return WriteWebVtt(parse(ToUtf8(text, characterSet)));
}

// --- Files

class SubtitleFile : public SubtitleSource {
 public:
  SubtitleFile(orvo::MediaFile file, SubtitleForm form, SubtitleParser parse)
      : file_(std::move(file)), form_(form), parse_(parse) {}

  SubtitleForm Form() const override { return form_; }

  bool IsExtracted() const override { return false; }

  bool Read(std::string& text, Answer& refusal) const override {
    if (file_.Status().st_size > kLargestFile) {
      refusal = Answer::Failure(kBadRequest, "This subtitle file is larger than 20 MB.");
      return false;
    }
    if (!ReadAllOf(file_.Get(), text)) {
      refusal = Answer::Failure(kNotFound, "This subtitle file cannot be read.");
      return false;
    }
    return true;
  }

  std::string Convert(const std::string& text, const std::string& characterSet) const override {
    return ConvertText(text, characterSet, parse_);
  }

 private:
  orvo::MediaFile file_;
  SubtitleForm form_;
  SubtitleParser parse_;
};

bool IsListed(const std::string& film, const std::string& id) {
  Json::Value files(Json::arrayValue);
  libmrv::subtitle::GetExternalSubtitle(film, files);
  // The search changed to the film's folder. Later code loads libraries, and a search path with an
  // empty entry would look for them there.
  if (chdir("/") != 0) {
    return false;
  }
  return std::any_of(files.begin(), files.end(),
                     [&](const Json::Value& file) { return file.asString() == id; });
}

std::unique_ptr<SubtitleSource> FindFile(const std::string& film, const std::string& id) {
  const std::string path = IsListed(film, id) ? RealPath(id) : "";
  const std::string ending = libmrv::subtitle::PathInfo(id)["extension"].asString();
  const SubtitleParser parse = ParserFor(ending);
  orvo::MediaFile file =
      path.empty() || parse == nullptr ? orvo::MediaFile() : OpenBeside(film, path);
  return file.IsOpen() ? std::make_unique<SubtitleFile>(std::move(file), FormOfFile(ending), parse)
                       : nullptr;
}

// --- Tracks

// How to extract a codec's subtitles from its container. They stay unchanged if they have a file
// format.
struct Extraction {
  std::string_view codec;
  const char* encoder;
  const char* format;
  SubtitleParser parse;  // null for pictures
  bool isDvd = false;    // the extracted track becomes a SUP file
};
constexpr Extraction kDvdExtraction = {"dvd_subtitle", "copy", "matroska", nullptr, true};
constexpr std::array kExtractions = {
    Extraction{"subrip", "copy", "srt", ParseSrt},
    Extraction{"ass", "copy", "ass", ParseScript},
    Extraction{"ssa", "copy", "ass", ParseScript},
    Extraction{"mov_text", "ass", "ass", ParseScript},
    Extraction{"hdmv_pgs_subtitle", "copy", "sup", nullptr},
    kDvdExtraction,
};

// The demuxer of each container whose tracks are shown. The extraction uses the same demuxer as the
// probe.
struct Container {
  std::string_view name;
  const char* demuxer;
};
constexpr std::array kContainers = {
    Container{"matroska,webm", "matroska"},
    Container{"mov,mp4,m4a,3gp,3g2,mj2", "mov"},
    Container{"mpegts", "mpegts"},
};

// What the extractor reads: the film, or files beside it.
struct TrackInput {
  std::vector<std::string> arguments;
  std::vector<int> files;
  std::string protocols = "file,pipe";
};

std::string AddressOf(const orvo::MediaFile& file) {
  return "file:" + file.Address();
}

TrackInput InputOf(const orvo::MediaFile& film, const FilmInput& input,
                   const Container& container) {
  return {{"-f", container.demuxer, "-i", input.Address()}, {film.Get()}, input.Protocols()};
}

TrackInput InputOf(const DvdSubtitles& files) {
  return {{"-f", "vobsub", "-sub_name", AddressOf(files.pictures), "-i", AddressOf(files.index)},
          {files.index.Get(), files.pictures.Get()}};
}

class SubtitleTrack : public SubtitleSource {
 public:
  // The film and the files of the input outlive this object.
  SubtitleTrack(const orvo::MediaFile& film, TrackInput input, std::string track,
                const Extraction& extraction)
      : film_(film), input_(std::move(input)), track_(std::move(track)), extraction_(extraction) {}

  SubtitleForm Form() const override { return FormOfCodec(std::string(extraction_.codec)); }

  bool IsExtracted() const override { return true; }

  bool Read(std::string& text, Answer& refusal) const override {
    if (!Extract(text)) {
      ORVO_LOG("Failed to extract the subtitle track %s", track_.c_str());
      refusal = Answer::Failure(kInternal, "The subtitles could not be read from the film.");
      return false;
    }
    return true;
  }

  // Containers hold UTF-8. The character set, which is for files beside the film, applies only if
  // this film breaks that rule.
  std::string Convert(const std::string& text, const std::string& characterSet) const override {
    return ConvertText(text, IsCharacterSetNeeded(text) ? characterSet : "", extraction_.parse);
  }

 private:
  static bool IsCharacterSetNeeded(const std::string& text) {
    return ToUtf8(text, "UTF-8").find("\xef\xbf\xbd") != std::string::npos;
  }

  // Returns false if the extractor could not run, or could not open the film. A damaged film gives
  // the readable part.
  bool Extract(std::string& text) const {
    // The child gets this descriptor under the same number. The file is in memory, so nothing
    // remains when the request ends.
    orvo::UniqueFd pipe(memfd_create("subtitle", 0));
    if (!pipe.IsOpen()) {
      return false;
    }
    const auto memory = orvo::FilmMemory::Take(film_, orvo::Job::kSubtitles, kPatienceMilliseconds);
    if (!memory) {
      return false;
    }
    const int status =
        orvo::RunConfined(orvo::Job::kSubtitles, {.program = kExtractor, .files = input_.files},
                          CommandLine(pipe.Get()), INT_MAX);
    if (status < 0 || (status >= kSignalled && status != kTimeLimitReached)) {
      return false;
    }
    return ReadExtracted(std::move(pipe), text) &&
           // It has not opened the film if it fails without a word.
           (status == 0 || !text.empty());
  }

  bool ReadExtracted(orvo::UniqueFd file, std::string& text) const {
    if (extraction_.isDvd) {
      text = ReadDvdTrack(orvo::MediaFile::Take(std::move(file), ""), kLargestPictures);
      return true;
    }
    return lseek(file.Get(), 0, SEEK_SET) == 0 && ReadAllOf(file.Get(), text, Largest());
  }

  int64_t Largest() const {
    return Form() == SubtitleForm::kPicture ? kLargestPictures : kLargestFile;
  }

  // Skips the packets of all other tracks, so a long film is read at about the disk's speed.
  std::vector<std::string> CommandLine(int output) const {
    std::vector<std::string> words = {
        kExtractor,   "-nostdin",         "-hide_banner",        "-loglevel",     "fatal",
        "-timelimit", kExtractionSeconds, "-protocol_whitelist", input_.protocols};
    words.insert(words.end(), input_.arguments.begin(), input_.arguments.end());
    const std::string outputs[] = {"-map",
                                   "0:" + track_,
                                   "-vn",
                                   "-an",
                                   "-dn",
                                   "-map_metadata",
                                   "-1",
                                   "-c:s",
                                   extraction_.encoder,
                                   "-fs",
                                   std::to_string(Largest()),
                                   "-f",
                                   extraction_.format,
                                   "pipe:" + std::to_string(output)};
    words.insert(words.end(), std::begin(outputs), std::end(outputs));
    return words;
  }

  const orvo::MediaFile& film_;
  TrackInput input_;
  std::string track_;
  const Extraction& extraction_;
};

// A track in the film.
class FilmTrack : public SubtitleTrack {
 public:
  FilmTrack(const orvo::MediaFile& film, std::unique_ptr<FilmInput> input,
            const Container& container, const std::string& track, const Extraction& extraction)
      : SubtitleTrack(film, InputOf(film, *input, container), track, extraction),
        input_(std::move(input)) {}

 private:
  std::unique_ptr<FilmInput> input_;
};

// A track of a DVD's subtitles beside the film.
class DvdFileTrack : public SubtitleTrack {
 public:
  DvdFileTrack(const orvo::MediaFile& film, std::unique_ptr<DvdSubtitles> files, size_t track)
      : SubtitleTrack(film, InputOf(*files), std::to_string(track), kDvdExtraction),
        files_(std::move(files)) {}

 private:
  std::unique_ptr<DvdSubtitles> files_;
};

std::unique_ptr<SubtitleSource> FindDvdTrack(const orvo::MediaFile& film, size_t track) {
  auto files = DvdSubtitlesBeside(film.Path());
  return files && track < DvdLanguages(files->index).size()
             ? std::make_unique<DvdFileTrack>(
                   film, std::make_unique<DvdSubtitles>(std::move(*files)), track)
             : nullptr;
}

bool IsTrackNumber(const std::string& text) {
  return !text.empty() && text.size() <= 4 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The row of a table whose `name` is `text`; null if there is none.
template <typename Table, typename Name>
auto RowOf(const Table& table, Name name, const std::string& text) -> decltype(table.data()) {
  const auto row = std::find_if(table.begin(), table.end(),
                                [&](const auto& candidate) { return candidate.*name == text; });
  return row == table.end() ? nullptr : &*row;
}

std::unique_ptr<SubtitleSource> FindTrack(const Json::Value& film, const orvo::MediaFile& file,
                                          const std::string& id) {
  const Container* const container =
      RowOf(kContainers, &Container::name, TextIn(film, "container_type"));
  const Json::Value& tracks = film["track_info"];
  if (container == nullptr || !IsTrackNumber(id) || !tracks.isObject() ||
      !tracks["subtitle"].isArray()) {
    return nullptr;
  }
  for (const Json::Value& track : tracks["subtitle"]) {
    const Extraction* const extraction =
        RowOf(kExtractions, &Extraction::codec, TextIn(track, "codec"));
    if (TextIn(track, "track") == id && extraction != nullptr) {
      return std::make_unique<FilmTrack>(
          file, std::make_unique<FilmInput>(file, container->demuxer), *container, id, *extraction);
    }
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<SubtitleSource> SubtitleSource::Find(const Json::Value& film,
                                                     const orvo::MediaFile& file,
                                                     const std::string& id, Answer& refusal) {
  const bool isPath = !id.empty() && id.front() == '/';
  const auto dvdTrack = DvdTrackOf(file.Path(), id);
  auto source = dvdTrack ? FindDvdTrack(file, *dvdTrack)
                : isPath ? FindFile(file.Path(), id)
                         : FindTrack(film, file, id);
  if (source == nullptr) {
    refusal = Answer::Failure(kNotFound, "This film has no such subtitle.");
  }
  return source;
}

}  // namespace webapi
