#include "accounts/password_prompt.h"

#include <termios.h>
#include <unistd.h>

#include <iostream>

#include "platform/io.h"

namespace accounts {
namespace {

constexpr size_t kLongestLine = 4096;

// Hides text that is typed on a terminal, for the life of the object.
class Silence {
 public:
  Silence() : isTerminal_(tcgetattr(STDIN_FILENO, &before_) == 0) {
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ECHONL;
    if (isTerminal_) {
      tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() {
    if (isTerminal_) {
      tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
  }

 private:
  termios before_{};
  bool isTerminal_;
};

}  // namespace

std::optional<std::string> ReadPassword(const std::string& prompt) {
  if (isatty(STDIN_FILENO) != 0) {
    orvo::WriteAll(STDERR_FILENO, prompt);
  }
  const Silence silence;
  std::string line;
  return std::getline(std::cin, line) && line.size() <= kLongestLine ? std::optional(line)
                                                                     : std::nullopt;
}

}  // namespace accounts
