#include "transcoder/high_range.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace orvo::transcoder {
namespace {

int KnownPrimaries(int primaries) {
  const bool isKnown = primaries == AVCOL_PRI_BT709 || primaries == AVCOL_PRI_SMPTE431 ||
                       primaries == AVCOL_PRI_SMPTE432;
  return isKnown ? primaries : AVCOL_PRI_BT2020;
}

int KnownMatrix(int matrix) {
  const bool isKnown = matrix == AVCOL_SPC_BT709 || matrix == AVCOL_SPC_BT2020_CL;
  return isKnown ? matrix : AVCOL_SPC_BT2020_NCL;
}

}  // namespace

std::optional<HighRange> HighRangeOf(const HighRange& described) {
  if (described.transfer != AVCOL_TRC_SMPTE2084 && described.transfer != AVCOL_TRC_ARIB_STD_B67) {
    return std::nullopt;
  }
  return HighRange{described.transfer, KnownPrimaries(described.primaries),
                   KnownMatrix(described.matrix), described.isFull};
}

}  // namespace orvo::transcoder
