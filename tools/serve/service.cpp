#include "tools/serve/service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "platform/io.h"
#include "platform/pidfd.h"
#include "platform/plat.h"
#include "policy/lock.h"
#include "tools/serve/children.h"
#include "tools/serve/readiness.h"
#include "tools/serve/web_server.h"
#include "util/json_utils.h"
#include "webapi/streaming.h"

namespace serve {
namespace {

constexpr int kDefaultPort = 8096;
constexpr int kStopMilliseconds = 5000;
constexpr char kBrowserOpener[] = "/usr/bin/xdg-open";
constexpr char kPackageFolder[] = "/var/packages/Mirevo/target/";

bool ConfigureMedia(const std::vector<std::string>& media) {
  Json::Value roots(Json::arrayValue);
  for (const std::string& path : media) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) {
      std::cerr << path << ": there is no such file or folder\n";
      return false;
    }
    roots.append(resolved);
  }
  const std::string folder = orvo::SystemPath("/var/packages/Mirevo/etc");
  return PlatFSMkdirP(folder, 0, 1, geteuid(), getegid(), 0755) == 0 &&
         LibMirevo::WriteJsonToFile(folder + "/media_roots", roots);
}

bool HasDesktop() {
  return access(kBrowserOpener, X_OK) == 0 &&
         (getenv("DISPLAY") != nullptr || getenv("WAYLAND_DISPLAY") != nullptr);
}

// A detached process that opens the address that it is told through the returned descriptor. It is
// started before this process adopts orphans: the browser is to stay when the service ends.
orvo::UniqueFd PrepareBrowser() {
  int ends[2] = {-1, -1};
  if (!HasDesktop() || pipe2(ends, O_CLOEXEC) != 0) {
    return {};
  }
  const orvo::UniqueFd readEnd(ends[0]);
  orvo::UniqueFd writeEnd(ends[1]);
  if (PlatProcForkChildNoWait() == 0) {
    writeEnd.Reset();
    char address[64] = "";
    if (read(readEnd.Get(), address, sizeof(address) - 1) > 0) {
      execl(kBrowserOpener, kBrowserOpener, address, nullptr);
    }
    _exit(0);
  }
  return writeEnd;
}

// The signals that end the service and those of its children, as something to wait for.
orvo::UniqueFd BlockSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
    sigaddset(&signals, signal);
  }
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return orvo::UniqueFd(signalfd(-1, &signals, SFD_CLOEXEC));
}

// Reaps what ends until the service is told to stop (true) or the web server ends (false).
bool ServeUntilStopped(int signals, int server) {
  for (;;) {
    pollfd events[] = {{signals, POLLIN, 0}, {server, POLLIN, 0}};
    if (poll(events, 2, -1) < 0) {
      continue;
    }
    signalfd_siginfo received{};
    if (events[0].revents != 0 && read(signals, &received, sizeof(received)) > 0 &&
        received.ssi_signo != SIGCHLD) {
      return true;
    }
    ReapChildren();
    if (events[1].revents != 0) {
      return false;
    }
  }
}

void Stop(pid_t server) {
  kill(server, SIGTERM);
  orvo::WaitForExit(server, kStopMilliseconds);
  webapi::CloseAllStreams();
  WaitForChildren(kStopMilliseconds);
}

}  // namespace

int Serve(const Options& options) {
  const std::string state = orvo::SystemPath(kStateFolder);
  if (PlatFSMkdirP(state, 0, 1, geteuid(), getegid(), 0755) != 0 ||
      !ConfigureMedia(options.media)) {
    return 1;
  }
  // Two services in one system would close each other's streams.
  const LibMirevo::Lock alone(state + "/serve.lock", false);
  if (!alone.IsLockSucess()) {
    std::cerr << "mirevo already serves here (" << state << ")\n";
    return 1;
  }
  int port = options.port.value_or(kDefaultPort);
  orvo::UniqueFd socket = ListenOnLoopback(port);
  if (!socket.IsOpen() && !options.port) {
    port = 0;
    socket = ListenOnLoopback(port);
  }
  if (!socket.IsOpen()) {
    std::cerr << "port " << port << ": " << std::strerror(errno) << "\n";
    return 1;
  }
  const orvo::UniqueFd browser = options.browser ? PrepareBrowser() : orvo::UniqueFd();
  AdoptOrphans();
  const orvo::UniqueFd signals = BlockSignals();
  const std::string package = orvo::SystemPath(kPackageFolder);
  const pid_t server =
      Start({package + "player", package + "webapi", state, orvo::SystemPath("/tmp/Mirevo"), port},
            std::move(socket));
  if (server < 0) {
    std::cerr << "the web server could not be started: " << std::strerror(errno) << "\n";
    return 1;
  }
  const orvo::UniqueFd process = orvo::OpenProcess(server);
  if (!Answers(port)) {
    std::cerr << "the web server does not answer; see " << state << "/lighttpd.log\n";
    Stop(server);
    return 1;
  }
  const std::string address = "http://127.0.0.1:" + std::to_string(port) + "/";
  orvo::ReplaceFile(state + kAddressFile, address + "\n");
  std::cout << "listening on " << address << std::endl;
  AnnounceReadiness("listening on " + address);
  orvo::WriteAll(browser.Get(), address);
  const bool told = ServeUntilStopped(signals.Get(), process.Get());
  unlink((state + kAddressFile).c_str());
  Stop(server);
  if (!told) {
    std::cerr << "the web server has ended; see " << state << "/lighttpd.log\n";
  }
  return told ? 0 : 1;
}

}  // namespace serve
