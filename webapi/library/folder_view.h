// What a request wants to see of a folder, and in which order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "catalog/catalog.h"
#include "webapi/http/request.h"

namespace webapi {

struct FolderView {
  enum class Sort { kName, kAdded, kLength };
  enum class Show { kAll, kUnwatched, kFilms, kMusic };
  Sort sort = Sort::kName;
  Show show = Show::kAll;
};

// From the parameters "sort" ("name", "added", "length") and "show" ("unwatched", "films",
// "music"). Nothing if one of them is another word.
std::optional<FolderView> FolderViewOf(const Request& request);

// `limit` entries of a folder after the first `offset`, folders first. "added" begins with the
// newest; "length" with the shortest film, and films whose length is not known yet come last.
// Folders are always shown. Nothing if the folder cannot be read.
std::optional<catalog::CatalogReader::Page> ReadView(const Request& request,
                                                     const std::string& folder,
                                                     const FolderView& view, int64_t offset,
                                                     int64_t limit);

}  // namespace webapi
