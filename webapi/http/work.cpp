#include "webapi/http/work.h"

#include <string>

#include "platform/plat.h"
#include "util/private_folder.h"

namespace webapi {

std::optional<orvo::Place> TakePlace(const Work& work) {
  const std::string folder = orvo::SystemPath("/tmp/Mirevo/work");
  return orvo::MakePrivateFolder(folder) ? orvo::Place::Take(folder + "/" + work.name, work.queue)
                                         : std::nullopt;
}

}  // namespace webapi
