// mirevo-serve: the whole system on one machine, for the user who starts it.
#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <charconv>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "platform/io.h"
#include "platform/pidfd.h"
#include "platform/plat.h"
#include "policy/lock.h"
#include "tools/serve/children.h"
#include "tools/serve/web_server.h"
#include "util/json_utils.h"
#include "webapi/film_cache.h"
#include "webapi/media_library.h"
#include "webapi/streaming.h"

namespace {

constexpr int kDefaultPort = 8096;
constexpr int kUsage = 64;
constexpr int kStopMilliseconds = 5000;
constexpr char kBrowserOpener[] = "/usr/bin/xdg-open";
constexpr char kPackageFolder[] = "/var/packages/Mirevo/target/";

struct Options {
  std::vector<std::string> media;
  std::optional<int> port;
  bool browser = true;
};

std::optional<int> ParsePort(const char* text) {
  int port = 0;
  const char* const end = text + std::strlen(text);
  const auto parsed = std::from_chars(text, end, port);
  return parsed.ec == std::errc() && parsed.ptr == end && port >= 0 && port <= USHRT_MAX
             ? std::optional<int>(port)
             : std::nullopt;
}

std::optional<Options> Parse(int argc, char** argv) {
  const option known[] = {{"port", required_argument, nullptr, 'p'},
                          {"no-browser", no_argument, nullptr, 'n'},
                          {nullptr, 0, nullptr, 0}};
  Options options;
  for (int found = 0; (found = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
    if (found == 'n') {
      options.browser = false;
    } else if (found == 'p' && ParsePort(optarg)) {
      options.port = ParsePort(optarg);
    } else {
      return std::nullopt;
    }
  }
  options.media.assign(argv + optind, argv + argc);
  return options;
}

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
    serve::ReapChildren();
    if (events[1].revents != 0) {
      return false;
    }
  }
}

void Stop(pid_t server) {
  kill(server, SIGTERM);
  orvo::WaitForExit(server, kStopMilliseconds);
  webapi::CloseAllStreams();
  serve::WaitForChildren(kStopMilliseconds);
}

// Where the files lie that requests send. A film that was given by itself is in a folder, too.
std::vector<std::string> SendFolders() {
  std::vector<std::string> folders = {orvo::SystemPath("/tmp/Mirevo"),
                                      orvo::SystemPath(webapi::kCacheFolder)};
  for (const std::string& root : webapi::MediaRoots()) {
    const bool isFolder = std::filesystem::is_directory(root);
    folders.push_back(isFolder ? root : std::filesystem::path(root).parent_path().string());
  }
  return folders;
}

int Serve(const Options& options) {
  const std::string state = orvo::SystemPath("/run/mirevo");
  if (PlatFSMkdirP(state, 0, 1, geteuid(), getegid(), 0755) != 0 ||
      !ConfigureMedia(options.media)) {
    return 1;
  }
  // Two services in one system would close each other's streams.
  const LibMirevo::Lock alone(state + "/serve.lock", false);
  if (!alone.IsLockSucess()) {
    std::cerr << "mirevo-serve already runs here (" << state << ")\n";
    return 1;
  }
  int port = options.port.value_or(kDefaultPort);
  orvo::UniqueFd socket = serve::ListenOnLoopback(port);
  if (!socket.IsOpen() && !options.port) {
    port = 0;
    socket = serve::ListenOnLoopback(port);
  }
  if (!socket.IsOpen()) {
    std::cerr << "port " << port << ": " << std::strerror(errno) << "\n";
    return 1;
  }
  const orvo::UniqueFd browser = options.browser ? PrepareBrowser() : orvo::UniqueFd();
  serve::AdoptOrphans();
  const orvo::UniqueFd signals = BlockSignals();
  const std::string package = orvo::SystemPath(kPackageFolder);
  const pid_t server = serve::Start(
      {package + "player", package + "webapi", state, SendFolders(), port}, std::move(socket));
  if (server < 0) {
    std::cerr << "the web server could not be started: " << std::strerror(errno) << "\n";
    return 1;
  }
  const orvo::UniqueFd process = orvo::OpenProcess(server);
  if (!serve::Answers(port)) {
    std::cerr << "the web server does not answer; see " << state << "/lighttpd.log\n";
    Stop(server);
    return 1;
  }
  const std::string address = "http://127.0.0.1:" + std::to_string(port) + "/";
  std::cout << "listening on " << address << std::endl;
  orvo::WriteAll(browser.Get(), address);
  const bool told = ServeUntilStopped(signals.Get(), process.Get());
  Stop(server);
  if (!told) {
    std::cerr << "the web server has ended; see " << state << "/lighttpd.log\n";
  }
  return told ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const auto options = Parse(argc, argv);
  if (!options || options->media.empty()) {
    std::cerr << "usage: mirevo-serve [--port N] [--no-browser] FILE-OR-FOLDER...\n";
    return kUsage;
  }
  return Serve(*options);
}
