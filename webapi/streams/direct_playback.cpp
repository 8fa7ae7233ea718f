#include "webapi/streams/direct_playback.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "platform/plat.h"
#include "state/stream_directory.h"
#include "stream/liborvoqmx.h"
#include "util/json_utils.h"
#include "webapi/http/send_file.h"

namespace webapi {
namespace {

using LibOrvoQMX::StreamDirectory;

StreamDirectory DirectoryOf(const std::string& streamId) {
  return StreamDirectory(kDirectKind, streamId);
}

// Stores the viewer's position. The status shows it, so a full disk is not a failure.
void RememberPosition(const Request& request, const std::string& streamId) {
  if (request.Method() != "HEAD") {
    DirectoryOf(streamId).AskForByte(request.RangeStart().value_or(0));
  }
}

// In bytes, when the film was opened.
uint64_t SizeOf(const Ticket& ticket) {
  const Json::Value& size = ticket.Record()["filesize"];
  return size.isString() ? std::strtoull(size.asString().c_str(), nullptr, 10) : 0;
}

}  // namespace

std::string InitDirect(const LibOrvoQMX::VideoMetaData& film, const std::string& streamId) {
  using LibOrvoQMX::QMXStream;
  const std::string id =
      streamId.empty() ? QMXStream::GetRandStreamID(film.GetFilePath()) : streamId;
  Json::Value record = film.GetDocument();
  record["profile_key"] = kDirectProfile;
  record["profile_value"] = "";
  const bool isMade = !id.empty() &&
                      libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(DirectoryOf(id).Path(), 0777) &&
                      LibMirevo::WriteJsonToFile(DirectoryOf(id).RecordPath(), record);
  return isMade ? id : "";
}

Answer PrepareDirect(const Ticket& ticket, Json::Value& data) {
  ticket.Directory().MarkAccess();
  data["content_type"] = ticket.Parameter("content_type");
  data["size"] = static_cast<Json::UInt64>(SizeOf(ticket));
  return Answer::Sent();
}

Answer PlayDirect(const Request& request, const Ticket& ticket) {
  Answer refusal = Answer::Failure(kInternal);
  const auto film = OpenFilmOf(ticket, refusal);
  if (!film) {
    return refusal;
  }
  RememberPosition(request, ticket.StreamId());
  return SendFile(request, *film, ticket.Parameter("content_type"));
}

void CloseDirect(const std::string& streamId) {
  std::error_code ignored;
  if (IsStreamId(streamId)) {
    // A request that still plays may add a file, and a folder with files cannot be removed.
    const std::string path = DirectoryOf(streamId).Path();
    const std::string closed = path + ".closed";
    std::filesystem::rename(path, closed, ignored);
    std::filesystem::remove_all(closed, ignored);
  }
}

double DirectPosition(const Ticket& ticket) {
  const int64_t first = ticket.Directory().LastAskedFor();
  const uint64_t size = SizeOf(ticket);
  if (size == 0) {
    return 0;
  }
  const double part = static_cast<double>(first) / static_cast<double>(size);
  return std::clamp(part, 0.0, 1.0) * ticket.Duration();
}

}  // namespace webapi
