#include "transcoder/given_film.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

#include "contract/passed_film.h"

namespace orvo::transcoder {
namespace {

constexpr std::string_view kInput = "-i";

bool IsReadableFile(int descriptor) {
  struct stat status {};
  const int mode = fcntl(descriptor, F_GETFL);
  return mode >= 0 && (mode & O_ACCMODE) != O_WRONLY && fstat(descriptor, &status) == 0 &&
         S_ISREG(status.st_mode);
}

bool IsName(std::string_view demuxer) {
  return std::all_of(demuxer.begin(), demuxer.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
  });
}

}  // namespace

std::optional<GivenFilm> GivenFilm::Find(std::string& error) {
  const char* const variable = getenv(kFilmVariable);
  if (variable == nullptr) {
    return std::nullopt;
  }
  const std::string_view text = variable;
  const size_t space = std::min(text.find(' '), text.size());
  const std::string_view demuxer = text.substr(std::min(space + 1, text.size()));
  int descriptor = -1;
  const auto parsed = std::from_chars(text.data(), text.data() + space, descriptor);
  if (parsed.ec != std::errc() || parsed.ptr != text.data() + space ||
      !IsReadableFile(descriptor) || !IsName(demuxer)) {
    error = std::string(kFilmVariable) + " does not name an open film";
    return std::nullopt;
  }
  return GivenFilm{"/proc/self/fd/" + std::to_string(descriptor), std::string(demuxer)};
}

std::vector<std::string> GivenFilm::InPlaceOf(std::vector<std::string> arguments) const {
  const auto input = std::find(arguments.begin(), arguments.end(), kInput);
  if (input != arguments.end() && input + 1 != arguments.end()) {
    *(input + 1) = address;
  }
  return arguments;
}

void GivenFilm::NameDemuxer(Translation& translation) const {
  const auto name = [this](std::vector<std::string>& command) {
    const auto input = std::find(command.begin(), command.end(), kInput);
    if (!demuxer.empty() && input != command.end()) {
      command.insert(input, {"-f", demuxer});
    }
  };
  name(translation.command);
  if (translation.stream) {
    name(translation.stream->command);
  }
  if (translation.fragments) {
    std::for_each(translation.fragments->searches.begin(), translation.fragments->searches.end(),
                  name);
  }
}

UniqueFd OpenFilm(const std::string& film) {
  return UniqueFd(open(film.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

}  // namespace orvo::transcoder
