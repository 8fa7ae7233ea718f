// Limits that the owner may set: "/var/packages/Mirevo/etc/limits", a JSON object with a number for
// each limit. A number that is missing or out of its range counts as the usual one.
#pragma once

#include "settings/outcome.h"

namespace settings {

struct Limit {
  const char* name;
  int usual;
  int least;
  int most;
};

// The streams that one viewer may have open at a time. A household opens fewer than the usual
// number in a day; each costs a directory with a few small files.
inline constexpr Limit kStreamsPerViewer{"streams_per_viewer", 200, 1, 1000};
// The size of the cache of posters, thumbnails and facts, in MiB.
inline constexpr Limit kCacheMegabytes{"cache_megabytes", 256, 16, 65536};

// The value that counts now.
int ValueOf(const Limit& limit);

// Sets a limit; `value` lies in its range. The other limits stay as they are.
Outcome Set(const Limit& limit, int value);

}  // namespace settings
