#include "fuzz/fuzz.h"

#include <sys/stat.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <set>

namespace fuzz {
namespace {

void MakeFolders(const std::string& path, unsigned mode) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), mode);
  }
}

}  // namespace

void Demand(bool holds) {
  if (!holds) {
    std::abort();
  }
}

std::string Root() {
  // Without a directory of its own a target would write into the system.
  const char* const root = std::getenv("ORVO_SYSROOT");
  Demand(root != nullptr && *root == '/');
  return root;
}

std::string TextOf(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

std::vector<std::string> Parts(const std::string& text, char separator, size_t count) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (parts.size() + 1 < count) {
    const size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end - start));
    start = end == std::string::npos ? text.size() : end + 1;
  }
  parts.push_back(text.substr(start));
  return parts;
}

void WriteFile(const std::string& path, const std::string& content, unsigned folderMode) {
  static std::set<std::string> made;
  const std::string real = Root() + path;
  if (made.insert(real).second) {
    MakeFolders(real, folderMode);
  }
  std::ofstream(real, std::ios::binary) << content;
}

}  // namespace fuzz

// Damaged files are logged, thousands in a second.
extern "C" {
void syslog(int /*priority*/, const char* /*format*/, ...) {}
void vsyslog(int /*priority*/, const char* /*format*/, va_list /*arguments*/) {}
}
