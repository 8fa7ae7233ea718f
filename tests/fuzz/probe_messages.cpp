// What a confined probe tells of a film.
#include "fuzz/fuzz.h"
#include "metadata/probe_message.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto value = LibOrvoQMX::DecodeProbeMessage(fuzz::TextOf(data, size));
  if (value) {
    const std::string bytes = LibOrvoQMX::EncodeProbeMessage(*value);
    fuzz::Demand(bytes.size() <= size);
    const auto again = LibOrvoQMX::DecodeProbeMessage(bytes);
    fuzz::Demand(again && LibOrvoQMX::EncodeProbeMessage(*again) == bytes);
  }
  return 0;
}
