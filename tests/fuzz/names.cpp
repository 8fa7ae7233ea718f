// Names of films and folders, one a line: they are folded for a search, and sorted.
#include "fuzz/fuzz.h"
#include "util/media_names.h"
#include "util/name_order.h"

namespace {

using orvo::NameComesBefore;

void CheckFolding(const std::string& name) {
  constexpr size_t kMostBytesPerByte = 4;
  const std::string folded = orvo::FoldName(name);
  fuzz::Demand(folded.size() <= kMostBytesPerByte * name.size());
  (void)orvo::IsFilmName(name);
  (void)orvo::IsSystemFolderName(name);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto names = fuzz::Parts(fuzz::TextOf(data, size), '\n', 3);
  CheckFolding(names[0]);
  for (const std::string& left : names) {
    fuzz::Demand(!NameComesBefore(left, left));
    for (const std::string& right : names) {
      fuzz::Demand(left == right || NameComesBefore(left, right) != NameComesBefore(right, left));
    }
  }
  // A sort needs this of its order.
  if (NameComesBefore(names[0], names[1]) && NameComesBefore(names[1], names[2])) {
    fuzz::Demand(NameComesBefore(names[0], names[2]));
  }
  return 0;
}
