// Ids of Smooth Streaming fragments.
#include "contract/fragments.h"
#include "fuzz/fuzz.h"
#include "state/stream_directory.h"
#include "stream/smooth/smooth_fragments.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::TextOf(data, size);
  const auto id = orvo::FragmentId::Parse(text);
  if (id) {
    const auto again = orvo::FragmentId::Parse(id->Text());
    fuzz::Demand(again && again->Text() == id->Text() && id->Text().size() <= size);
    fuzz::Demand(id->start >= 0 && id->Number() >= 0);
  }
  std::string start;
  std::string type;
  std::string quality;
  if (LibOrvoQMX::TakeApart(text, start, type, quality)) {
    fuzz::Demand(start.size() + type.size() + quality.size() <= size);
    fuzz::Demand(start.find(')') == std::string::npos);
  }
  const LibOrvoQMX::StreamDirectory directory("SS", "0123456789abcdef0123456789abcdef_abcdefgh");
  const LibOrvoQMX::FragmentPlace place(directory, text);
  fuzz::Demand(!id || place.StartSecond() >= 0);
  if (place.IsPlain()) {
    fuzz::Demand((text + "/").find("/../") == std::string::npos);
  }
  return 0;
}
