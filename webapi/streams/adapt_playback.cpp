#include "webapi/streams/adapt_playback.h"

#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "webapi/choice/engine_rows.h"

namespace webapi {

Json::Value PieceRequest(const Ticket& ticket, const std::string& address,
                         const std::string& format) {
  Json::Value request(Json::objectValue);
  request["url"] = address;
  request["format"] = format;
  request["api"] = "ORVO.Mirevo2.Streaming";
  request["version"] = 1;
  request["method"] = "stream";
  request["force_open_qmx"] = ticket.Parameter("force_open_qmx") == "true";
  AddLink(ticket, request);
  return request;
}

void AddLink(const Ticket& ticket, Json::Value& parameters) {
  const std::string link = StreamLink(ticket);
  if (!link.empty()) {
    parameters["_sid"] = link;
  }
  const std::string sealed = ticket.Parameter(kSealedParameter);
  if (!sealed.empty()) {
    parameters[kSealedParameter] = sealed;
  }
}

bool SendPiece(const Request& request, const Ticket& ticket, const std::string& path,
               const std::string& contentType, StartTimes& times, Sender sender) {
  const bool isNew = WasMadeFor(ticket, times);
  if (isNew) {
    times.MarkPiece(ticket.Directory(), path);
  }
  const bool isSent = SendFile(request, path, contentType, kKeepSegment, "", sender);
  if (isNew && isSent) {
    times.Mark("sent");
    RememberStart(ticket.StreamId(), times);
  }
  return isSent;
}

bool NeedsTranscoder(const std::string& profileValue) {
  return !LibOrvoQMX::ProfileTraits::Of(profileValue).remux;
}

bool LacksTranscoder(const std::string& profileValue) {
  return NeedsTranscoder(profileValue) &&
         !LibMirevo::TransLoading().TransEnable(RunsOnHardware(profileValue));
}

}  // namespace webapi
