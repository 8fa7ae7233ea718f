// The key frames that an earlier analysis has stored.
#include "fuzz/fuzz.h"
#include "platform/plat.h"
#include "playlist/hls_helper.h"
#include "preprocess/preprocess_helper.h"
#include "preprocess/preprocess_result.h"

namespace {

using LibOrvoQMX::preprocess::PreprocessHelper;
using LibOrvoQMX::preprocess::PreprocessResultWrapper;

constexpr char kResult[] = "/tmp/result";
constexpr char kCopy[] = "/tmp/copy";
constexpr int kSegmentSeconds = 8;

void CheckPlan(const std::string& path) {
  const PreprocessHelper plan = PreprocessHelper::FromResult(path, kSegmentSeconds);
  if (!plan.IsAvailable()) {
    fuzz::Demand(plan.GetSeekTime(0) == -1);
    return;
  }
  int last = -1;
  for (unsigned n = 0; plan.GetSeekTime(n) >= 0; ++n) {
    fuzz::Demand(plan.GetSeekTime(n) > last);
    last = plan.GetSeekTime(n);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::WriteFile(kResult, fuzz::TextOf(data, size));
  const std::string path = orvo::SystemPath(kResult);
  PreprocessResultWrapper result;
  if (result.ReadFromFile(path)) {
    fuzz::Demand(result.WriteToFile(orvo::SystemPath(kCopy)));
    PreprocessResultWrapper copy;
    fuzz::Demand(copy.ReadFromFile(orvo::SystemPath(kCopy)));
    fuzz::Demand(copy.GetAllKeyframePtsTime().size() == result.GetAllKeyframePtsTime().size());
    fuzz::Demand(result.GetAllKeyframePtsTime().size() <= size);
  }
  CheckPlan(path);
  return 0;
}
