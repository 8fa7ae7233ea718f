#include "webapi/library/previews.h"

#include "util/film_previews.h"
#include "webapi/http/send_file.h"
#include "webapi/library/media_library.h"

namespace webapi {

Json::Value DescribePreviews(const orvo::MediaFile& film) {
  const auto layout = orvo::UsePreviews(film);
  if (!layout) {
    return Json::Value::null;
  }
  Json::Value entry(Json::objectValue);
  entry["width"] = layout->width;
  entry["height"] = layout->height;
  entry["columns"] = layout->columns;
  entry["count"] = layout->count;
  entry["seconds"] = layout->seconds;
  return entry;
}

Answer SendPreviews(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilm(request.Text("path"), refusal);
  if (!film) {
    return refusal;
  }
  if (!orvo::UsePreviews(*film) ||
      !SendFile(request, orvo::PreviewsPath(*film), "image/jpeg", kKeepPicture)) {
    return Answer::Failure(kNotFound, "There are no previews of this film.");
  }
  return Answer::Sent();
}

}  // namespace webapi
