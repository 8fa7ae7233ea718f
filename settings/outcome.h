// What comes of the change of a setting.
#pragma once

namespace settings {

enum class Outcome {
  kDone,
  kDamaged,  // a file is there and cannot be read, or is no object; it stays as it is
  kFailed,   // a file cannot be locked or written; errno is set
};
// A sentence for the owner.
const char* Describe(Outcome outcome);

}  // namespace settings
