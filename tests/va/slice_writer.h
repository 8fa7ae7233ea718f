// Writes the macroblocks of an H.264 slice without compressing them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo::test_card {

// A picture in NV12. Width and height are multiples of 16.
struct Picture {
  unsigned width = 0;
  unsigned height = 0;
  std::vector<uint8_t> bytes;

  void Resize(unsigned newWidth, unsigned newHeight);
};

enum class SliceType { kPredicted = 0, kIntra = 2 };

class SliceWriter {
 public:
  // `header`: the slice's header with its start code and emulation prevention, `bits` bits of it.
  // The entropy coding that it names must be CAVLC.
  SliceWriter(const std::vector<uint8_t>& header, size_t bits, std::vector<uint8_t>& out);

  // All macroblocks of the picture, each as raw samples. A predicted slice skips those that are as
  // in `reference`.
  void Write(const Picture& picture, const Picture* reference);

 private:
  void PutBit(unsigned bit);
  void PutBits(unsigned value, unsigned count);
  void PutNumber(unsigned value);
  void PutByte(uint8_t byte);
  void Align(unsigned bit);
  void PutMacroblock(const Picture& picture, unsigned column, unsigned row);

  std::vector<uint8_t>& out_;
  unsigned partial_ = 0;
  unsigned filled_ = 0;
};

}  // namespace orvo::test_card
