#include "webapi/http/work.h"

#include <cstdint>
#include <functional>
#include <string>

#include "platform/plat.h"
#include "util/private_folder.h"

namespace webapi {
namespace {

// Clients share so many groups of places, because each needs its own bytes of the lock file.
constexpr int64_t kClientGroups = 256;

// The file with the places of this kind; "" if its folder cannot be used.
std::string PlaceFile(const char* name) {
  const std::string folder = orvo::SystemPath("/tmp/Mirevo/work");
  return orvo::MakePrivateFolder(folder) ? folder + "/" + name : "";
}

}  // namespace

std::optional<orvo::Place> TakePlace(const Work& work) {
  const std::string file = PlaceFile(work.name);
  return file.empty() ? std::nullopt : orvo::Place::Take(file, work.queue);
}

std::optional<Transfer> Transfer::Begin(const std::string& client) {
  const std::string file = PlaceFile("transfers");
  if (file.empty()) {
    return std::nullopt;
  }
  const auto group = static_cast<int64_t>(std::hash<std::string>()(client) % kClientGroups);
  auto own =
      orvo::Place::Take(file, {kTransfersOfClient, 0, 0}, kTransfers + group * kTransfersOfClient);
  auto any = own ? orvo::Place::Take(file, {kTransfers, 0, 0}) : std::nullopt;
  return any ? std::optional(Transfer(std::move(*own), std::move(*any))) : std::nullopt;
}

}  // namespace webapi
