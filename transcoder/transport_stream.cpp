#include "transcoder/transport_stream.h"

namespace orvo::transcoder {
namespace {

constexpr size_t kHeader = 4;
constexpr unsigned kUnitStart = 0x40;
constexpr unsigned kAdaptation = 0x20;
constexpr unsigned kPayload = 0x10;
constexpr unsigned kDiscontinuity = 0x80;
constexpr unsigned kRandomAccess = 0x40;
constexpr size_t kPesWithPts = 14;
constexpr unsigned kPtsPresent = 0x80;

unsigned AdaptationFlags(const Packet& packet) {
  return (packet[3] & kAdaptation) != 0 && packet[4] > 0 ? packet[5] : 0;
}

size_t PayloadOffset(const Packet& packet) {
  return (packet[3] & kAdaptation) != 0 ? kHeader + 1 + packet[4] : kHeader;
}

int64_t Pts(const unsigned char* field) {
  return (static_cast<int64_t>(field[0] >> 1 & 7) << 30) | (field[1] << 22) |
         ((field[2] >> 1) << 15) | (field[3] << 7) | (field[4] >> 1);
}

bool IsPicture(unsigned streamId) {
  return streamId >= 0xE0 && streamId <= 0xEF;
}

}  // namespace

int Pid(const Packet& packet) {
  return (packet[1] & 0x1F) << 8 | packet[2];
}

bool HasPayload(const Packet& packet) {
  return (packet[3] & kPayload) != 0;
}

void SetCounter(Packet& packet, int counter) {
  packet[3] = static_cast<unsigned char>((packet[3] & 0xF0) | (counter & 0x0F));
}

void AnnounceJump(Packet& packet) {
  if ((packet[3] & kAdaptation) != 0 && packet[4] > 0) {
    packet[5] |= kDiscontinuity;
  }
}

std::optional<Frame> FrameStart(const Packet& packet) {
  const size_t offset = PayloadOffset(packet);
  if ((packet[1] & kUnitStart) == 0 || !HasPayload(packet) || offset + kPesWithPts > kPacketSize) {
    return std::nullopt;
  }
  const unsigned char* pes = packet.data() + offset;
  if (pes[0] != 0 || pes[1] != 0 || pes[2] != 1 || (pes[7] & kPtsPresent) == 0) {
    return std::nullopt;
  }
  return Frame{IsPicture(pes[3]) ? Kind::kPicture : Kind::kSound,
               (AdaptationFlags(packet) & kRandomAccess) != 0, Pts(pes + 9)};
}

}  // namespace orvo::transcoder
