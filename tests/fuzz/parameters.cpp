// The parameters of a request.
#include <algorithm>

#include "fuzz/fuzz.h"
#include "webapi/http/request.h"

namespace {

constexpr int64_t kMost = 1'000'000;

bool HasZero(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

void CheckParameter(const webapi::Request& request, const char* name, size_t size) {
  const std::string text = request.Text(name);
  fuzz::Demand(text.size() <= size && !HasZero(text));
  const auto number = request.Number(name, kMost);
  fuzz::Demand(!number || (*number >= 0 && *number <= kMost));
  const auto seconds = request.Seconds(name, kMost);
  fuzz::Demand(!seconds || (*seconds >= 0 && *seconds <= kMost));
}

void CheckEncoding(const std::string& text) {
  const auto decoded = webapi::DecodeQueryValue(text);
  fuzz::Demand(!decoded || (decoded->size() <= text.size() && !HasZero(*decoded)));
  const std::string encoded = webapi::EncodeQueryValue(text);
  fuzz::Demand(encoded.find_first_of("&=+\"<> \n") == std::string::npos);
  const auto back = webapi::DecodeQueryValue(encoded);
  fuzz::Demand(HasZero(text) ? !back : back == text);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::TextOf(data, size);
  webapi::Request request;
  if (request.AddParameters(text)) {
    for (const char* name : {"path", "id", "stream_id", "start", "a"}) {
      CheckParameter(request, name, size);
    }
    fuzz::Demand(request.StreamId().size() <= size);
  }
  CheckEncoding(text);
  return 0;
}
