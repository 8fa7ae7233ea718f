// The text of a profile: its key, a line end, and the transcoder's arguments.
#include "webapi/choice/profiles.h"
#include "fuzz/fuzz.h"
#include "metadata/qmxmetadata.h"
#include "platform/plat.h"
#include "policy/profile_traits.h"
#include "transcoder/shell_line.h"
#include "util/qmxutils.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::TextOf(data, size);
  const auto parts = fuzz::Parts(text, '\n', 2);
  const webapi::Profile profile = {parts[0], parts[1]};
  const auto traits = LibOrvoQMX::ProfileTraits::Of(profile.value);
  fuzz::Demand(!traits.gstreamer || traits.hardware);
  fuzz::Demand(!webapi::ContentTypeOf(profile).empty());
  const auto words = LibOrvoQMX::StringExplode(profile.value, " \n");
  size_t length = 0;
  for (const std::string& word : words) {
    length += word.size();
  }
  fuzz::Demand(length <= size);
  fuzz::Demand(orvo::transcoder::ShellLine(words).size() <= 5 * size + 16);
  fuzz::WriteFile("/tmp/profiles", text);
  Json::Value document(Json::objectValue);
  if (LibOrvoQMX::QMXMetaData::ReadTransProfile(orvo::SystemPath("/tmp/profiles"), "http_1",
                                                document)) {
    fuzz::Demand(document.isObject());
  }
  return 0;
}
