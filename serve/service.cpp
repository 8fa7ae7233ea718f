#include "serve/service.h"

#include <poll.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "accounts/accounts.h"
#include "accounts/first_word.h"
#include "contract/copies.h"
#include "contract/ready_ffmpeg.h"
#include "platform/children.h"
#include "platform/confinement.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "platform/process_launch.h"
#include "platform/signal_events.h"
#include "policy/registry_sweep.h"
#include "serve/heartbeat.h"
#include "serve/keeper.h"
#include "serve/measurement.h"
#include "serve/readiness.h"
#include "serve/settings_watch.h"
#include "serve/television_server.h"
#include "serve/web_server.h"
#include "settings/media_folders.h"
#include "util/file_lock.h"
#include "util/json_utils.h"
#include "util/kept_program.h"
#include "util/private_folder.h"
#include "util/qmxutils.h"
#include "util/state_roots.h"
#include "util/system_files.h"
#include "webapi/cluster/cluster_keys.h"
#include "webapi/library/media_library.h"
#include "webapi/streams/streaming.h"

namespace serve {
namespace {

constexpr int kDefaultPort = 8096;
constexpr int kStopMilliseconds = 5000;
constexpr char kBrowserOpener[] = "/usr/bin/xdg-open";
constexpr char kAnalyzer[] = "/var/packages/Mirevo/target/bin/mirevo-analyze";
constexpr char kProgram[] = "/var/packages/Mirevo/target/bin/mirevo";
constexpr char kConverter[] = "/var/packages/Mirevo/target/bin/orvovideoconversiond";
constexpr char kPackageFolder[] = "/var/packages/Mirevo/target/";

// The shorter of two times for poll, in milliseconds; negative means no limit.
int Sooner(int one, int other) {
  return one < 0 || other < 0 ? std::max(one, other) : std::min(one, other);
}

bool Refuse(const std::string& reason) {
  std::cerr << reason << "\n";
  return false;
}

// `reason` is an errno that the caller saved before any other call.
bool Refuse(const std::string& subject, int reason) {
  return Refuse(subject + ": " + std::strerror(reason));
}

// `reason`: an errno, taken before anything else is called. The exit status of this failure.
int CannotWrite(const std::string& folder, int reason) {
  Refuse("The service cannot keep its state in " + folder, reason);
  std::cerr << "Set ORVO_SYSROOT to a folder that belongs to you, or start the service as the "
               "folder's owner.\n";
  return EX_CANTCREAT;
}

// Makes a folder of the service's own, if it is missing. 0 or the exit status.
int MakeOwnFolder(const std::string& folder) {
  const bool canWrite = PlatFSMkdirP(folder, 0, 1, geteuid(), getegid(), 0755) == 0 &&
                        access(folder.c_str(), W_OK | X_OK) == 0;
  return canWrite ? 0 : CannotWrite(folder, errno);
}

// Makes these and the folders that owners have added the media roots. 0 or the exit status.
int ConfigureMedia(const std::vector<std::string>& media) {
  std::vector<std::string> roots;
  for (const std::string& path : media) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) {
      Refuse(path, errno);
      return EX_NOINPUT;
    }
    roots.emplace_back(resolved);
  }
  const std::string folder = orvo::SystemPath("/var/packages/Mirevo/etc");
  if (const int refused = MakeOwnFolder(folder); refused != 0) {
    return refused;
  }
  const settings::FolderOutcome outcome = settings::NameFolders(roots);
  if (outcome == settings::FolderOutcome::kDamaged) {
    Refuse(settings::Describe(outcome));  // what is named at the start is shown all the same
  }
  return outcome == settings::FolderOutcome::kFailed ? CannotWrite(folder, errno) : 0;
}

bool HasDesktop() {
  return access(kBrowserOpener, X_OK) == 0 &&
         (getenv("DISPLAY") != nullptr || getenv("WAYLAND_DISPLAY") != nullptr);
}

// Reads an address from this descriptor and opens it. Returns only on failure or without an
// address.
int OpenBrowser(int descriptor) {
  std::array<char, 128> address{};
  if (read(descriptor, address.data(), address.size() - 1) <= 0) {
    return 0;
  }
  orvo::LaunchOptions options;
  options.streams = orvo::StandardStreams::kKept;
  return orvo::Become({kBrowserOpener, {kBrowserOpener, address.data()}}, options);
}

// Starts a detached process that opens the address it reads from the returned descriptor. It starts
// before this process adopts orphans, so the browser stays when the service ends.
orvo::UniqueFd PrepareBrowser() {
  orvo::UniqueFd readEnd;
  orvo::UniqueFd writeEnd;
  if (!HasDesktop() || !orvo::OpenPipe(readEnd, writeEnd)) {
    return {};
  }
  orvo::LaunchOptions options;
  options.detached = true;
  options.streams = orvo::StandardStreams::kKept;
  orvo::Fork(
      [&] {
        writeEnd.Reset();
        return OpenBrowser(readEnd.Get());
      },
      options);
  return writeEnd;
}

// What the service wants beside its answers to requests.
struct Wishes {
  bool analysis;  // key frames are found and the machine is measured
  bool conversions;
  std::string agent;  // where a balancer asks; "" for nowhere
  std::vector<std::string> dlnaInterfaces;
};

// The catalog is kept in any case.
std::vector<std::string> AnalysisCommand(bool findsKeyframes) {
  std::vector<std::string> command = {orvo::SystemPath(kAnalyzer),
                                      findsKeyframes ? "--watch" : "--catalog"};
  const std::vector<std::string> roots = webapi::MediaRoots();
  command.insert(command.end(), roots.begin(), roots.end());
  return roots.empty() ? std::vector<std::string>{} : command;
}

std::vector<std::string> ConverterCommand(bool isWanted) {
  return isWanted ? std::vector{orvo::SystemPath(kConverter)} : std::vector<std::string>{};
}

std::vector<std::string> AgentCommand(const std::string& place) {
  return place.empty() ? std::vector<std::string>{}
                       : std::vector{orvo::SystemPath(kProgram), std::string("agent"),
                                     std::string("--listen"), place};
}

// The background programs.
struct Companions {
  Companions(const WebServer& webServer, const Wishes& wishes)
      : web(webServer),
        dlnaInterfaces(wishes.dlnaInterfaces),
        findsKeyframes(wishes.analysis),
        analysis("the analysis of the library", AnalysisCommand(wishes.analysis)),
        converter("the conversion of films", ConverterCommand(wishes.conversions)),
        agent("the agent for the balancer", AgentCommand(wishes.agent)),
        televisions("the media server for televisions", TelevisionCommand(web, dlnaInterfaces)) {}

  void Update() {
    const SettingsWatch::Changes changes = settings.Take();
    if (changes.folders) {
      analysis.Change(AnalysisCommand(findsKeyframes));
    }
    if (changes.televisions) {
      televisions.Change(TelevisionCommand(web, dlnaInterfaces));
    }
    for (orvo::KeptProgram* const program : {&analysis, &converter, &agent, &televisions}) {
      program->Update();
    }
  }
  int Patience() const {
    return Sooner(Sooner(agent.Patience(), televisions.Patience()),
                  Sooner(analysis.Patience(), converter.Patience()));
  }
  void Stop() {
    for (orvo::KeptProgram* const program : {&analysis, &converter, &agent, &televisions}) {
      program->Stop();
    }
  }

  const WebServer& web;
  std::vector<std::string> dlnaInterfaces;
  bool findsKeyframes;
  SettingsWatch settings;
  orvo::KeptProgram analysis;
  orvo::KeptProgram converter;
  orvo::KeptProgram agent;
  orvo::KeptProgram televisions;
};

// Returns true when a signal stops the service, false when the keeper, and thus the web server, has
// ended.
bool ServeUntilStopped(orvo::SignalEvents& signals, const orvo::Process& keeper,
                       Companions& companions, Heartbeat& heartbeat) {
  for (;;) {
    companions.Update();
    heartbeat.Update();
    keeper.ContinueIfStopped();
    pollfd events[] = {{signals.Descriptor(), POLLIN, 0},
                       {keeper.Descriptor().Get(), POLLIN, 0},
                       {companions.analysis.Descriptor(), POLLIN, 0},
                       {companions.converter.Descriptor(), POLLIN, 0},
                       {companions.agent.Descriptor(), POLLIN, 0},
                       {companions.televisions.Descriptor(), POLLIN, 0},
                       {companions.settings.Descriptor(), POLLIN, 0},
                       {heartbeat.Descriptor(), POLLIN, 0}};
    if (poll(events, std::size(events), Sooner(companions.Patience(), heartbeat.Patience())) < 0) {
      continue;
    }
    const int signal = signals.Take();
    if (signal != 0 && signal != SIGCHLD) {
      return true;
    }
    orvo::ReapChildren();
    if (events[1].revents != 0) {
      return false;
    }
  }
}

// Ends the web server first, so that no request starts another process. After a failure the streams
// stay, so their viewers can go on when the service runs again.
void Stop(orvo::Process& keeper, bool closesStreams) {
  keeper.End(SIGTERM, kStopMilliseconds);
  if (closesStreams) {
    webapi::CloseAllStreams();
  }
  orvo::EndChildren(kStopMilliseconds);
  LibMirevo::StrikeDeadTranscoders();
}

// The shell command line for a command of this program.
std::string CommandLine(const std::string& command) {
  std::error_code failure;
  const std::string program = std::filesystem::read_symlink("/proc/self/exe", failure).string();
  const char* const sysroot = secure_getenv("ORVO_SYSROOT");
  return (sysroot != nullptr ? "ORVO_SYSROOT='" + std::string(sysroot) + "' " : "") + program +
         " " + command;
}

// The first of these that other machines can reach; null if there is none.
const Endpoint* FartherOf(const std::vector<Endpoint>& endpoints) {
  const auto farther =
      std::find_if(endpoints.begin(), endpoints.end(),
                   [](const Endpoint& endpoint) { return !endpoint.IsLoopback(); });
  return farther == endpoints.end() ? nullptr : &*farther;
}

// Without accounts, everyone who can connect to the service is its owner. A first start asks for an
// account before anything else.
bool MayListen(const std::vector<Endpoint>& endpoints, bool isFirstStart) {
  const Endpoint* const farther = FartherOf(endpoints);
  const auto accounts = accounts::List();
  if (!accounts) {
    return Refuse(accounts::Describe(accounts::Outcome::kDamaged));
  }
  return farther == nullptr || !accounts->empty() || isFirstStart ||
         Refuse("Listening on " + farther->address + " needs an account; make one with " +
                CommandLine("account add NAME"));
}

// Lets somebody on the network become the owner. The word itself is shown on a terminal only: logs
// have other readers.
bool OfferFirstStart(const std::vector<Endpoint>& endpoints) {
  accounts::RemoveFirstWord();
  if (FartherOf(endpoints) == nullptr || accounts::AreNeeded()) {
    return true;
  }
  const std::string word = accounts::MakeFirstWord();
  if (word.empty()) {
    return false;
  }
  const bool isTerminal = isatty(STDERR_FILENO) != 0;
  std::cerr << "Nobody has an account yet. The page asks for the first one, and for this word: "
            << (isTerminal ? word : "it is in " + orvo::SystemPath(accounts::kFirstWordFile))
            << "\n";
  return true;
}

// The web server runs elsewhere. "" stays "".
std::string AbsolutePath(const std::string& path) {
  return path.empty() ? "" : std::filesystem::absolute(path).string();
}

bool CanRead(const std::string& file) {
  const bool canRead = file.empty() || access(file.c_str(), R_OK) == 0;
  return canRead || Refuse(file, errno);
}

// Addresses of streams would otherwise work on this box alone, and nobody would see why.
bool CanSeal(const std::string& keyFile) {
  const std::string problem = keyFile.empty() ? "" : webapi::ReadClusterKeys(keyFile).problem;
  return problem.empty() || Refuse(problem);
}

// Opens a socket for each endpoint, all on the first one's port. Returns none if one of them fails.
std::vector<orvo::UniqueFd> ListenAt(std::vector<Endpoint>& endpoints) {
  std::vector<orvo::UniqueFd> sockets;
  for (Endpoint& endpoint : endpoints) {
    endpoint.port = endpoints.front().port;
    sockets.push_back(Listen(endpoint));
    if (!sockets.back().IsOpen()) {
      return {};
    }
  }
  return sockets;
}

// The same with the port of the options. If the options name no port and the usual one is in use,
// chooses another, unless other machines need to know the port.
std::vector<orvo::UniqueFd> OpenSockets(const Options& options, std::vector<Endpoint>& endpoints) {
  endpoints.front().port = options.port.value_or(kDefaultPort);
  auto sockets = ListenAt(endpoints);
  if (sockets.empty() && !options.port && options.listen.empty()) {
    endpoints.front().port = 0;
    sockets = ListenAt(endpoints);
  }
  if (sockets.empty()) {
    const int reason = errno;
    Refuse(endpoints.front().Authority(), reason);
  }
  return sockets;
}

std::vector<Endpoint> EndpointsOf(const Options& options) {
  std::vector<Endpoint> endpoints;
  for (const std::string& address : options.listen) {
    if (auto endpoint = ParseEndpoint(address, 0)) {
      endpoints.push_back(*endpoint);
    }
  }
  return endpoints.empty() ? std::vector<Endpoint>{{"127.0.0.1", 0}} : endpoints;
}

// The address for programs on this machine.
std::string LocalAddress(const WebServer& server) {
  const Endpoint local = Reachable(server.endpoints.front()).front();
  return server.Scheme() + "://" + local.Authority() + server.prefix + "/";
}

void Announce(const WebServer& server, int browser) {
  const std::string address = LocalAddress(server);
  orvo::ReplaceFile(server.stateFolder + kAddressFile, address + "\n");
  for (const Endpoint& endpoint : server.endpoints) {
    for (const Endpoint& reachable : Reachable(endpoint)) {
      std::cout << "listening on " << server.Scheme() << "://" << reachable.Authority()
                << server.prefix << "/\n";
    }
  }
  std::cout << std::flush;
  AnnounceReadiness("listening on " + address);
  orvo::WriteAll(browser, address);
}

// Says once what protects this machine less from films than it could.
void TellConfinement() {
  const std::string missing = orvo::MissingConfinement();
  if (orvo::SandboxMode() == orvo::Sandbox::kOff) {
    std::cerr << "films are read by processes that are not confined (sandbox=off)\n";
  } else if (!missing.empty()) {
    std::cerr << "this kernel lacks " << missing << ": films are "
              << (orvo::SandboxMode() == orvo::Sandbox::kRequired
                      ? "not opened (sandbox=required)\n"
                      : "read by processes that are confined less\n");
  }
}

void TellFFmpeg() {
  if (access(LibOrvoQMX::kFFmpeg, X_OK) != 0) {
    std::cerr << "FFmpeg is missing (" << LibOrvoQMX::kFFmpeg
              << "): only films that a player plays as they are can be watched; install the "
                 "package ffmpeg\n";
  }
}

// Starts the web server and runs until the end.
int Run(const WebServer& server, Belongings& belongings, int browser, const Wishes& wishes) {
  orvo::AdoptOrphans();
  orvo::SignalEvents signals({SIGINT, SIGTERM, SIGHUP, SIGCHLD});
  const std::string log = "; see " + server.stateFolder + "/lighttpd.log\n";
  orvo::Process keeper = StartKeeper(server, belongings);
  if (!keeper) {
    const int reason = errno;
    Refuse("the web server could not be started", reason);
    return 1;
  }
  if (!Answers(server)) {
    std::cerr << "the web server does not answer" << log;
    Stop(keeper, false);
    return 1;
  }
  Announce(server, browser);
  TellConfinement();
  TellFFmpeg();
  Companions companions(server, wishes);
  Measurement measurement(wishes.analysis);
  Heartbeat heartbeat(server);
  const bool told = ServeUntilStopped(signals, keeper, companions, heartbeat);
  AnnounceStop();
  companions.Stop();
  measurement.Stop();
  unlink((server.stateFolder + kAddressFile).c_str());
  Stop(keeper, told);
  unlink((server.stateFolder + kAnalysisFile).c_str());
  unlink(orvo::SystemPath(orvo::kCopiesSocket).c_str());
  unlink(orvo::SystemPath(orvo::kReadySocket).c_str());
  if (!told) {
    std::cerr << "the web server has ended" << log;
  }
  return told ? 0 : 1;
}

bool IsHostCharacter(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == ':' ||
         c == '[' || c == ']';
}

// The folders of all files that the web server sends for a request: pieces of streams, and
// pictures. Films are not among them, and neither is anything secret.
std::vector<std::string> SendFolders() {
  std::vector<std::string> folders = {orvo::SystemPath(LibOrvoQMX::kCacheFolder)};
  for (const char* const kind : {"HLS", "SS", "CMAF"}) {
    folders.push_back(LibOrvoQMX::StreamKindPath(kind));
  }
  return folders;
}

// No other user can put anything into a folder that exists and is closed.
int PrepareState() {
  const std::string problem = orvo::StateProblem();
  if (!problem.empty()) {
    std::cerr << problem << "\n";
    return EX_NOPERM;
  }
  const std::string streams = orvo::SystemPath("/tmp/Mirevo");
  if (!orvo::MakePrivateFolder(streams)) {
    return CannotWrite(streams, errno);
  }
  return 0;
}

}  // namespace

bool IsHost(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsHostCharacter);
}

bool IsOrigin(const std::string& text) {
  for (const std::string scheme : {"http://", "https://"}) {
    if (text.rfind(scheme, 0) == 0) {
      return IsHost(text.substr(scheme.size()));
    }
  }
  return false;
}

bool IsPrefix(const std::string& text) {
  const auto words = LibOrvoQMX::StringExplode(text, "/");
  std::string joined;
  for (const std::string& word : words) {
    joined += "/" + word;
  }
  return !words.empty() && joined == text && words.front() != "webapi" &&
         words.front() != "files" && words.front() != "dlna" &&
         std::all_of(words.begin(), words.end(), [](const std::string& word) {
           return word.front() != '.' && std::all_of(word.begin(), word.end(), [](unsigned char c) {
                    return (c < 0x80 && std::isalnum(c) != 0) || c == '-' || c == '_' || c == '.';
                  });
         });
}

int Serve(const Options& options) {
  const std::string state = orvo::SystemPath(kStateFolder);
  std::vector<Endpoint> endpoints = EndpointsOf(options);
  // Who may not read the state would take the accounts for damaged.
  if (const int refused = PrepareState(); refused != 0) {
    return refused;
  }
  if (const int refused = MakeOwnFolder(state); refused != 0) {
    return refused;
  }
  if (!MayListen(endpoints, options.media.empty()) || !CanRead(options.certificate) ||
      !CanRead(options.key) || !CanSeal(options.clusterKey)) {
    return 1;
  }
  // Two services on one system would close each other's streams.
  Belongings belongings{{}, orvo::FileLock::Try(state + "/serve.lock")};
  if (!belongings.alone->IsHeld()) {
    std::cerr << "mirevo already serves here (" << state << ")\n";
    return 1;
  }
  if (const int refused = ConfigureMedia(options.media); refused != 0) {
    return refused;
  }
  if (!OfferFirstStart(endpoints)) {
    return CannotWrite(orvo::SystemPath(accounts::kFirstWordFile), errno);
  }
  belongings.sockets = OpenSockets(options, endpoints);
  if (belongings.sockets.empty()) {
    return 1;
  }
  const orvo::UniqueFd browser = options.browser ? PrepareBrowser() : orvo::UniqueFd();
  // A stream's link works like a login, so only this user may read these files.
  umask(S_IRWXG | S_IRWXO);
  const std::string package = orvo::SystemPath(kPackageFolder);
  return Run({package + "player", package + "webapi", state, SendFolders(), endpoints,
              options.hosts, options.origins, options.certificate, options.key,
              package + "lib/mirevo-doorkeeper.so", options.connectionsPerAddress,
              package + "lib/ready_segment.lua", options.proxies, AbsolutePath(options.clusterKey),
              options.clusterUrl, options.clusterBoxes, options.prefix, options.keptSegments},
             belongings, browser.Get(),
             {options.analysis, options.conversions, options.agent, options.dlnaInterfaces});
}

}  // namespace serve
