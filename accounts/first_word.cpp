#include "accounts/first_word.h"

#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "accounts/secrets.h"
#include "platform/io.h"
#include "platform/plat.h"

namespace accounts {
namespace {

// People copy it by hand: 96 bits, which nobody guesses in the tries that a client has.
constexpr size_t kLength = 16;

std::optional<std::string> ReadWord() {
  return orvo::ReadOwnFile(orvo::SystemPath(kFirstWordFile), kLength);
}

}  // namespace

std::string MakeFirstWord() {
  const std::string word = NewSecret().substr(0, kLength);
  const bool isStored =
      word.size() == kLength &&
      orvo::ReplaceFile(orvo::SystemPath(kFirstWordFile), word, S_IRUSR | S_IWUSR);
  return isStored ? word : "";
}

bool IsFirstWord(const std::string& word) {
  const auto known = ReadWord();
  return known && known->size() == kLength && SameSecret(*known, word);
}

bool HasFirstWord() {
  return ReadWord().has_value();
}

void RemoveFirstWord() {
  unlink(orvo::SystemPath(kFirstWordFile).c_str());
}

}  // namespace accounts
