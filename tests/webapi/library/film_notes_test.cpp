#include "webapi/library/film_notes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using webapi::ParseNotes;

TEST(FilmNotes, AreTheTextsAndNumbersOfTheFile) {
  const Json::Value notes = ParseNotes(
      "<episodedetails><title>The Storm</title><showtitle>Harbour Lights</showtitle>"
      "<season>2</season><episode>13</episode><year>1999</year><plot>A\n storm.</plot>"
      "</episodedetails>");
  EXPECT_EQ(notes["title"], "The Storm");
  EXPECT_EQ(notes["show"], "Harbour Lights");
  EXPECT_EQ(notes["season"].asInt(), 2);
  EXPECT_EQ(notes["episode"].asInt(), 13);
  EXPECT_EQ(notes["year"].asInt(), 1999);
  EXPECT_EQ(notes["plot"], "A storm.");
}

TEST(FilmNotes, HaveNoMarkup) {
  EXPECT_EQ(ParseNotes("<title>Sea &amp; <b>land</b></title>")["title"], "Sea & land");
  EXPECT_EQ(ParseNotes("<title><![CDATA[Sea & land]]></title>")["title"], "Sea & land");
  EXPECT_EQ(ParseNotes("<title>&amp;lt;</title>")["title"], "&lt;");
}

TEST(FilmNotes, LeaveOutWhatIsMalformed) {
  for (const char* text :
       {"", "<title>", "<title>open", "</title><title>", "<title> \n</title>", "<year>soon</year>",
        "<year>-5</year>", "<year>99999999999999999999</year>", "<title>\xff</title>",
        "https://example.invalid/title/tt1"}) {
    EXPECT_TRUE(ParseNotes(text).empty()) << text;
  }
}

TEST(FilmNotes, AreCutAtAWholeCharacter) {
  const std::string plot =
      ParseNotes("<plot>" + std::string(3999, 'a') + "\u00e9\u00e9</plot>")["plot"].asString();
  EXPECT_EQ(plot, std::string(3999, 'a'));
}

}  // namespace
