#include "util/subtitle.h"

#include <fcntl.h>
#include <glob.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/run_as.h"

namespace libmrv::subtitle {
namespace {

constexpr std::array kPatterns = {"*.[sS][rR][tT]", "*.[sS][sS][aA]", "*.[aA][sS][sS]",
                                  "*.[sS][mM][iI]"};
constexpr std::array<std::string_view, 2> kContainers = {"matroska,webm",
                                                         "mov,mp4,m4a,3gp,3g2,mj2"};
constexpr std::array<std::string_view, 4> kTextCodecs = {"subrip", "ass", "ssa", "mov_text"};

// The names in the working directory that match a pattern, sorted.
class Matches {
 public:
  explicit Matches(const char* pattern) {
    if (glob(pattern, GLOB_NOESCAPE, nullptr, &found_) != 0) {
      found_.gl_pathc = 0;
    }
  }
  Matches(const Matches&) = delete;
  Matches& operator=(const Matches&) = delete;
  ~Matches() { globfree(&found_); }

  char** begin() const { return found_.gl_pathv; }
  char** end() const { return found_.gl_pathv + found_.gl_pathc; }

 private:
  glob_t found_{};
};

template <size_t N>
bool Contains(const std::array<std::string_view, N>& list, const std::string& text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

// Checks with the effective ids, which may be root's for the moment.
bool IsReadable(const char* name) {
  return faccessat(AT_FDCWD, name, R_OK, AT_EACCESS) == 0;
}

}  // namespace

Json::Value PathInfo(const std::string& path) {
  const auto slash = path.rfind('/');
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const auto dot = name.rfind('.');
  const std::string stem = name.substr(0, dot);
  const auto languageDot = dot == std::string::npos ? dot : stem.rfind('.');

  Json::Value info(Json::objectValue);
  info["dirname"] = slash == std::string::npos ? "" : path.substr(0, slash);
  info["basename"] = name;
  info["extension"] = dot == std::string::npos ? "" : name.substr(dot + 1);
  info["filename"] = stem;
  info["language"] = languageDot == std::string::npos ? "" : stem.substr(languageDot + 1);
  return info;
}

int GetExternalSubtitle(const std::string& path, Json::Value& files) {
  IF_RUN_AS(0, 0) {
    return GetExternalSubtitleImp(path, files);
  }
  return -1;
}

int GetExternalSubtitleImp(const std::string& path, Json::Value& files) {
  if (path.empty()) {
    return -1;
  }
  const Json::Value info = PathInfo(path);
  const std::string directory = info["dirname"].asString();
  const std::string prefix = info["filename"].asString() + ".";
  // A film in the root directory has an empty directory part.
  if (chdir(directory.empty() ? "/" : directory.c_str()) != 0) {
    return 0;
  }
  for (const char* pattern : kPatterns) {
    for (const char* name : Matches(pattern)) {
      if (std::string_view(name).substr(0, prefix.size()) == prefix && IsReadable(name)) {
        files.append(directory + "/" + name);
      }
    }
  }
  return 0;
}

bool IsAllowEmbaddedSubtitleContiner(const std::string& container) {
  return Contains(kContainers, container);
}

bool IsTextBaseSubtitleCodec(const std::string& codec) {
  return Contains(kTextCodecs, codec);
}

}  // namespace libmrv::subtitle
