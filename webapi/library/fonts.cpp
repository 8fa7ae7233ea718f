#include "webapi/library/fonts.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "metadata/attached_fonts.h"
#include "webapi/http/send_file.h"
#include "webapi/http/work.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

using LibOrvoQMX::AttachedFont;

std::optional<AttachedFont> FindFont(const orvo::MediaFile& film, int64_t id) {
  const auto fonts = LibOrvoQMX::FindAttachedFonts(film);
  const auto font = std::find_if(fonts.begin(), fonts.end(),
                                 [&](const AttachedFont& one) { return one.id == id; });
  return font == fonts.end() ? std::nullopt : std::optional(*font);
}

}  // namespace

Json::Value DescribeFonts(const orvo::MediaFile& film) {
  Json::Value list(Json::arrayValue);
  for (const AttachedFont& font : LibOrvoQMX::FindAttachedFonts(film)) {
    Json::Value entry(Json::objectValue);
    entry["id"] = font.id;
    entry["name"] = font.name;
    entry["type"] = font.type;
    entry["size"] = static_cast<Json::Int64>(font.size);
    list.append(entry);
  }
  return list;
}

Answer SendFont(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilm(request.Text("path"), refusal);
  if (!film) {
    return refusal;
  }
  const auto id = request.Number("id", std::numeric_limits<int>::max());
  if (!id) {
    return Answer::Failure(kBadRequest, "The id must be a number.");
  }
  auto place = TakePlace(kFilmWork);
  if (!place) {
    return Answer::Failure(kBusy);
  }
  const auto font = FindFont(*film, *id);
  place.reset();
  if (!font) {
    return Answer::Failure(kNotFound, "This film has no such font.");
  }
  return SendPart(request, *film, {font->position, font->position + font->size - 1}, font->type,
                  kKeepPicture);
}

}  // namespace webapi
