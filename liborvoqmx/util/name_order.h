// How names of films and folders are compared and found: as people do it, not by their bytes.
#pragma once

#include <string>

#include "platform/export.h"

namespace orvo {

// The name in lower case and without accents: "Émile" becomes "emile", in Latin, Greek and Cyrillic
// letters, composed or not. Bytes that are no UTF-8 stay as they are.
ORVO_API std::string FoldName(const std::string& name);

// Does `left` stand before `right` in a list for people? Numbers count by their value ("clip 2"
// before "clip 10"); case and accents count only between names that are otherwise equal. A total
// order: of two different names, one is first.
ORVO_API bool NameComesBefore(const std::string& left, const std::string& right);

// Bytes that compare as NameComesBefore() compares the names: for sorting many names, and for
// databases. `folded` is FoldName(name). For names of files, which are shorter than 256 bytes.
ORVO_API std::string NameSortKey(const std::string& name, const std::string& folded);

}  // namespace orvo
