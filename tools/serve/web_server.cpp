#include "tools/serve/web_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "platform/io.h"

namespace serve {
namespace {

constexpr char kLighttpd[] = "/usr/sbin/lighttpd";
constexpr int kPassedSocket = 3;  // where a server that is handed a socket looks for it
constexpr int kAnswerSeconds = 10;

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

// A text of lighttpd's configuration language.
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

std::string List(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) {
    list += (list.empty() ? "( " : ", ") + Quoted(text);
  }
  return list + " )";
}

std::string Configuration(const WebServer& server) {
  std::string text;
  const auto line = [&](const std::string& key, const std::string& value) {
    text += key + " = " + value + "\n";
  };
  line("server.systemd-socket-activation", "\"enable\"");
  line("server.bind", "\"127.0.0.1\"");
  line("server.port", std::to_string(server.port));
  line("server.document-root", Quoted(server.pageFolder));
  line("server.errorlog", Quoted(server.stateFolder + "/lighttpd.log"));
  line("server.modules", "( \"mod_setenv\", \"mod_alias\", \"mod_cgi\" )");
  line("index-file.names", "( \"index.html\" )");
  line("mimetype.assign",
       "( \".html\" => \"text/html; charset=utf-8\", \".js\" => \"text/javascript\", "
       "\".css\" => \"text/css\", \".svg\" => \"image/svg+xml\", \".png\" => \"image/png\", "
       "\".json\" => \"application/json\" )");
  line("alias.url", "( \"/webapi/\" => " + Quoted(server.webapiFolder + "/") + " )");
  line("cgi.assign", "( \"entry.cgi\" => \"\" )");
  // Segments, pictures and films that need no transcoder go out by the web server itself, from
  // their folders and nowhere else.
  std::string environment = "( \"MIREVO_SENDFILE\" => \"X-Sendfile\"";
  if (const char* sysroot = secure_getenv("ORVO_SYSROOT"); sysroot != nullptr) {
    environment += ", \"ORVO_SYSROOT\" => " + Quoted(sysroot);
  }
  line("setenv.set-environment", environment + " )");
  line("cgi.x-sendfile", "\"enable\"");
  line("cgi.x-sendfile-docroot", List(server.sendFolders));
  line("setenv.add-response-header",
       "( \"Content-Security-Policy\" => \"default-src 'self'; img-src 'self' data:; media-src "
       "'self' blob:; style-src "
       "'self' 'unsafe-inline'\", "
       "\"Referrer-Policy\" => \"no-referrer\" )");
  // A film goes out as the viewer takes it, and a request whose viewer has left is ended.
  line("server.stream-response-body", "2");
  // A paused player takes nothing for hours. That is no reason to hang up on it.
  line("server.max-write-idle", "65535");
  // A film's name may hold a newline; the request program looks at every character itself.
  line("server.http-parseopts", "( \"url-ctrls-reject\" => \"disable\" )");
  line("server.max-request-size", "128");
  return text;
}

bool WriteConfiguration(const WebServer& server, const std::string& path) {
  std::ofstream file(path, std::ios::trunc);
  file << Configuration(server);
  file.close();
  return file.good();
}

// In the child: the socket where it is looked for, the own pid in the environment, and the program.
[[noreturn]] void Become(int socket, pid_t parent, char* listenPid, char* const* argv,
                         char* const* environment) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) {
    _exit(1);
  }
  if (socket == kPassedSocket) {
    fcntl(socket, F_SETFD, 0);
  } else {
    dup2(socket, kPassedSocket);
  }
  *std::to_chars(listenPid, listenPid + 16, getpid()).ptr = '\0';
  execve(kLighttpd, argv, environment);
  _exit(127);
}

}  // namespace

orvo::UniqueFd ListenOnLoopback(int& port) {
  orvo::UniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int yes = 1;
  setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
  sockaddr_in address = Loopback(port);
  socklen_t size = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener.Get(), generic, size) != 0 || listen(listener.Get(), SOMAXCONN) != 0 ||
      getsockname(listener.Get(), generic, &size) != 0) {
    return {};
  }
  port = ntohs(address.sin_port);
  return listener;
}

pid_t Start(const WebServer& server, orvo::UniqueFd socket) {
  const std::string path = server.stateFolder + "/lighttpd.conf";
  if (!WriteConfiguration(server, path) || access(kLighttpd, X_OK) != 0) {
    return -1;
  }
  std::array<char, 32> listenPid{"LISTEN_PID="};
  char listenFds[] = "LISTEN_FDS=1";
  std::vector<char*> environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    environment.push_back(*variable);
  }
  environment.insert(environment.end(), {listenPid.data(), listenFds, nullptr});
  std::vector<std::string> arguments = {kLighttpd, "-D", "-f", path};
  std::vector<char*> argv;
  std::transform(arguments.begin(), arguments.end(), std::back_inserter(argv),
                 [](std::string& argument) { return argument.data(); });
  argv.push_back(nullptr);

  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) {
    char* const number = listenPid.data() + sizeof("LISTEN_PID=") - 1;
    Become(socket.Get(), parent, number, argv.data(), environment.data());
  }
  return pid;
}

bool Answers(int port) {
  const orvo::UniqueFd connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval patience{kAnswerSeconds, 0};
  setsockopt(connection.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
  const sockaddr_in address = Loopback(port);
  char answer = '\0';
  return connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
             0 &&
         orvo::WriteAll(connection.Get(), "HEAD / HTTP/1.0\r\n\r\n") &&
         read(connection.Get(), &answer, 1) == 1;
}

}  // namespace serve
