#include "playlist/fixed_plan.h"

namespace LibOrvoQMX {

void WriteFixedPlan(HLSHelper& playlist, int duration, int length) {
  playlist.WriteHeader(length);
  const int rest = duration % length;
  const int count = duration / length + (rest == 0 ? 0 : 1);
  for (int i = 0; i < count; ++i) {
    const bool isShort = i == count - 1 && rest != 0;
    const double start = static_cast<double>(i) * length;
    const double end = start + (isShort ? rest : length);
    playlist.WriteFragmentInfo({end - start, start, end, i});
  }
  if (count == 0) {
    playlist.WriteFragmentInfo({0, 0, 0, 0});
  }
  playlist.WriteEnder();
}

}  // namespace LibOrvoQMX
