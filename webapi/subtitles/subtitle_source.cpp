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
#include <vector>

#include "platform/confinement.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "util/subtitle.h"
#include "webapi/library/media_library.h"
#include "webapi/subtitles/character_set.h"
#include "webapi/subtitles/subtitle_formats.h"

namespace webapi {
namespace {

constexpr char kExtractor[] = "/usr/bin/ffmpeg";
constexpr int64_t kLargestFile = 20 << 20;
// An extraction that needs more processor time than this is an attack.
constexpr char kExtractionSeconds[] = "300";

constexpr int kSignalled = 128;
constexpr int kTimeLimitReached = 255;

std::string TextIn(const Json::Value& object, const char* key) {
  return object.isObject() && object[key].isString() ? object[key].asString() : "";
}

bool ReadAllOf(int fd, std::string& content) {
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = read(fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0 || content.size() > static_cast<size_t>(kLargestFile)) {
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

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1);
}

class SubtitleFile : public SubtitleSource {
 public:
  // `path` has no links in it.
  SubtitleFile(std::string path, SubtitleParser parse) : path_(std::move(path)), parse_(parse) {}

  bool IsExtracted() const override { return false; }

  bool Read(std::string& text, Answer& refusal) const override {
    bool isTooLarge = false;
    const bool read =
        libmrv::DoActionAsRoot("ReadSubtitle", [&] { return ReadFile(text, isTooLarge); });
    if (isTooLarge) {
      refusal = Answer::Failure(kBadRequest, "This subtitle file is larger than 20 MB.");
      return false;
    }
    if (!read) {
      refusal = Answer::Failure(kNotFound, "This subtitle file cannot be read.");
      return false;
    }
    return true;
  }

  std::string Convert(const std::string& text, const std::string& characterSet) const override {
    return ConvertText(text, characterSet, parse_);
  }

 private:
  // A link or a pipe may have replaced the file. Do not follow the link or wait for the pipe.
  bool ReadFile(std::string& text, bool& isTooLarge) const {
    const orvo::UniqueFd file(
        open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
      return false;
    }
    isTooLarge = status.st_size > kLargestFile;
    return !isTooLarge && ReadAllOf(file.Get(), text);
  }

  std::string path_;
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

// If the film itself is a root, the subtitles beside it are outside every root. A link among them
// must lead into a root.
bool MayBeSeen(const std::string& film, const std::string& path) {
  Answer ignored = Answer::Failure(kNotFound);
  return FolderOf(path) == FolderOf(film) || ResolveMediaPath(path, ignored).has_value();
}

std::unique_ptr<SubtitleSource> FindFile(const std::string& film, const std::string& id) {
  const std::string path = IsListed(film, id) ? RealPath(id) : "";
  const SubtitleParser parse = ParserFor(libmrv::subtitle::PathInfo(id)["extension"].asString());
  if (path.empty() || parse == nullptr || !MayBeSeen(film, path)) {
    return nullptr;
  }
  return std::make_unique<SubtitleFile>(path, parse);
}

// --- Tracks

// How to extract a codec's text from its container. The text stays unchanged if it has a file
// format.
struct Extraction {
  std::string_view codec;
  const char* encoder;
  const char* format;
  SubtitleParser parse;
};
constexpr std::array kExtractions = {
    Extraction{"subrip", "copy", "srt", ParseSrt},
    Extraction{"ass", "copy", "ass", ParseScript},
    Extraction{"ssa", "copy", "ass", ParseScript},
    Extraction{"mov_text", "ass", "ass", ParseScript},
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
};

class SubtitleTrack : public SubtitleSource {
 public:
  SubtitleTrack(std::string film, const Container& container, std::string track,
                const Extraction& extraction)
      : film_(std::move(film)),
        container_(container),
        track_(std::move(track)),
        extraction_(extraction) {}

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

  // Returns false if the extractor could not run. A damaged film gives the readable part.
  bool Extract(std::string& text) const {
    // The child gets this descriptor under the same number. The file is in memory, so nothing
    // remains when the request ends.
    const orvo::UniqueFd pipe(memfd_create("subtitle", 0));
    if (!pipe.IsOpen()) {
      return false;
    }
    const int status =
        orvo::RunConfined(orvo::Job::kSubtitles, {.program = kExtractor, .read = {film_}},
                          CommandLine(pipe.Get()), INT_MAX);
    if (status < 0 || (status >= kSignalled && status != kTimeLimitReached)) {
      return false;
    }
    return lseek(pipe.Get(), 0, SEEK_SET) == 0 && ReadAllOf(pipe.Get(), text);
  }

  // Skips the packets of all other tracks, so a long film is read at about the disk's speed.
  std::vector<std::string> CommandLine(int output) const {
    return {kExtractor,
            "-nostdin",
            "-hide_banner",
            "-loglevel",
            "fatal",
            "-timelimit",
            kExtractionSeconds,
            "-protocol_whitelist",
            "file,pipe",
            "-f",
            container_.demuxer,
            "-i",
            "file:" + film_,
            "-map",
            "0:" + track_,
            "-vn",
            "-an",
            "-dn",
            "-map_metadata",
            "-1",
            "-c:s",
            extraction_.encoder,
            "-fs",
            std::to_string(kLargestFile),
            "-f",
            extraction_.format,
            "pipe:" + std::to_string(output)};
  }

  std::string film_;
  const Container& container_;
  std::string track_;
  const Extraction& extraction_;
};

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

std::unique_ptr<SubtitleSource> FindTrack(const Json::Value& film, const std::string& id) {
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
      return std::make_unique<SubtitleTrack>(TextIn(film, "path"), *container, id, *extraction);
    }
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<SubtitleSource> SubtitleSource::Find(const Json::Value& film, const std::string& id,
                                                     Answer& refusal) {
  const bool isPath = !id.empty() && id.front() == '/';
  auto source = isPath ? FindFile(TextIn(film, "path"), id) : FindTrack(film, id);
  if (source == nullptr) {
    refusal = Answer::Failure(kNotFound, "This film has no such subtitle.");
  }
  return source;
}

}  // namespace webapi
