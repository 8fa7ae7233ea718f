#include "webapi/streams/adapt_playback.h"

#include <fcntl.h>

#include "platform/io.h"
#include "platform/unique_fd.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "util/qmxutils.h"
#include "webapi/http/number.h"

namespace webapi {
namespace {

using LibOrvoQMX::QMXStream;

constexpr size_t kMaxDigits = 7;

std::string DemandPath(const QMXStream& stream) {
  return stream.GetQMXFileFullPath("requested");
}

}  // namespace

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
}

void MarkAccess(const QMXStream& stream) {
  orvo::TouchFile(stream.GetQMXFileFullPath("access_status"));
}

void AskFor(int64_t number, const QMXStream& stream) {
  const std::string path = DemandPath(stream);
  // In a fixed width: the number is written over the older one at once, with nothing to cut off and
  // no disk to wait for.
  std::string text = std::to_string(number);
  text.insert(0, kMaxDigits - text.size(), '0');
  const orvo::UniqueFd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!file.IsOpen() || !orvo::WriteAll(file.Get(), text)) {
    orvo::ReplaceFile(path, text);
  }
}

int64_t LastAskedFor(const QMXStream& stream) {
  return ParseNumber(LibOrvoQMX::ReadFile(DemandPath(stream))).value_or(-1);
}

bool LacksTranscoder(const std::string& profileValue) {
  const auto traits = LibOrvoQMX::ProfileTraits::Of(profileValue);
  return !traits.remux && !LibMirevo::TransLoading().TransEnable(traits.hardware);
}

}  // namespace webapi
