#include "slice_writer.h"

#include <algorithm>

namespace orvo::test_card {
namespace {

constexpr unsigned kBlock = 16;
constexpr unsigned kByte = 8;
constexpr unsigned kRawInIntra = 25;      // mb_type of raw samples
constexpr unsigned kRawInPredicted = 30;  // the same behind the types of predicted blocks

struct Rows {
  size_t start;  // of the block's first row in the bytes
  unsigned count;
};

// The rows of one block: 16 of brightness, 8 of both colors, one sample beside the other.
std::vector<Rows> RowsOf(const Picture& picture, unsigned column, unsigned row) {
  const size_t brightness = size_t{row} * kBlock * picture.width + size_t{column} * kBlock;
  const size_t color = size_t{picture.width} * picture.height +
                       size_t{row} * (kBlock / 2) * picture.width + size_t{column} * kBlock;
  return {{brightness, kBlock}, {color, kBlock / 2}};
}

bool IsSame(const Picture& picture, const Picture& other, unsigned column, unsigned row) {
  const std::vector<Rows> planes = RowsOf(picture, column, row);
  return std::all_of(planes.begin(), planes.end(), [&](const Rows& rows) {
    for (unsigned i = 0; i < rows.count; ++i) {
      const auto from =
          picture.bytes.begin() + static_cast<ptrdiff_t>(rows.start + size_t{i} * picture.width);
      if (!std::equal(from, from + kBlock, other.bytes.begin() + (from - picture.bytes.begin()))) {
        return false;
      }
    }
    return true;
  });
}

}  // namespace

void Picture::Resize(unsigned newWidth, unsigned newHeight) {
  const auto whole = [](unsigned side) { return (side + kBlock - 1) / kBlock * kBlock; };
  width = whole(newWidth);
  height = whole(newHeight);
  bytes.assign(size_t{width} * height * 3 / 2, 0);
}

SliceWriter::SliceWriter(const std::vector<uint8_t>& header, size_t bits, std::vector<uint8_t>& out)
    : out_(out) {
  const size_t whole = std::min(bits / kByte, header.size());
  out_.insert(out_.end(), header.begin(), header.begin() + static_cast<ptrdiff_t>(whole));
  if (whole < header.size()) {
    filled_ = bits % kByte;
    partial_ = header[whole] >> (kByte - filled_);
  }
}

void SliceWriter::Write(const Picture& picture, const Picture* reference) {
  unsigned skipped = 0;
  for (unsigned row = 0; row < picture.height / kBlock; ++row) {
    for (unsigned column = 0; column < picture.width / kBlock; ++column) {
      if (reference != nullptr && IsSame(picture, *reference, column, row)) {
        ++skipped;
        continue;
      }
      if (reference != nullptr) {
        PutNumber(skipped);
        skipped = 0;
      }
      PutNumber(reference != nullptr ? kRawInPredicted : kRawInIntra);
      PutMacroblock(picture, column, row);
    }
  }
  if (skipped > 0) {
    PutNumber(skipped);
  }
  PutBit(1);
  Align(0);
}

void SliceWriter::PutMacroblock(const Picture& picture, unsigned column, unsigned row) {
  Align(0);
  const std::vector<Rows> planes = RowsOf(picture, column, row);
  const uint8_t* const brightness = picture.bytes.data() + planes[0].start;
  for (unsigned i = 0; i < kBlock * kBlock; ++i) {
    PutByte(brightness[size_t{i / kBlock} * picture.width + i % kBlock]);
  }
  const uint8_t* const color = picture.bytes.data() + planes[1].start;
  for (unsigned plane = 0; plane < 2; ++plane) {
    for (unsigned i = 0; i < kBlock * kBlock / 4; ++i) {
      PutByte(color[size_t{i / kByte} * picture.width + size_t{i % kByte} * 2 + plane]);
    }
  }
}

void SliceWriter::PutBit(unsigned bit) {
  partial_ = partial_ << 1 | bit;
  if (++filled_ == kByte) {
    filled_ = 0;
    PutByte(static_cast<uint8_t>(partial_));
    partial_ = 0;
  }
}

void SliceWriter::PutBits(unsigned value, unsigned count) {
  while (count-- > 0) {
    PutBit(value >> count & 1);
  }
}

// An Exp-Golomb code.
void SliceWriter::PutNumber(unsigned value) {
  unsigned length = 0;
  while ((value + 1) >> (length + 1) != 0) {
    ++length;
  }
  PutBits(0, length);
  PutBits(value + 1, length + 1);
}

// Three bytes that look like a start code are broken up.
void SliceWriter::PutByte(uint8_t byte) {
  const size_t size = out_.size();
  if (byte <= 3 && size >= 2 && out_[size - 1] == 0 && out_[size - 2] == 0) {
    out_.push_back(3);
  }
  out_.push_back(byte);
}

void SliceWriter::Align(unsigned bit) {
  while (filled_ != 0) {
    PutBit(bit);
  }
}

}  // namespace orvo::test_card
