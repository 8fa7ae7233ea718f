#include "webapi/library/film_input.h"

#include <sys/mman.h>

#include "metadata/attached_fonts.h"
#include "platform/io.h"

namespace webapi {
namespace {

// This part of a file; 0 is its end.
std::string PartOf(const std::string& file, int64_t begin, int64_t end) {
  return "subfile,,start," + std::to_string(begin) + ",end," + std::to_string(end) + ",,:" + file;
}

}  // namespace

FilmInput::FilmInput(const orvo::MediaFile& film, const std::string& demuxer)
    : address_("file:" + film.Address()) {
  const auto list = demuxer == "matroska" ? LibOrvoQMX::FindLargeAttachments(film) : std::nullopt;
  if (!list) {
    return;
  }
  replacement_.Reset(memfd_create("attachments", 0));
  if (!replacement_.IsOpen() || !orvo::WriteAll(replacement_.Get(), list->emptyStart)) {
    return;
  }
  const auto length = static_cast<int64_t>(list->emptyStart.size());
  address_ = "concat:" + PartOf(address_, 0, list->begin) + "|file:/proc/self/fd/" +
             std::to_string(replacement_.Get()) + "|" + PartOf(address_, list->begin + length, 0);
  protocols_ += ",concat,subfile";
}

}  // namespace webapi
