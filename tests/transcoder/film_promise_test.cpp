#include "transcoder/film_promise.h"

#include <gtest/gtest.h>

#include <string>

#include "support.h"

namespace orvo::transcoder::test {
namespace {

std::optional<int> PromisedBy(const std::string& text) {
  const TempDir folder;
  WriteText(folder.Path("manifest_predict"), text);
  return PromisedSeconds(folder.Path(""));
}

std::string Manifest(const std::string& duration) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
         "<SmoothStreamingMedia MajorVersion=\"2\" MinorVersion=\"0\" Duration=\"" +
         duration + "\">\n";
}

TEST(FilmPromise, IsTheManifestsDuration) {
  EXPECT_EQ(PromisedBy(Manifest("120000000")), 12);
}

TEST(FilmPromise, SurvivesTheRoundingOfLongFilms) {
  EXPECT_EQ(PromisedBy(Manifest("71999995904")), 7200);
}

TEST(FilmPromise, IsNothingWithoutAManifest) {
  const TempDir folder;
  EXPECT_EQ(PromisedSeconds(folder.Path("")), std::nullopt);
}

TEST(FilmPromise, IsNothingInADamagedManifest) {
  for (const char* text : {"", "<SmoothStreamingMedia", "x", " Duration=\"", " Duration=\"0\"",
                           " Duration=\"-5\"", " Duration=\"99999999999999999999\""}) {
    EXPECT_EQ(PromisedBy(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace orvo::transcoder::test
