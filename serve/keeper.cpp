#include "serve/keeper.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <optional>

#include "contract/copies.h"
#include "contract/ready_ffmpeg.h"
#include "platform/children.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "platform/process_launch.h"
#include "platform/signal_events.h"
#include "policy/registry_sweep.h"
#include "util/system_files.h"

namespace serve {
namespace {

// The web server ends at once. A monitor may take four seconds to end its transcoder.
constexpr int kWebServerMilliseconds = 3000;
constexpr int kOthersMilliseconds = 4500;
constexpr int kSweepAgainMilliseconds = 500;
// Only the parent of a stopped process is told, so the keeper looks at the processes below its
// children this often.
constexpr int kLookMilliseconds = 2000;

bool HasEvent(const pollfd& event) {
  return event.revents != 0;
}

// Reaps the processes that have ended. Before that, their numbers cannot belong to other processes,
// so the register loses exactly their entries. Returns false if the register was in use.
bool Reap() {
  const bool isTrue = LibMirevo::StrikeDeadTranscoders();
  orvo::ReapChildren();
  return isTrue;
}

// Returns when the web server or the service has ended, or on SIGTERM.
void KeepUntilEnd(const orvo::Process& web, const orvo::Process& service,
                  orvo::SignalEvents& signals) {
  for (;;) {
    orvo::ContinueDescendants();
    const bool isTrue = Reap();
    pollfd events[] = {{signals.Descriptor(), POLLIN, 0},
                       {web.Descriptor().Get(), POLLIN, 0},
                       {service.Descriptor().Get(), POLLIN, 0}};
    if (poll(events, 3, isTrue ? kLookMilliseconds : kSweepAgainMilliseconds) < 0) {
      continue;
    }
    if (signals.Take() == SIGTERM || HasEvent(events[1]) || HasEvent(events[2])) {
      return;
    }
  }
}

// Copies and conversions start sooner where these processes have loaded FFmpeg's libraries; without
// them they start by themselves.
orvo::Process StartParent(const char* option) {
  const std::string program = orvo::SystemPath(LibOrvoQMX::kTranscoder);
  orvo::LaunchOptions options;
  options.parentDeath.signal = SIGKILL;
  return orvo::Start({program, {program, option}}, options);
}

int Keep(const WebServer& server, Belongings& belongings, const orvo::Process& service,
         orvo::UniqueFd& report) {
  orvo::AdoptOrphans();
  orvo::SignalEvents signals({SIGTERM, SIGCHLD});
  orvo::Process web = Start(server, belongings.sockets);
  const int failure = web ? 0 : errno;
  const orvo::Process copies = web ? StartParent(orvo::kCopiesOption) : orvo::Process();
  const orvo::Process conversions = web ? StartParent(orvo::kReadyOption) : orvo::Process();
  belongings = Belongings();
  orvo::WriteAll(report.Get(), {reinterpret_cast<const char*>(&failure), sizeof failure});
  report.Reset();
  if (!web) {
    return 1;
  }
  KeepUntilEnd(web, service, signals);
  if (service.HasEndedWithin(0)) {
    orvo::EndChildren(kOthersMilliseconds);
  }
  web.End(SIGTERM, kWebServerMilliseconds);
  LibMirevo::StrikeDeadTranscoders();
  return 0;
}

// The keeper's report about the web server's start: 0 or an errno.
int ReadReport(const orvo::UniqueFd& report) {
  int failure = EIO;
  return read(report.Get(), &failure, sizeof failure) == sizeof failure ? failure : EIO;
}

}  // namespace

orvo::Process StartKeeper(const WebServer& server, Belongings& belongings) {
  const orvo::Process service = orvo::Process::Open(getpid());
  orvo::UniqueFd readEnd;
  orvo::UniqueFd writeEnd;
  if (!service || !orvo::OpenPipe(readEnd, writeEnd)) {
    return {};
  }
  orvo::LaunchOptions options;
  options.group = orvo::ProcessGroup::kSession;  // the terminal's signals are for the service
  options.streams = orvo::StandardStreams::kKept;
  options.blocked = {SIGTERM, SIGCHLD};
  orvo::Process keeper = orvo::Fork(
      [&] {
        readEnd.Reset();
        return Keep(server, belongings, service, writeEnd);
      },
      options);
  writeEnd.Reset();
  belongings.sockets.clear();
  errno = keeper ? ReadReport(readEnd) : errno;
  return errno == 0 ? std::move(keeper) : orvo::Process();
}

}  // namespace serve
