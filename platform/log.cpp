// A fortified build would turn syslog into a private entry point of the C library, past any program
// that provides a syslog of its own to see these lines.
#undef _FORTIFY_SOURCE

#include "platform/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace orvo {
namespace {

std::string SourceName(const char* file) {
  std::string name(file);
  name.erase(0, name.rfind('/') + 1);
  const auto dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

}  // namespace

void Log(int priority, const char* file, int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* message = nullptr;
  const int length = vasprintf(&message, format, arguments);
  va_end(arguments);
  if (length < 0) {
    return;
  }
  syslog(priority, "%s:%d %s", SourceName(file).c_str(), line, message);
  free(message);
}

}  // namespace orvo
