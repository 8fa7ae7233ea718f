#include "tools/mirevo/serve_command.h"

#include <memory>

#include "tools/serve/service.h"

namespace mirevo {
namespace {

constexpr int kMaxPort = 65535;

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
  command->add_flag_callback(
      "--no-browser", [options] { options->browser = false; }, "Do not open the page in a browser");
  command->callback([options, &exitCode] { exitCode = serve::Serve(*options); });
}

}  // namespace mirevo
