// Packets of an MPEG transport stream, as far as a segmenter has to understand them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace orvo::transcoder {

inline constexpr size_t kPacketSize = 188;
inline constexpr int kTransportClockRate = 90000;  // of the stream's clock, a second
inline constexpr int kPids = 8192;

using Packet = std::array<unsigned char, kPacketSize>;

int Pid(const Packet& packet);

// A packet without payload does not move its stream's counter.
bool HasPayload(const Packet& packet);
void SetCounter(Packet& packet, int counter);

// Announces that the counter does not go on from the packet before. Only a packet with an
// adaptation field has room for that; the first one of every frame has.
void AnnounceJump(Packet& packet);

enum class Kind { kPicture, kSound };

// The first packet of a frame.
struct Frame {
  Kind kind;
  bool isKey;
  int64_t pts;  // ticks, 33 bits
};

// Nothing for packets that start no frame or one without a time.
std::optional<Frame> FrameStart(const Packet& packet);

}  // namespace orvo::transcoder
