#include <gtest/gtest.h>

#include <string>

#include "linear/shapes.h"
#include "linear/work.h"

namespace {

constexpr size_t kSmall = 32 << 10;
constexpr uint64_t kTimes = 4;

struct Effort {
  uint64_t work;
  size_t output;
};

Effort EffortFor(const linear::Parser& parser, const std::string& text) {
  const uint64_t before = linear::Work();
  const size_t output = parser.parse(text);
  return {linear::Work() - before, output};
}

// Sorting adds a logarithm, so four times the text may need slightly more than four times the work.
// A parser that needs the square has 16 times the work.
void ExpectLinear(const linear::Parser& parser, const std::string& small, const std::string& large,
                  const std::string& name) {
  constexpr uint64_t kAllowed = 6;
  constexpr uint64_t kUnitsPerByte = 400;
  constexpr size_t kOutputPerByte = 8;
  const Effort first = EffortFor(parser, small);
  const Effort second = EffortFor(parser, large);
  EXPECT_LE(second.work, kAllowed * (first.work + small.size())) << name;
  EXPECT_LE(second.work, kUnitsPerByte * large.size()) << name;
  EXPECT_LE(second.output, kOutputPerByte * large.size()) << name;
}

TEST(Linear, FourTimesTheTextIsFourTimesTheWork) {
  for (const linear::Parser& parser : linear::Parsers()) {
    for (const std::string& piece : parser.pieces) {
      ExpectLinear(parser, linear::Repeated(parser.head, piece, kSmall),
                   linear::Repeated(parser.head, piece, kTimes * kSmall),
                   std::string(parser.name) + ": " + piece);
    }
  }
}

TEST(Linear, TwoKindsOfTextDoNotMultiply) {
  for (const linear::Parser& parser : linear::Parsers()) {
    for (const std::string& first : parser.pieces) {
      for (const std::string& second : parser.pieces) {
        ExpectLinear(parser, parser.head + linear::Halves(first, second, kSmall / 8),
                     parser.head + linear::Halves(first, second, kTimes * kSmall / 8),
                     std::string(parser.name) + ": " + first + " and " + second);
      }
    }
  }
}

// The count is worth nothing if it misses the work of such a parser.
TEST(Linear, TheCountFindsAParserThatNeedsTheSquare) {
  const linear::Parser slow = {"slow",
                               [](const std::string& text) {
                                 size_t found = 0;
                                 for (size_t i = 0; i < text.size(); i += 64) {
                                   found += text.find('\n', i) == std::string::npos ? 1 : 0;
                                 }
                                 return found;
                               },
                               "",
                               {}};
  const auto first = EffortFor(slow, std::string(kSmall, 'x'));
  const auto second = EffortFor(slow, std::string(kTimes * kSmall, 'x'));
  EXPECT_GT(second.work, 12 * first.work);
}

}  // namespace
