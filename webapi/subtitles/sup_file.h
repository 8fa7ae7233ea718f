// Writes pictures as a SUP file, the format of a Blu-ray's subtitles (PGS).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace webapi {

// Pixels of one colour beside each other. `color` is an index of the picture's colours.
struct PixelRun {
  int length = 0;
  uint8_t color = 0;
};

struct PixelColor {
  uint32_t rgb = 0;     // 0xRRGGBB
  uint8_t opacity = 0;  // 255 hides the film
};

// A subtitle that is shown from `start` to `end` (ms) at the place `left`, `top` of the film's
// picture. Each row's runs add up to `width`.
struct SubtitlePicture {
  int64_t start = 0;
  int64_t end = 0;
  int left = 0;
  int top = 0;
  int width = 0;
  bool isForced = false;
  std::array<PixelColor, 4> colors = {};
  std::vector<std::vector<PixelRun>> rows;
};

class SupFile {
 public:
  // The size of the picture that the places refer to.
  SupFile(int width, int height) : width_(width), height_(height) {}

  // Adds a picture, which begins after the last one. That one ends then at the latest.
  void Add(const SubtitlePicture& picture);

  // The file so far, with the end of the last picture.
  std::string Finish();

  size_t Size() const { return bytes_.size(); }

 private:
  void AddEnd(int64_t time);
  void AddComposition(int64_t time, const SubtitlePicture* picture);
  void AddWindow(int64_t time, const SubtitlePicture& picture);
  void AddPalette(int64_t time, const SubtitlePicture& picture);
  void AddObject(int64_t time, const SubtitlePicture& picture);
  void AddSegment(int64_t time, uint8_t type, const std::string& content);

  int width_;
  int height_;
  int order_ = 0;
  SubtitlePicture shown_;  // without its rows; its width is 0 while nothing is shown
  std::string bytes_;
};

}  // namespace webapi
