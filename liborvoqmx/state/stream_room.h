// Where the directories of streams are made.
#pragma once

#include <cstdint>
#include <string>

namespace LibOrvoQMX {

// Makes the directory of a stream on a volume with `space` bytes free, and says where. False, with
// the platform error set (0x2900 no volume is writable, 0x8300 there is none, 0xDD00 none has
// room), when it cannot.
bool MakeVolumeDirectory(uint64_t space, const std::string& kind, const std::string& streamId,
                         std::string& directory);

// The same, with a link to it where the stream's directory belongs.
bool MakeLinkedDirectory(uint64_t space, const std::string& kind, const std::string& streamId);

// Makes the directory of all streams of a kind; of one stream, in its own place.
bool MakeKindDirectory(const std::string& kind);
bool MakePlainDirectory(const std::string& kind, const std::string& streamId);

// Removes the volume directory of a linked one, as root, and the link. A directory that is no link
// stays.
void RemoveLinkedDirectory(const std::string& link);

}  // namespace LibOrvoQMX
