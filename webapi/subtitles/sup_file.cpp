#include "webapi/subtitles/sup_file.h"

#include <algorithm>
#include <cmath>

namespace webapi {
namespace {

constexpr int64_t kTicks = 90;  // each millisecond
constexpr uint8_t kPalette = 0x14;
constexpr uint8_t kObject = 0x15;
constexpr uint8_t kComposition = 0x16;
constexpr uint8_t kWindow = 0x17;
constexpr uint8_t kEnd = 0x80;

constexpr char kFrameRate = 0x10;
constexpr char kEpochStart = '\x80';
constexpr char kForced = 0x40;
constexpr size_t kLargestPart = 0xff00;  // of an object's data in one segment
constexpr char kFirstPart = '\x80';
constexpr char kLastPart = 0x40;
constexpr int kLongestRun = 0x3fff;
constexpr int kLongestShortRun = 0x3f;

// Appends the lowest `count` bytes of a number, the highest of them first.
void Append(std::string& bytes, int64_t number, int count) {
  for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
    bytes += static_cast<char>(number >> shift & 0xff);
  }
}

// Index 0 ends a row, so the colours begin at 1.
void AppendRun(std::string& bytes, PixelRun run) {
  const auto color = static_cast<char>(run.color + 1);
  for (int left = run.length; left > 0; left -= kLongestRun) {
    const int length = std::min(left, kLongestRun);
    if (length == 1) {
      bytes += color;
    } else {
      Append(bytes, length > kLongestShortRun ? 0xc000 | length : 0x80 | length,
             length > kLongestShortRun ? 3 : 2);
      bytes += color;
    }
  }
}

std::string PixelsOf(const SubtitlePicture& picture) {
  std::string pixels;
  for (const auto& row : picture.rows) {
    for (const PixelRun& run : row) {
      AppendRun(pixels, run);
    }
    Append(pixels, 0, 2);
  }
  return pixels;
}

int Rounded(double value) {
  return std::clamp(static_cast<int>(std::lround(value)), 0, 255);
}

// A colour as Y, Cr, Cb and the opacity. Players take that of a small picture as BT.601.
void AppendColor(std::string& bytes, const PixelColor& color) {
  const double red = color.rgb >> 16 & 0xff;
  const double green = color.rgb >> 8 & 0xff;
  const double blue = color.rgb & 0xff;
  Append(bytes, Rounded(16 + (65.738 * red + 129.057 * green + 25.064 * blue) / 256), 1);
  Append(bytes, Rounded(128 + (112.439 * red - 94.154 * green - 18.285 * blue) / 256), 1);
  Append(bytes, Rounded(128 + (112.439 * blue - 74.494 * green - 37.945 * red) / 256), 1);
  Append(bytes, color.opacity, 1);
}

int HeightOf(const SubtitlePicture& picture) {
  return static_cast<int>(picture.rows.size());
}

}  // namespace

void SupFile::Add(const SubtitlePicture& picture) {
  AddEnd(std::min(shown_.end, picture.start));
  AddComposition(picture.start, &picture);
  AddWindow(picture.start, picture);
  AddPalette(picture.start, picture);
  AddObject(picture.start, picture);
  AddSegment(picture.start, kEnd, "");
  shown_ = picture;
}

std::string SupFile::Finish() {
  AddEnd(shown_.end);
  return std::move(bytes_);
}

void SupFile::AddEnd(int64_t time) {
  if (shown_.width == 0) {
    return;
  }
  AddComposition(time, nullptr);
  AddWindow(time, shown_);
  AddSegment(time, kEnd, "");
  shown_ = SubtitlePicture();
}

void SupFile::AddComposition(int64_t time, const SubtitlePicture* picture) {
  std::string content;
  Append(content, width_, 2);
  Append(content, height_, 2);
  content += kFrameRate;
  Append(content, ++order_, 2);
  content += picture == nullptr ? '\0' : kEpochStart;
  Append(content, 0, 2);
  content += picture == nullptr ? '\0' : '\1';
  if (picture != nullptr) {
    Append(content, 0, 3);
    content += picture->isForced ? kForced : '\0';
    Append(content, picture->left, 2);
    Append(content, picture->top, 2);
  }
  AddSegment(time, kComposition, content);
}

void SupFile::AddWindow(int64_t time, const SubtitlePicture& picture) {
  std::string content("\1\0", 2);
  Append(content, picture.left, 2);
  Append(content, picture.top, 2);
  Append(content, picture.width, 2);
  Append(content, HeightOf(picture), 2);
  AddSegment(time, kWindow, content);
}

void SupFile::AddPalette(int64_t time, const SubtitlePicture& picture) {
  std::string content("\0\0", 2);
  for (size_t index = 0; index < picture.colors.size(); ++index) {
    Append(content, static_cast<int64_t>(index) + 1, 1);
    AppendColor(content, picture.colors[index]);
  }
  AddSegment(time, kPalette, content);
}

void SupFile::AddObject(int64_t time, const SubtitlePicture& picture) {
  std::string data;
  const std::string pixels = PixelsOf(picture);
  Append(data, static_cast<int64_t>(pixels.size()) + 4, 3);
  Append(data, picture.width, 2);
  Append(data, HeightOf(picture), 2);
  data += pixels;
  for (size_t begin = 0; begin < data.size(); begin += kLargestPart) {
    std::string content("\0\0\0", 3);
    const bool isLast = data.size() - begin <= kLargestPart;
    content += static_cast<char>((begin == 0 ? kFirstPart : 0) | (isLast ? kLastPart : 0));
    AddSegment(time, kObject, content + data.substr(begin, kLargestPart));
  }
}

void SupFile::AddSegment(int64_t time, uint8_t type, const std::string& content) {
  bytes_ += "PG";
  Append(bytes_, time * kTicks, 4);
  Append(bytes_, 0, 4);
  bytes_ += static_cast<char>(type);
  Append(bytes_, static_cast<int64_t>(content.size()), 2);
  bytes_ += content;
}

}  // namespace webapi
