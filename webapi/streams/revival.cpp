#include "webapi/streams/revival.h"

#include "platform/plat.h"
#include "stream/liborvoqmx.h"
#include "util/json_utils.h"
#include "webapi/choice/profiles.h"
#include "webapi/streams/direct_playback.h"

namespace webapi {
namespace {

// The library makes the directories for its transcoders' output.
bool MakeDirectory(const Ticket& ticket) {
  const Json::Value& profile = ticket.Record()["profile_key"];
  return ticket.Kind() == kDirectKind
             ? libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(ticket.Folder(), 0777)
             : LibOrvoQMX::QMXStream::CreateTmpDir(ticket.StreamId(), ticket.Kind(), ProfileFile(),
                                                   profile.isString() ? profile.asString() : "", 0);
}

}  // namespace

bool ReviveDirectory(const Ticket& ticket) {
  if (ticket.HasDirectory()) {
    return true;
  }
  if (!MakeDirectory(ticket)) {
    return false;
  }
  // A directory with a record is complete, so the record comes last.
  const std::string film = ticket.Parameter(kFilmParameter);
  return (film.empty() || ticket.Directory().Film().Replace(film)) &&
         LibMirevo::WriteJsonToFile(ticket.RecordPath(), ticket.Record());
}

}  // namespace webapi
