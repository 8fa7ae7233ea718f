#include "webapi/send_file.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "platform/io.h"
#include "platform/unique_fd.h"

namespace webapi {
namespace {

std::string Headers(const std::string& contentType) {
  return "Status: 200 OK\r\nContent-Type: " + contentType +
         "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n";
}

}  // namespace

void SendFileHeaders(const std::string& contentType) {
  orvo::WriteAll(STDOUT_FILENO, Headers(contentType) + "\r\n");
}

bool SendFile(const std::string& path, const std::string& contentType, bool headersOnly) {
  const orvo::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  std::string headers = Headers(contentType);
  const char* const header = secure_getenv("MIREVO_SENDFILE");
  // A name with a line end would end the header.
  const bool isPlain =
      std::none_of(path.begin(), path.end(), [](unsigned char c) { return std::iscntrl(c) != 0; });
  if (header != nullptr && !headersOnly && isPlain) {
    headers += std::string(header) + ": " + path + "\r\n\r\n";
    return orvo::WriteAll(STDOUT_FILENO, headers);
  }
  headers += "Content-Length: " + std::to_string(status.st_size) + "\r\n\r\n";
  orvo::WriteAll(STDOUT_FILENO, headers);
  off_t offset = 0;
  while (!headersOnly && offset < status.st_size &&
         sendfile(STDOUT_FILENO, file.Get(), &offset,
                  static_cast<size_t>(status.st_size - offset)) > 0) {
  }
  return true;
}

}  // namespace webapi
