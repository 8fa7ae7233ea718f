#include "transcoder/cmaf_request.h"

#include <array>
#include <cmath>
#include <string_view>

namespace orvo::transcoder {
namespace {

struct TreatmentName {
  std::string_view name;
  Treatment treatment;
};
constexpr auto kTreatments = std::to_array<TreatmentName>({
    {"plan", Treatment::kPlan},
    {"packets", Treatment::kPackets},
    {"pictures", Treatment::kPictures},
    {"sound", Treatment::kSound},
    {"h264", Treatment::kH264},
    {"stereo", Treatment::kStereo},
    {"night", Treatment::kNight},
});

struct Option {
  std::string_view name;
  ValueKind kind;
  void (*set)(CmafRequest& request, double value);
};
constexpr auto kOptions = std::to_array<Option>({
    {"-number", ValueKind::kNumber,
     [](CmafRequest& request, double value) { request.number = static_cast<int>(value); }},
    {"-track", ValueKind::kNumber,
     [](CmafRequest& request, double value) { request.track = static_cast<int>(value); }},
    {"-vb", ValueKind::kBitRate,
     [](CmafRequest& request, double value) { request.rate = std::lround(value); }},
    {"-from", ValueKind::kSeconds,
     [](CmafRequest& request, double value) { request.from = value; }},
    {"-aac", ValueKind::kFlag,
     [](CmafRequest& request, double value) { request.isAac = value > 0; }},
    {"-head", ValueKind::kFlag,
     [](CmafRequest& request, double value) { request.isHeaderOnly = value > 0; }},
});

bool SetTreatment(CmafRequest& request, std::string_view name) {
  for (const TreatmentName& row : kTreatments) {
    if (row.name == name) {
      request.treatment = row.treatment;
      return true;
    }
  }
  return false;
}

bool SetOption(CmafRequest& request, std::string_view name, const std::string& value) {
  if (name == "-i") {
    request.film = value;
    return !value.empty();
  }
  if (name == "-s") {
    const auto size = ParseSize(value);
    request.size = size.value_or(PictureSize{});
    return size.has_value();
  }
  for (const Option& option : kOptions) {
    if (option.name == name) {
      const auto number = ParseValue(option.kind, value);
      option.set(request, number.value_or(0));
      return number.has_value();
    }
  }
  return false;
}

}  // namespace

std::optional<CmafRequest> ParseCmafRequest(const std::vector<std::string>& arguments) {
  CmafRequest request;
  const size_t count = arguments.size();
  bool isRight = count > 2 && count % 2 == 1 && arguments[0] == kCmafOption &&
                 SetTreatment(request, arguments[1]);
  for (size_t i = 2; isRight && i + 1 < count; i += 2) {
    isRight = SetOption(request, arguments[i], arguments[i + 1]);
  }
  request.folder = isRight ? arguments.back() : "";
  return isRight && !request.film.empty() ? std::optional(request) : std::nullopt;
}

}  // namespace orvo::transcoder
