#include "mirevo/cluster_command.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "mirevo/balancer.h"
#include "mirevo/exit_codes.h"
#include "mirevo/output.h"
#include "webapi/cluster/cluster_keys.h"
#include "webapi/cluster/draining.h"

namespace mirevo {
namespace {

int PrintKey() {
  const std::string key = webapi::NewClusterKey();
  if (key.empty()) {
    Complain("the kernel gives no random bits");
    return kFailed;
  }
  std::cout << key << "\n";
  return kOk;
}

// Lets the films of this box run out, or takes it back.
int Drain(bool isDraining) {
  if (webapi::SetDraining(isDraining)) {
    return kOk;
  }
  const int reason = errno;
  Complain(reason == ENOENT ? "no service has run here"
                            : std::string("the service's folder: ") + std::strerror(reason));
  return reason == EACCES || reason == EPERM ? kNoPermission : kUnavailable;
}

// Where HAProxy's own package keeps it.
constexpr char kSocket[] = "/run/haproxy/admin.sock";
constexpr char kListen[] = "*:8080";
constexpr size_t kMostBoxes = 64;
constexpr int kAgentPort = 8097;
constexpr int kMaxPort = 65535;

struct BalancerOptions {
  std::vector<std::string> boxes;
  std::string listen = kListen;
  std::string socket = kSocket;
  int agentPort = kAgentPort;
};

std::string BoxComplaint(const std::string& text) {
  return ParseBox(text) ? "" : text + " is not a host in lower case, or HOST:PORT";
}

std::string ListenComplaint(const std::string& text) {
  return text.rfind("*:", 0) == 0 ? BoxComplaint("all" + text.substr(1)) : BoxComplaint(text);
}

// A blank would begin another word of the configuration.
std::string PathComplaint(const std::string& text) {
  const bool isPlain =
      text.rfind('/', 0) == 0 && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return c < 128 && (std::isalnum(c) != 0 || std::strchr("/._-", c) != nullptr);
      });
  return isPlain ? "" : text + " is not an absolute path of letters, digits and /._-";
}

void PrintBalancer(const BalancerOptions& options) {
  std::vector<Box> boxes;
  for (const std::string& text : options.boxes) {
    boxes.push_back(ParseBox(text).value());
  }
  std::cout << BalancerConfiguration(boxes, options.listen, options.socket, options.agentPort);
}

void AddBalancer(CLI::App& command) {
  auto options = std::make_shared<BalancerOptions>();
  CLI::App* const balancer = command.add_subcommand(
      "haproxy", "Print a configuration of HAProxy that spreads streams over boxes");
  balancer->add_option("box", options->boxes, "The boxes")
      ->required()
      ->expected(1, kMostBoxes)
      ->check(CLI::Validator(BoxComplaint, ""))
      ->type_name("HOST[:PORT]");
  balancer->add_option("--listen", options->listen, "Where players reach the balancer")
      ->check(CLI::Validator(ListenComplaint, ""))
      ->type_name("HOST:PORT")
      ->capture_default_str();
  balancer->add_option("--socket", options->socket, "The balancer's administration socket")
      ->check(CLI::Validator(PathComplaint, ""))
      ->type_name("PATH")
      ->capture_default_str();
  balancer->add_option("--agent-port", options->agentPort, "The port of each box's agent")
      ->check(CLI::Range(1, kMaxPort))
      ->type_name("N")
      ->capture_default_str();
  balancer->callback([options] { PrintBalancer(*options); });
}

}  // namespace

void AddClusterCommand(CLI::App& app, int& exitCode) {
  CLI::App* const command =
      app.add_subcommand("cluster", "Prepare several boxes that serve the same films");
  command->require_subcommand(1);
  command->add_subcommand("key", "Print a new key for the file that cluster_key names")
      ->callback([&exitCode] { exitCode = PrintKey(); });
  command->add_subcommand("drain", "Send new streams to the other boxes; films on this one go on")
      ->callback([&exitCode] { exitCode = Drain(true); });
  command->add_subcommand("ready", "Take new streams again")->callback([&exitCode] {
    exitCode = Drain(false);
  });
  AddBalancer(*command);
}

}  // namespace mirevo
