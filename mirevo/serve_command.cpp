#include "mirevo/serve_command.h"

#include <functional>
#include <memory>
#include <string>

#include "mirevo/agent_command.h"
#include "serve/endpoint.h"
#include "serve/service.h"

namespace mirevo {
namespace {

constexpr int kMaxPort = 65535;
constexpr int kMaxConnections = 65535;
constexpr int kMostBoxes = 64;
constexpr int kMaxKeptSegments = 1 << 30;  // MiB

// A validator that accepts the option's texts for which `isGood` holds.
CLI::Validator Check(const std::function<bool(const std::string&)>& isGood, const char* complaint) {
  return CLI::Validator(
      [=](const std::string& text) { return isGood(text) ? "" : text + " " + complaint; }, "");
}

// Adds the options of a box.
void AddCluster(CLI::App& command, const std::shared_ptr<serve::Options>& options) {
  auto* const key =
      command.add_option("--cluster_key", options->clusterKey,
                         "The key that this box shares with the others of its cluster");
  key->type_name("FILE");
  auto* const url =
      command.add_option("--cluster_url", options->clusterUrl,
                         "The balancer, which this box asks to begin the next blocks");
  url->check(Check(serve::IsOrigin, "is not like http://films.lan:8080"))
      ->type_name("URL")
      ->needs(key);
  auto* const boxes = command.add_option("--cluster_boxes", options->clusterBoxes,
                                         "How many boxes the balancer has");
  boxes->check(CLI::Range(1, kMostBoxes))->type_name("N")->needs(url);
  url->needs(boxes);
  AddAgentPlace(command, "--agent", options->agent,
                "Where a load balancer asks how much this box can take");
}

// Adds the options that say who can reach the service, and how.
void AddReach(CLI::App& command, const std::shared_ptr<serve::Options>& options) {
  const auto isAddress = [](const std::string& text) {
    return serve::ParseEndpoint(text, 0).has_value();
  };
  command
      .add_option("--listen", options->listen,
                  "An address to listen on (0.0.0.0 and :: for all); beyond this machine it needs "
                  "an account. Default: 127.0.0.1")
      ->check(Check(isAddress, "is not an IPv4 or IPv6 address"))
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  command.add_option("--host", options->hosts, "A name by which browsers may call this server")
      ->check(Check(serve::IsHost, "is not a host name in lower case"))
      ->type_name("NAME[:PORT]")
      ->allow_extra_args(false);
  command
      .add_option("--allow-origin", options->origins, "Another server whose pages may use this one")
      ->check(Check(serve::IsOrigin, "is not like https://tv.example"))
      ->type_name("URL")
      ->allow_extra_args(false);
  command
      .add_option("--proxy", options->proxies,
                  "A reverse proxy, which tells its clients' addresses")
      ->check(Check(isAddress, "is not an IPv4 or IPv6 address"))
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  command
      .add_option("--prefix", options->prefix,
                  "A path before all addresses, if a proxy serves other things beside this")
      ->check(Check(serve::IsPrefix, "is not like /films"))
      ->type_name("PATH");
  command
      .add_option("--connections", options->connectionsPerAddress,
                  "The connections that one address may have at a time. Default: 512")
      ->check(CLI::Range(1, kMaxConnections))
      ->type_name("N");
  command
      .add_option("--dlna-interface", options->dlnaInterfaces,
                  "A network interface on which televisions may find the service (mirevo dlna on). "
                  "Default: all with addresses of a local network")
      ->type_name("NAME")
      ->allow_extra_args(false);
  AddCluster(command, options);
  command
      .add_option("--kept_segments", options->keptSegments,
                  "The disk space for the segments of each CMAF stream, in MiB. Default: 4096")
      ->check(CLI::Range(1, kMaxKeptSegments))
      ->type_name("MIB");
  auto* const certificate =
      command.add_option("--certificate", options->certificate,
                         "Serve HTTPS with this certificate (PEM, with its chain)");
  certificate->type_name("FILE");
  command.add_option("--key", options->key, "The certificate's key, if it is in a file of its own")
      ->type_name("FILE")
      ->needs(certificate);
}

}  // namespace

void AddServeCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<serve::Options>();
  CLI::App* const command = app.add_subcommand("serve", "Serve films on this machine");
  command->add_option("media", options->media, "Files and folders to serve; the page can add more")
      ->type_name("FILE-OR-FOLDER");
  command
      ->add_option("--port", options->port,
                   "The port to listen on; 0 for any free port. Default: 8096, or any free port if "
                   "8096 is in use and --listen is not given")
      ->check(CLI::Range(0, kMaxPort))
      ->type_name("N");
  AddReach(*command, options);
  command->add_flag_callback(
      "--no-browser", [options] { options->browser = false; }, "Do not open the page in a browser");
  command->add_flag_callback(
      "--no-analysis", [options] { options->analysis = false; },
      "Do not look for films' key frames in the background");
  command->add_flag_callback(
      "--no-conversions", [options] { options->conversions = false; },
      "Do not convert queued films in the background");
  command->callback([options, &exitCode] { exitCode = serve::Serve(*options); });
}

}  // namespace mirevo
