// State files in JSON.
#include "fuzz/fuzz.h"
#include "util/json_utils.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::TextOf(data, size);
  fuzz::WriteFile("/tmp/state", text);
  Json::Value value;
  const bool isRead = LibMirevo::ReadJsonFromFile(fuzz::Root() + "/tmp/state", value);
  Json::Value direct;
  fuzz::Demand(LibMirevo::ParseJson(text, direct) == isRead);
  if (isRead && (value.isObject() || value.isArray())) {
    const std::string written = LibMirevo::FormatJson(value);
    Json::Value again;
    fuzz::Demand(LibMirevo::ParseJson(written, again));
    fuzz::Demand(LibMirevo::FormatJson(again) == written);
  }
  return 0;
}
