// Lists of texts for building command lines.
#pragma once

#include <string>
#include <vector>

namespace LibOrvoQMX {

inline void Append(std::vector<std::string>& list, const std::vector<std::string>& more) {
  list.insert(list.end(), more.begin(), more.end());
}

}  // namespace LibOrvoQMX
