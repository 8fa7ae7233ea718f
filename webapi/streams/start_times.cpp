#include "webapi/streams/start_times.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <optional>

#include "platform/log.h"

namespace webapi {
namespace {

using Time = std::chrono::system_clock::time_point;

constexpr char kSent[] = "sent";
// A piece that comes sooner was ready.
constexpr int64_t kReadyMilliseconds = 50;
constexpr std::array kSteps = {"probe",     "admission",   "prepare", "start",
                               "first_key", "first_bytes", kSent};

Time TimeOf(int64_t seconds, int64_t nanoseconds) {
  return Time(std::chrono::duration_cast<Time::duration>(std::chrono::seconds(seconds) +
                                                         std::chrono::nanoseconds(nanoseconds)));
}

// When the file was made; nothing if its file system does not know.
std::optional<Time> MadeAt(const std::string& path) {
  struct statx status {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &status) != 0 ||
      (status.stx_mask & STATX_BTIME) == 0) {
    return std::nullopt;
  }
  return TimeOf(status.stx_btime.tv_sec, status.stx_btime.tv_nsec);
}

// "probe 12 ms, start 30 ms".
std::string TextOf(const Json::Value& steps) {
  std::string text;
  for (const char* step : kSteps) {
    if (steps.isMember(step)) {
      text += (text.empty() ? "" : ", ") + std::string(step) + " " + steps[step].asString() + " ms";
    }
  }
  return text;
}

}  // namespace

int64_t StartTimes::Milliseconds() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - last_).count();
}

// A step that ended before the last one took no time of this request.
void StartTimes::Add(const char* step, Clock::time_point end) {
  const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(end - last_).count();
  steps_[step] = static_cast<Json::Int64>(std::max<int64_t>(time, 0));
  last_ = std::max(last_, end);
}

void StartTimes::Mark(const char* step) {
  Add(step, Clock::now());
}

void StartTimes::MarkPiece(const LibOrvoQMX::StreamDirectory& directory, const std::string& path) {
  const auto started = directory.MonitorPid().Written();
  if (started) {
    Add("start", TimeOf(started->tv_sec, started->tv_nsec));
  }
  if (const auto begun = MadeAt(path)) {
    Add("first_key", *begun);
  }
  Mark("first_bytes");
}

bool HasBegun(const Ticket& ticket) {
  return ticket.Times().isMember(kSent);
}

bool WasMadeFor(const Ticket& ticket, const StartTimes& times) {
  return !HasBegun(ticket) || times.Milliseconds() >= kReadyMilliseconds;
}

void RememberStart(const std::string& streamId, const StartTimes& times) {
  auto ticket = HeldTicket::Take(streamId);
  if (!ticket) {
    return;
  }
  const bool isFirst = !HasBegun(*ticket);
  ticket->AddTimes(times.Steps());
  if (isFirst && HasBegun(*ticket)) {
    orvo::Log(LOG_INFO, __FILE__, __LINE__, "stream %s (%s) has begun: %s", streamId.c_str(),
              ticket->Kind().c_str(), TextOf(ticket->Times()).c_str());
  }
}

}  // namespace webapi
