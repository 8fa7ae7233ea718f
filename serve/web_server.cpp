#include "serve/web_server.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string_view>
#include <vector>

#include "contract/blocks.h"
#include "contract/kept_segments.h"
#include "platform/io.h"
#include "platform/process_launch.h"

namespace serve {
namespace {

constexpr char kLighttpd[] = "/usr/sbin/lighttpd";
constexpr char kScriptModule[] = "/usr/lib/lighttpd/mod_magnet.so";
constexpr int kPassedSocket = 3;  // the descriptor at which a server expects a passed socket
constexpr int kAnswerSeconds = 10;
constexpr std::string_view kQuestion = "HEAD / HTTP/1.0\r\n\r\n";

// The web server's descriptors. It needs up to three for a connection: the client, the file that it
// sends, and the pipe of a request program.
constexpr rlim_t kMostDescriptors = 32768;
constexpr rlim_t kDescriptorsEach = 3;
// These connections are left for this machine's own programs.
constexpr int kReserved = 64;

// How long a client may send nothing, in seconds: within its first request, and after an answer.
// Many programs use a connection again for five seconds; a server that closes it then may do so
// under the next request. A player asks for a segment every two to ten seconds.
constexpr char kReadIdle[] = "15";
constexpr char kKeepAliveIdle[] = "20";
// How long a client may take nothing of an answer. A page is one part of a moment; a player may be
// paused for most of a day.
constexpr char kWriteIdle[] = "30";
constexpr char kStreamWriteIdle[] = "65535";
// A request for media, whose method may be a JSON text.
constexpr char kStreamQuery[] = "(^|[&;])method=(%22)?stream(%22)?(&|$)";

// An empty TLS greeting. A TLS server answers it with an alert, and logs that.
constexpr std::string_view kTlsQuestion("\x16\x03\x01\0\x04\x01\0\0\0", 9);

// A string in lighttpd's configuration language.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
    }
    quoted += c;
  }
  return quoted + '"';
}

std::string Join(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (const std::string& part : parts) {
    text += (text.empty() ? "" : separator) + part;
  }
  return text;
}

// A list of strings in that language.
std::string List(std::vector<std::string> texts) {
  std::transform(texts.begin(), texts.end(), texts.begin(), Quoted);
  return "( " + Join(texts, ", ") + " )";
}

// The names that an endpoint has without configuration.
std::vector<std::string> OwnNames(const Endpoint& endpoint) {
  const std::string port = std::string(":").append(std::to_string(endpoint.port));
  if (endpoint.IsAny()) {
    return {"localhost" + port, "*" + port};
  }
  if (endpoint.IsLoopback()) {
    return {"localhost" + port, "127.0.0.1" + port, "[::1]" + port, endpoint.Authority()};
  }
  return {endpoint.Authority()};
}

// The list of this server's names for the request program (webapi/access/origin.h).
std::vector<std::string> HostsOf(const WebServer& server) {
  std::set<std::string> hosts(server.hosts.begin(), server.hosts.end());
  for (const Endpoint& endpoint : server.endpoints) {
    const std::vector<std::string> names = OwnNames(endpoint);
    hosts.insert(names.begin(), names.end());
  }
  return {hosts.begin(), hosts.end()};
}

// One of those names as a regular expression. Browsers leave out the usual port.
std::string PatternOf(const std::string& host, const std::string& usualPort) {
  std::string pattern;
  for (const char c : host) {
    if (c == '*') {
      pattern += "([0-9.]+|\\[[0-9a-f:.]+\\])";
    } else if (c == '.' || c == '[' || c == ']') {
      pattern += std::string("\\") + c;
    } else {
      pattern += c;
    }
  }
  const auto colon = host.rfind(':');
  if (colon == std::string::npos || host.find(']', colon) != std::string::npos) {
    return pattern + "(:[0-9]+)?";
  }
  if (host.substr(colon + 1) == usualPort) {
    pattern.insert(pattern.rfind(':'), 1, '(');
    pattern += ")?";
  }
  return pattern;
}

// All names of this server as a regular expression.
std::string HostPattern(const WebServer& server) {
  std::vector<std::string> patterns;
  for (const std::string& host : HostsOf(server)) {
    patterns.push_back(PatternOf(host, server.certificate.empty() ? "80" : "443"));
  }
  return "\"^(" + Join(patterns, "|") + ")$\"";
}

// Protects the pages, which the web server sends itself. A browser that uses a foreign host name
// gets none of them.
std::string HostCondition(const WebServer& server) {
  return "$HTTP[\"url\"] !~ \"^/webapi/\" {\n  $HTTP[\"host\"] !~ " + HostPattern(server) +
         " {\n    url.access-deny = ( \"\" )\n  }\n}\n";
}

// Lets the script send ready segments, if the module for scripts is installed. Pages of other sites
// need headers that only the request program knows.
std::string ReadySegments(const WebServer& server) {
  if (access(kScriptModule, R_OK) != 0 || !server.origins.empty()) {
    return "";
  }
  // A changed file must show at once.
  return "server.modules += ( \"mod_magnet\" )\nserver.stat-cache-engine = \"disable\"\n"
         "$HTTP[\"url\"] =~ \"^/webapi/entry\\.cgi/(segment\\.(ts|m4s)|init\\.mp4)$\" {\n  "
         "$HTTP[\"host\"] =~ " +
         HostPattern(server) + " {\n    magnet.attract-raw-url-to = ( " +
         Quoted(server.readySegment) + " )\n  }\n}\n";
}

// Gives each kind of answer its time.
std::string StreamCondition() {
  return std::string("$HTTP[\"querystring\"] =~ ") + Quoted(kStreamQuery) +
         " {\n  server.max-write-idle = " + kStreamWriteIdle +
         "\n}\n$HTTP[\"url\"] =~ \"^/(files|dlna)/\" {\n  server.max-write-idle = " +
         kStreamWriteIdle + "\n}\n";
}

// As many descriptors as this process may give away.
rlim_t Descriptors() {
  rlimit limit{};
  const bool isKnown = getrlimit(RLIMIT_NOFILE, &limit) == 0;
  return isKnown ? std::min(limit.rlim_max, kMostDescriptors) : kDescriptorsEach * kReserved;
}

int Connections() {
  return static_cast<int>(Descriptors() / kDescriptorsEach);
}

bool IsFarther(const WebServer& server) {
  return std::any_of(server.endpoints.begin(), server.endpoints.end(),
                     [](const Endpoint& endpoint) { return !endpoint.IsLoopback(); });
}

// Where other machines reach the service.
std::vector<std::string> FartherEndpoints(const WebServer& server) {
  std::vector<std::string> farther;
  for (const Endpoint& endpoint : server.endpoints) {
    if (!endpoint.IsLoopback()) {
      farther.push_back(endpoint.Authority());
    }
  }
  return farther;
}

// The environment of the request program.
std::string EnvironmentOf(const WebServer& server) {
  // The web server itself sends segments, pictures and films without a transcoder, and only from
  // their folders.
  std::string environment = "( \"MIREVO_SENDFILE\" => \"X-Sendfile\"";
  const auto add = [&](const std::string& name, const std::string& value) {
    environment += ", " + Quoted(name) + " => " + Quoted(value);
  };
  add("MIREVO_CHUNKED", "1");
  add("MIREVO_HOSTS", Join(HostsOf(server), " "));
  add("MIREVO_ORIGINS", Join(server.origins, " "));
  add("MIREVO_PROXIES", Join(server.proxies, " "));
  add("MIREVO_PREFIX", server.prefix);
  add("MIREVO_LISTEN", Join(FartherEndpoints(server), " "));
  if (server.keptSegments > 0) {
    add(orvo::kKeptSegmentsVariable, std::to_string(server.keptSegments));
  }
  if (!server.clusterKey.empty()) {
    add("MIREVO_CLUSTER_KEY", server.clusterKey);
    add(orvo::kBlocksVariable, "1");
    add("MIREVO_CLUSTER_URL", server.clusterUrl);
    add("MIREVO_CLUSTER_BOXES", std::to_string(server.clusterBoxes));
  }
  if (IsFarther(server)) {
    // This holds even if the last account is removed later.
    add("MIREVO_LOGIN", "required");
  }
  if (const char* sysroot = secure_getenv("ORVO_SYSROOT"); sysroot != nullptr) {
    add("ORVO_SYSROOT", sysroot);
  }
  return environment + " )";
}

std::string ResponseHeaders(const WebServer& server) {
  // hls.js plays from blob: addresses and starts its subtitle tracks with an empty text in a data:
  // address. Subtitles with styles are drawn by a module of WebAssembly, which needs the word of
  // script-src; texts do not become scripts by it.
  std::string headers =
      "( \"Content-Security-Policy\" => \"default-src 'self'; img-src 'self' data:; media-src "
      "'self' blob: data:; script-src 'self' 'wasm-unsafe-eval'; style-src 'self' 'unsafe-inline'; "
      "object-src 'none'; base-uri 'none'; "
      "form-action 'self'; frame-ancestors 'none'\", "
      "\"Referrer-Policy\" => \"same-origin\", \"X-Content-Type-Options\" => \"nosniff\", "
      "\"X-Frame-Options\" => \"DENY\"";
  if (server.origins.empty()) {
    headers += ", \"Cross-Origin-Resource-Policy\" => \"same-origin\"";
  }
  if (!server.certificate.empty()) {
    headers += ", \"Strict-Transport-Security\" => \"max-age=31536000\"";
  }
  return headers + " )";
}

std::string Encryption(const WebServer& server) {
  if (server.certificate.empty()) {
    return "";
  }
  std::string text = "server.modules += ( \"mod_openssl\" )\nssl.engine = \"enable\"\n";
  text += "ssl.pemfile = " + Quoted(server.certificate) + "\n";
  if (!server.key.empty()) {
    text += "ssl.privkey = " + Quoted(server.key) + "\n";
  }
  return text + "ssl.openssl.ssl-conf-cmd = ( \"MinProtocol\" => \"TLSv1.2\" )\n";
}

// What the named proxies tell about their clients: the address, and whether the client's connection
// is encrypted. Anybody else's word does not count.
std::string Forwarding(const WebServer& server) {
  if (server.proxies.empty()) {
    return "";
  }
  std::string trusted;
  for (const std::string& proxy : server.proxies) {
    trusted += (trusted.empty() ? "" : ", ") + Quoted(proxy) + " => \"trust\"";
  }
  return "server.modules += ( \"mod_extforward\" )\n"
         "extforward.headers = ( \"X-Forwarded-For\" )\n"
         "extforward.forwarder = ( " +
         trusted + " )\n";
}

// With a prefix, each path also counts without it: some proxies take it away, others do not.
std::string Prefixed(const WebServer& server) {
  if (server.prefix.empty()) {
    return "";
  }
  std::string pattern;
  for (const char c : server.prefix) {
    pattern += c == '.' ? "\\." : std::string(1, c);
  }
  return "url.rewrite-once = ( " + Quoted("^" + pattern + "(/.*)$") +
         " => \"$1\" )\nurl.redirect = ( " + Quoted("^" + pattern + "$") + " => " +
         Quoted(server.prefix + "/") + " )\n";
}

std::string Configuration(const WebServer& server) {
  std::string text;
  const auto line = [&](const std::string& key, const std::string& value) {
    text += key + " = " + value + "\n";
  };
  const Endpoint& first = server.endpoints.front();
  const std::string authority = first.Authority();
  line("server.systemd-socket-activation", "\"enable\"");
  line("server.bind", Quoted(authority.substr(0, authority.rfind(':'))));
  line("server.port", std::to_string(first.port));
  line("server.document-root", Quoted(server.pageFolder));
  line("server.errorlog", Quoted(server.stateFolder + "/lighttpd.log"));
  line("server.modules",
       "( \"mod_rewrite\", \"mod_redirect\", \"mod_access\", \"mod_setenv\", \"mod_alias\", "
       "\"mod_cgi\" )");
  line("index-file.names", "( \"index.html\" )");
  line("mimetype.assign",
       "( \".html\" => \"text/html; charset=utf-8\", \".js\" => \"text/javascript\", "
       "\".css\" => \"text/css\", \".svg\" => \"image/svg+xml\", \".png\" => \"image/png\", "
       "\".json\" => \"application/json\", \".wasm\" => \"application/wasm\", "
       "\".woff2\" => \"font/woff2\" )");
  // Below /files, the same program shows the media folders (webapi/library/file_index.h), and below
  // /dlna, it sends films to televisions (webapi/television/television.h).
  const std::string program = Quoted(server.webapiFolder + "/entry.cgi");
  line("alias.url", "( \"/webapi/\" => " + Quoted(server.webapiFolder + "/") + ", \"/files\" => " +
                        program + ", \"/dlna\" => " + program + " )");
  line("cgi.assign", "( \"entry.cgi\" => \"\" )");
  line("setenv.set-environment", EnvironmentOf(server));
  line("cgi.x-sendfile", "\"enable\"");
  line("cgi.x-sendfile-docroot", List(server.sendFolders));
  line("setenv.set-response-header", ResponseHeaders(server));
  // Send a film as fast as the viewer reads it, and end a request whose viewer has left.
  line("server.stream-response-body", "2");
  // The same before the request has answered: a client that closes its side has left.
  line("cgi.limits", "( \"tcp-fin-propagate\" => \"SIGTERM\" )");
  // One request at a time on each connection, so a viewer who leaves closes the connection. After a
  // jump of the calendar clock the server would answer nobody, and then start itself again, which
  // breaks all streams; a suspended machine wakes up with such a jump.
  line("server.feature-flags",
       "( \"server.h2proto\" => \"disable\", \"server.clock-jump-restart\" => 0 )");
  line("server.max-fds", std::to_string(Descriptors()));
  line("server.max-connections", std::to_string(Connections()));
  line("server.max-read-idle", kReadIdle);
  line("server.max-keep-alive-idle", kKeepAliveIdle);
  line("server.max-write-idle", kWriteIdle);
  // A film's name may contain a newline. The request program checks every character itself.
  line("server.http-parseopts", "( \"url-ctrls-reject\" => \"disable\" )");
  line("server.max-request-size", "128");
  return text + Prefixed(server) + Encryption(server) + Forwarding(server) + ReadySegments(server) +
         HostCondition(server) + StreamCondition();
}

bool WriteConfiguration(const WebServer& server, const std::string& path) {
  std::ofstream file(path, std::ios::trunc);
  file << Configuration(server);
  file.close();
  return file.good();
}

// The list of libraries that are loaded first, with the doorkeeper before all others.
std::string Preloaded(const WebServer& server) {
  const char* const others = getenv("LD_PRELOAD");
  const bool hasOthers = others != nullptr && *others != '\0';
  return server.doorkeeper + (hasOthers ? std::string(":") + others : "");
}

// The variables of the web server that the caller's environment lacks.
std::vector<std::string> OwnVariables(const WebServer& server, size_t sockets) {
  return {"LISTEN_FDS=" + std::to_string(sockets), "LD_PRELOAD=" + Preloaded(server),
          "MIREVO_DOOR_EACH=" + std::to_string(server.connectionsPerAddress),
          "MIREVO_DOOR_ALL=" + std::to_string(Connections() - kReserved),
          "MIREVO_DOOR_PROXY=" + Join(server.proxies, " ")};
}

// The caller's environment with those variables.
std::vector<std::string> EnvironmentWith(std::vector<std::string> environment) {
  const size_t own = environment.size();
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view inherited(*variable);
    const std::string_view name = inherited.substr(0, inherited.find('=') + 1);
    if (std::none_of(environment.begin(), environment.begin() + static_cast<ptrdiff_t>(own),
                     [&](const std::string& set) { return set.rfind(name, 0) == 0; })) {
      environment.emplace_back(inherited);
    }
  }
  return environment;
}

}  // namespace

orvo::Process Start(const WebServer& server, const std::vector<orvo::UniqueFd>& sockets) {
  const std::string path = server.stateFolder + "/lighttpd.conf";
  if (!WriteConfiguration(server, path)) {
    return {};
  }
  orvo::Program program{kLighttpd, {kLighttpd, "-D", "-f", path}};
  program.environment = EnvironmentWith(OwnVariables(server, sockets.size()));
  program.pidVariable = "LISTEN_PID";
  for (const orvo::UniqueFd& socket : sockets) {
    const int number = kPassedSocket + static_cast<int>(program.descriptors.size());
    program.descriptors.push_back({socket.Get(), number});
  }
  orvo::LaunchOptions options;
  options.streams = orvo::StandardStreams::kKept;
  options.parentDeath.signal = SIGKILL;
  return orvo::Start(program, options);
}

orvo::UniqueFd Ask(const WebServer& server) {
  orvo::UniqueFd connection = Connect(server.endpoints.front());
  orvo::WriteAll(connection.Get(), server.certificate.empty() ? kQuestion : kTlsQuestion);
  return connection;
}

bool Answers(const WebServer& server) {
  const orvo::UniqueFd connection = Ask(server);
  const timeval patience{kAnswerSeconds, 0};
  setsockopt(connection.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
  char answer = '\0';
  return read(connection.Get(), &answer, 1) == 1;
}

}  // namespace serve
