#include "accounts/known_clients.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "accounts/secrets.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "util/file_lock.h"
#include "util/private_folder.h"
#include "util/qmxutils.h"
#include "util/state_reading.h"

namespace accounts {
namespace {

constexpr size_t kLongestFile = 65536;

std::string Folder() {
  return orvo::SystemPath("/run/mirevo/known");
}

std::string PathOf(const std::string& account) {
  return Folder() + "/" + DigestOf("known clients of " + account);
}

// Nothing if they cannot be read now.
std::optional<std::vector<std::string>> Load(const std::string& path) {
  const auto text = orvo::ReadIfThere(path, kLongestFile);
  return text ? std::optional(LibOrvoQMX::StringExplode(*text, "\n")) : std::nullopt;
}

// Not the address itself, so that the file does not tell where somebody lives.
std::string LineOf(const std::string& account, const std::string& client) {
  return DigestOf(account + "\n" + client);
}

}  // namespace

bool IsKnownClient(const std::string& account, const std::string& client) {
  const auto lines = Load(PathOf(account));
  const std::string line = LineOf(account, client);
  return lines && !line.empty() && std::find(lines->begin(), lines->end(), line) != lines->end();
}

void RememberClient(const std::string& account, const std::string& client) {
  if (!orvo::MakePrivateFolder(Folder())) {
    return;
  }
  const std::string path = PathOf(account);
  const auto lock = orvo::FileLock::WaitFor(path, Folder() + "/.locks");
  auto known = lock.IsHeld() ? Load(path) : std::nullopt;
  if (!known) {
    return;
  }
  std::vector<std::string>& lines = *known;
  const std::string line = LineOf(account, client);
  lines.erase(std::remove(lines.begin(), lines.end(), line), lines.end());
  lines.push_back(line);
  const size_t forgotten = std::max<size_t>(lines.size(), kKnownClients) - kKnownClients;
  std::string text;
  for (size_t i = forgotten; i < lines.size(); ++i) {
    text += lines[i] + "\n";
  }
  orvo::ReplaceFile(path, text, S_IRUSR | S_IWUSR);
}

}  // namespace accounts
