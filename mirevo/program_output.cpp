#include "mirevo/program_output.h"

#include "platform/plat.h"

namespace mirevo {

std::optional<std::string> OutputOf(const std::vector<std::string>& command, int milliseconds) {
  std::string text;
  const int status = orvo::RunWithin(command.front(), command, milliseconds, &text);
  return status == 0 ? std::optional<std::string>(text) : std::nullopt;
}

}  // namespace mirevo
