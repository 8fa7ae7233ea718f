// orvodlnad: shows the library to the televisions of the local network (docs/dlna.md).
#include <glib-unix.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <syslog.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "dlna/media_server.h"
#include "platform/confinement.h"
#include "platform/landlock.h"
#include "platform/plat.h"
#include "settings/televisions.h"
#include "util/private_folder.h"

namespace {

constexpr char kStateFolder[] = "/run/mirevo/dlna";
constexpr char kServices[] = "/var/packages/Mirevo/target/dlna";
// What the C library and GLib's load when they need it.
constexpr std::array kSystemFiles = {"/usr/lib", "/usr/share", "/lib", "/etc/localtime",
                                     "/dev/urandom"};

struct FreeLoop {
  void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
};

int Refuse(const std::string& reason) {
  fprintf(stderr, "orvodlnad: %s\n", reason.c_str());
  return 1;
}

gboolean Quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_CONTINUE;
}

// "192.168.1.5:8096"
dlna::Place ParsePlace(const std::string& text) {
  const auto colon = text.rfind(':');
  return colon == std::string::npos ? dlna::Place{text, "80"}
                                    : dlna::Place{text.substr(0, colon), text.substr(colon + 1)};
}

// Everybody on the network sends packets to this program. Whatever one does to the libraries that
// read it, from now on they reach these files and start no program. Returns 0 or an errno.
int Confine(const dlna::Setup& setup, const std::string& folder) {
  const orvo::Sandbox mode = orvo::SandboxMode();
  if (mode == orvo::Sandbox::kOff) {
    return 0;
  }
  orvo::LandlockRules rules(orvo::Network::kOpen);
  const bool isReady =
      rules.IsOpen() &&
      std::all_of(kSystemFiles.begin(), kSystemFiles.end(),
                  [&](const char* path) { return rules.AllowReading(path); }) &&
      rules.AllowReading(std::filesystem::weakly_canonical(setup.services).string()) &&
      rules.AllowWriting(folder) &&
      rules.AllowRemovingFolders(std::filesystem::path(folder).parent_path().string());
  const int error = isReady ? rules.Apply() : errno;
  return mode == orvo::Sandbox::kRequired ? error : 0;
}

void ServeUntilStopped(const dlna::Setup& setup) {
  const std::unique_ptr<GMainLoop, FreeLoop> loop(g_main_loop_new(nullptr, FALSE));
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    g_unix_signal_add(signal, Quit, loop.get());
  }
  const dlna::MediaServer server(setup);
  g_main_loop_run(loop.get());
}

int Serve(dlna::Setup setup, const std::vector<std::string>& listen) {
  for (const std::string& place : listen) {
    setup.listen.push_back(ParsePlace(place));
  }
  const settings::Televisions televisions = settings::ReadTelevisions();
  if (!televisions.areLetIn) {
    return Refuse("no owner has let televisions in; \"mirevo dlna on\" does");
  }
  setup.device = televisions.device;
  setup.word = televisions.word;
  const std::string folder = orvo::SystemPath(kStateFolder);
  setup.description = folder + "/description.xml";
  setup.services = orvo::SystemPath(kServices);
  if (!orvo::MakePrivateFolder(folder) || !WriteDescription(setup)) {
    return Refuse(setup.description + ": " + strerror(errno));
  }
  // GLib starts threads later; they are confined with this one.
  if (const int error = Confine(setup, folder); error != 0) {
    return Refuse(std::string("it cannot be confined: ") + strerror(error));
  }
  ServeUntilStopped(setup);
  unlink(setup.description.c_str());
  rmdir(folder.c_str());
  return 0;
}

int Run(int argc, char** argv) {
  CLI::App app("Show the library to the televisions of the local network.", "orvodlnad");
  dlna::Setup setup;
  std::vector<std::string> listen;
  app.add_option("--service", setup.service, "The service's address for this program")->required();
  app.add_option("--listen", listen, "Where the service listens for televisions")->required();
  app.add_option("--interface", setup.interfaces, "A network interface to use");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : EX_USAGE;
  }
  return Serve(setup, listen);
}

}  // namespace

int main(int argc, char** argv) {
  openlog("orvodlnad", LOG_PID, LOG_USER);
  umask(S_IRWXG | S_IRWXO);
  setenv("GSETTINGS_BACKEND", "memory", 1);  // nobody's desktop settings
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    return Refuse(error.what());
  }
}
