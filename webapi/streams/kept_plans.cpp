#include "webapi/streams/kept_plans.h"

#include <string>

#include "contract/cmaf.h"
#include "platform/io.h"
#include "util/film_cache.h"
#include "webapi/library/film_cache.h"

namespace webapi {
namespace {

using LibOrvoQMX::StreamDirectory;

// The number changes with the rules of planning.
std::string KeptPath(const orvo::MediaFile& film, bool usesAnalysis) {
  return orvo::CachePath(film, usesAnalysis ? "cmaf plan 1 analyzed" : "cmaf plan 1", ".txt");
}

}  // namespace

bool UseKeptPlan(const orvo::MediaFile& film, bool usesAnalysis, const StreamDirectory& directory) {
  const std::string text = orvo::ReadText(KeptPath(film, usesAnalysis));
  const size_t line = text.find('\n');
  if (line == std::string::npos || !orvo::CmafPlan::Parse(text.substr(line + 1))) {
    return false;
  }
  // The plan comes last: where it lies, the rest is complete.
  return orvo::ReplaceFile(directory.FilePath(orvo::kCmafPicturesFile), text.substr(0, line)) &&
         orvo::ReplaceFile(directory.FilePath(orvo::kCmafPlanFile), text.substr(line + 1));
}

void KeepPlan(const orvo::MediaFile& film, bool usesAnalysis, const StreamDirectory& directory) {
  const std::string known = orvo::ReadText(directory.FilePath(orvo::kCmafPicturesFile));
  const std::string plan = orvo::ReadText(directory.FilePath(orvo::kCmafPlanFile));
  if (!plan.empty()) {
    (void)KeepInCache(KeptPath(film, usesAnalysis), known + "\n" + plan);
  }
}

}  // namespace webapi
