#include "webapi/streams/plan_checksum.h"

#include <sstream>
#include <string>

#include "contract/cmaf.h"
#include "platform/io.h"
#include "webapi/cluster/opening.h"

namespace webapi {
namespace {

// All other lines of a playlist are addresses.
std::string SpansIn(const std::string& playlist) {
  std::istringstream lines(playlist);
  std::string spans;
  for (std::string line; std::getline(lines, line);) {
    spans += line.rfind("#EXTINF", 0) == 0 ? line + "\n" : "";
  }
  return spans;
}

// The manifest without the addresses of its fragments.
std::string WithoutAddresses(std::string manifest) {
  const std::string before = "Url=\"";
  for (size_t at = manifest.find(before); at != std::string::npos; at = manifest.find(before, at)) {
    at += before.size();
    manifest.erase(at, manifest.find('"', at) - at);
  }
  return manifest;
}

}  // namespace

uint64_t PlanChecksum(const Ticket& ticket) {
  const LibOrvoQMX::StreamDirectory directory = ticket.Directory();
  std::string plan = ticket.Kind() + " " + std::to_string(ticket.Duration()) + "\n";
  plan += SpansIn(orvo::ReadText(directory.VideoPlaylistPath()));
  plan += SpansIn(orvo::ReadText(directory.IndexPath()));
  plan += WithoutAddresses(orvo::ReadText(directory.ManifestPath()));
  plan += orvo::ReadText(directory.FilePath(orvo::kCmafPlanFile));
  plan += orvo::ReadText(directory.FilePath(orvo::kCmafPicturesFile));
  return ChecksumOf(plan);
}

}  // namespace webapi
