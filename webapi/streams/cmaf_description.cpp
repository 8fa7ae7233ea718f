#include "webapi/streams/cmaf_description.h"

#include <algorithm>

#include "cmaf/addresses.h"
#include "contract/cmaf.h"
#include "util/qmxutils.h"

namespace webapi {
namespace {

using LibOrvoQMX::CmafPresentation;
using LibOrvoQMX::CmafRendition;

void SetText(Json::Value& object, const char* name, const std::string& text) {
  if (!text.empty()) {
    object[name] = text;
  }
}

Json::Value DescribeRendition(const CmafPresentation& presentation, const CmafRendition& row) {
  Json::Value about(Json::objectValue);
  about["name"] = row.name;
  about["kind"] = row.isPicture ? "picture" : "sound";
  about["codec"] = row.codec;
  about["bandwidth"] = row.bandwidth;
  about["track"] = row.track;
  about["treatment"] = row.treatment;
  about["encoded"] = row.IsEncodedPicture();
  if (row.isPicture) {
    about["width"] = row.width;
    about["height"] = row.height;
  } else {
    about["channels"] = row.channels;
    about["default"] = row.isDefault;
  }
  SetText(about, "label", row.label);
  SetText(about, "language", row.language);
  about["header"] = HeaderAddress(presentation, row.name);
  about["segments"] = SegmentAddress(presentation, row.name);
  return about;
}

// The first rendition of a kind that is in `names`, or else the usual one; null if there is none of
// that kind.
const CmafRendition* FirstOf(const CmafPresentation& presentation, bool isPicture,
                             const std::vector<std::string>& names) {
  const CmafRendition* usual = nullptr;
  for (const CmafRendition& row : presentation.renditions) {
    if (row.isPicture != isPicture) {
      continue;
    }
    if (std::find(names.begin(), names.end(), row.name) != names.end()) {
      return &row;
    }
    if (usual == nullptr || row.isDefault) {
      usual = &row;
    }
  }
  return usual;
}

}  // namespace

Json::Value DescribeCmaf(const CmafPresentation& presentation) {
  const orvo::CmafPlan& plan = presentation.plan;
  Json::Value about(Json::objectValue);
  about["timescale"] = static_cast<Json::Int64>(orvo::kPlanClock);
  about["durations"] = Json::Value(Json::arrayValue);
  for (int number = 0; number < plan.Count(); ++number) {
    about["durations"].append(static_cast<Json::Int64>(plan.End(number) - plan.Start(number)));
  }
  about["renditions"] = Json::Value(Json::arrayValue);
  for (const CmafRendition& row : presentation.renditions) {
    about["renditions"].append(DescribeRendition(presentation, row));
  }
  return about;
}

std::vector<const CmafRendition*> FirstRenditions(const CmafPresentation& presentation,
                                                  const std::string& names) {
  const std::vector<std::string> wanted = LibOrvoQMX::StringExplode(names, ",");
  std::vector<const CmafRendition*> first;
  for (const bool isPicture : {true, false}) {
    if (const CmafRendition* const row = FirstOf(presentation, isPicture, wanted)) {
      first.push_back(row);
    }
  }
  return first;
}

}  // namespace webapi
