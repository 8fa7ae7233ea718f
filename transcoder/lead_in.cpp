#include "transcoder/lead_in.h"

#include <algorithm>

namespace orvo::transcoder {
namespace {

constexpr double kLeftAsTheyAre = 0.25 * AV_TIME_BASE;

}  // namespace

bool LeadIn::Has(int64_t time, int64_t duration, AVRational base) const {
  if (place_ == AV_NOPTS_VALUE || time == AV_NOPTS_VALUE || base.den == 0) {
    return false;
  }
  const double unit = static_cast<double>(base.num) / base.den * AV_TIME_BASE;
  const double end =
      static_cast<double>(time) + static_cast<double>(std::max<int64_t>(duration, 0));
  return end * unit + kLeftAsTheyAre <= static_cast<double>(place_);
}

}  // namespace orvo::transcoder
