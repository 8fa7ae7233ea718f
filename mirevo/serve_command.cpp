#include "mirevo/serve_command.h"

#include <functional>
#include <memory>
#include <string>

#include "serve/endpoint.h"
#include "serve/service.h"

namespace mirevo {
namespace {

constexpr int kMaxPort = 65535;

// A check of an option's text by a predicate.
CLI::Validator Check(const std::function<bool(const std::string&)>& isGood, const char* complaint) {
  return CLI::Validator(
      [=](const std::string& text) { return isGood(text) ? "" : text + " " + complaint; }, "");
}

// Who can reach the service, and how.
void AddReach(CLI::App& command, const std::shared_ptr<serve::Options>& options) {
  const auto isAddress = [](const std::string& text) {
    return serve::ParseEndpoint(text, 0).has_value();
  };
  command
      .add_option("--listen", options->listen,
                  "An address to listen on (0.0.0.0 and :: for all), which needs an account; "
                  "without it this machine only")
      ->check(Check(isAddress, "is no address of IPv4 or IPv6"))
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  command.add_option("--host", options->hosts, "A name that browsers may call this server by")
      ->check(Check(serve::IsHost, "is no host name in lower case"))
      ->type_name("NAME[:PORT]")
      ->allow_extra_args(false);
  command
      .add_option("--allow-origin", options->origins, "Another server whose pages may use this one")
      ->check(Check(serve::IsOrigin, "is not like https://tv.example"))
      ->type_name("URL")
      ->allow_extra_args(false);
  auto* const certificate = command.add_option(
      "--certificate", options->certificate, "Encrypt with this certificate (PEM, chain included)");
  certificate->type_name("FILE");
  command
      .add_option("--key", options->key, "The certificate's key, where it is not in the same file")
      ->type_name("FILE")
      ->needs(certificate);
}

}  // namespace

void AddServeCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<serve::Options>();
  CLI::App* const command = app.add_subcommand("serve", "Serve films on this machine");
  command->add_option("media", options->media, "Files and folders to serve")
      ->required()
      ->type_name("FILE-OR-FOLDER");
  command
      ->add_option("--port", options->port,
                   "The port to listen on; 0 for any free one. Without it 8096, or any free one")
      ->check(CLI::Range(0, kMaxPort))
      ->type_name("N");
  AddReach(*command, options);
  command->add_flag_callback(
      "--no-browser", [options] { options->browser = false; }, "Do not open the page in a browser");
  command->callback([options, &exitCode] { exitCode = serve::Serve(*options); });
}

}  // namespace mirevo
