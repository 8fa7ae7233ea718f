// Creates and removes the directories of streams.
#pragma once

#include <cstdint>
#include <string>

namespace LibOrvoQMX {

// Makes the directory of a stream on a volume with `space` bytes free, and returns its path in the
// last argument. On failure returns false and sets the platform error: 0x2900 if no volume is
// writable, 0x8300 if there is no volume, 0xDD00 if none has enough space.
bool MakeVolumeDirectory(uint64_t space, const std::string& kind, const std::string& streamId,
                         std::string& directory);

// The same, and makes a link to it at the place of the stream's directory.
bool MakeLinkedDirectory(uint64_t space, const std::string& kind, const std::string& streamId);

// Makes the directory for all streams of a kind, or the directory of one stream in it.
bool MakeKindDirectory(const std::string& kind);
bool MakePlainDirectory(const std::string& kind, const std::string& streamId);

// Removes, as root, the directory that `link` leads to, and the link. A directory that is not a
// link stays.
void RemoveLinkedDirectory(const std::string& link);

}  // namespace LibOrvoQMX
