// The command line of the transcoder, one argument a line.
#include <algorithm>

#include "fuzz/fuzz.h"
#include "transcoder/translation.h"

namespace {

using orvo::transcoder::Surroundings;
using orvo::transcoder::Translation;

std::vector<std::string> Lines(const std::string& text) {
  return fuzz::Parts(text, '\n',
                     static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
}

Surroundings Machine(bool isRich) {
  Surroundings machine;
  machine.executable = "/usr/bin/ffmpeg";
  machine.progressFd = isRich ? 5 : -1;
  machine.canEncode = [isRich](std::string_view) { return isRich; };
  machine.lacksIndex = [isRich](const std::string&) { return isRich; };
  machine.clockJumps = [isRich](const std::string&) { return !isRich; };
  machine.hasFilter = [isRich](std::string_view) { return isRich; };
  return machine;
}

void Check(const Translation& translation, size_t size) {
  fuzz::Demand(translation.command.empty() == !translation.error.empty());
  size_t length = 0;
  for (const std::string& argument : translation.command) {
    fuzz::Demand(argument.find('\0') == std::string::npos);
    length += argument.size();
  }
  // The filters of the sound have thousands of letters, and a list of key frames as many as one
  // argument can have.
  constexpr size_t kOwnWords = 262144;
  fuzz::Demand(length <= 64 * size + kOwnWords && translation.error.size() <= size + kOwnWords);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text = fuzz::TextOf(data, size);
  // The kernel gives no program an argument with a zero byte.
  text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
  const auto arguments = Lines(text);
  Check(orvo::transcoder::Translate(arguments, Machine(true)), size);
  Check(orvo::transcoder::Translate(arguments, Machine(false)), size);
  return 0;
}
