#include "webapi/streams/film_report.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

#include "contract/passed_progress.h"

namespace webapi {
namespace {

constexpr std::string_view kEnd = orvo::kProgressEnd;

}  // namespace

FilmReport::FilmReport() : file_(memfd_create(orvo::kProgressName, 0)) {
  setenv(orvo::kProgressVariable, std::to_string(file_.Get()).c_str(), 1);
}

FilmReport::~FilmReport() {
  unsetenv(orvo::kProgressVariable);
}

// The transcoder's processes share the file's position, which is left where it is.
bool FilmReport::IsWhole() const {
  struct stat status {};
  std::array<char, kEnd.size()> last{};
  constexpr auto kSize = static_cast<off_t>(last.size());
  return fstat(file_.Get(), &status) == 0 && status.st_size >= kSize &&
         pread(file_.Get(), last.data(), last.size(), status.st_size - kSize) == kSize &&
         std::string_view(last.data(), last.size()) == kEnd;
}

}  // namespace webapi
