#include "mirevo/agent_command.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "mirevo/exit_codes.h"
#include "mirevo/output.h"
#include "serve/agent.h"
#include "serve/endpoint.h"

namespace mirevo {
namespace {

int Answer(const std::string& place) {
  auto endpoint = serve::ParseAuthority(place).value();
  const orvo::UniqueFd listener = serve::Listen(endpoint);
  if (listener.IsOpen()) {
    serve::AnswerAgentChecks(listener);
  }
  Complain(place + ": " + std::strerror(errno));
  return kFailed;
}

std::string Complaint(const std::string& place) {
  return serve::ParseAuthority(place) ? "" : place + " is not ADDRESS:PORT";
}

}  // namespace

CLI::Option& AddAgentPlace(CLI::App& command, const std::string& name, std::string& place,
                           const std::string& meaning) {
  return *command.add_option(name, place, meaning)
              ->check(CLI::Validator(Complaint, ""))
              ->type_name("ADDRESS:PORT");
}

void AddAgentCommand(CLI::App& app, int& exitCode) {
  auto place = std::make_shared<std::string>();
  CLI::App* const command =
      app.add_subcommand("agent", "Tell a load balancer how much this box can take");
  AddAgentPlace(*command, "--listen", *place, "Where the balancer asks").required();
  command->callback([place, &exitCode] { exitCode = Answer(*place); });
}

}  // namespace mirevo
