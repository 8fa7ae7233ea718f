#include "webapi/subtitles/webvtt.h"

#include <gtest/gtest.h>

#include "webapi/subtitles/cue_text.h"

namespace {

using webapi::Cue;
using webapi::CueText;
using webapi::Style;

constexpr char kHeader[] = "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:126000,LOCAL:00:00:00.000\n";

std::vector<Cue> ThreeCues() {
  return {{.start = 1000, .end = 4000, .settings = "", .text = "one"},
          {.start = 4000, .end = 6500, .settings = "line:0", .text = "two"},
          {.start = 9000, .end = 12000, .settings = "", .text = "three\nlines"}};
}

std::string TextsOf(const std::vector<Cue>& cues) {
  std::string texts;
  for (const Cue& cue : cues) {
    texts += cue.text + ";";
  }
  return texts;
}

TEST(WebVtt, ATrackWithoutCuesIsOnlyTheHeader) {
  EXPECT_EQ(webapi::WriteWebVtt({}), kHeader);
}

TEST(WebVtt, CuesAreWrittenWithMillisecondsAndTheirPosition) {
  EXPECT_EQ(webapi::WriteWebVtt(
                {{.start = 1, .end = 3600000, .settings = "", .text = "a\nb"},
                 {.start = 360000007, .end = 360000008, .settings = "line:0", .text = "c"}}),
            std::string(kHeader) +
                "\n00:00:00.001 --> 01:00:00.000\na\nb\n"
                "\n100:00:00.007 --> 100:00:00.008 line:0\nc\n");
}

TEST(WebVtt, AWrittenTrackIsReadBackUnchanged) {
  const std::string text = webapi::WriteWebVtt(ThreeCues());
  const auto cues = webapi::ParseWebVtt(text);
  ASSERT_EQ(cues.size(), 3u);
  EXPECT_EQ(cues[1].settings, "line:0");
  EXPECT_EQ(webapi::WriteWebVtt(cues), text);
}

TEST(WebVtt, DamageBetweenCuesIsSkipped) {
  const auto cues = webapi::ParseWebVtt(
      "garbage\n-->\n00:01 --> x\n\n\x01\xff\n\n00:00:01.000 --> "
      "00:00:02.000\nkept\n\n00:00:03.000 -->");
  EXPECT_EQ(TextsOf(cues), "kept;");
}

TEST(WebVtt, ASpanHoldsTheCuesThatAreVisibleInIt) {
  EXPECT_EQ(TextsOf(webapi::Slice(ThreeCues(), 0, 5000)), "one;two;");
  EXPECT_EQ(TextsOf(webapi::Slice(ThreeCues(), 5000, 10000)), "two;three\nlines;");
  EXPECT_EQ(TextsOf(webapi::Slice(ThreeCues(), 7000, 9000)), "");
}

TEST(WebVtt, ACueThatEndsAsASpanBeginsIsNotInIt) {
  EXPECT_EQ(TextsOf(webapi::Slice(ThreeCues(), 4000, 5000)), "two;");
}

TEST(WebVtt, ACueAcrossABoundaryKeepsItsTimesInBothSpans) {
  const Cue before = webapi::Slice(ThreeCues(), 0, 5000).back();
  const Cue after = webapi::Slice(ThreeCues(), 5000, 10000).front();
  EXPECT_EQ(before.start, 4000);
  EXPECT_EQ(before.end, 6500);
  EXPECT_EQ(after.start, before.start);
  EXPECT_EQ(after.end, before.end);
}

TEST(WebVtt, TidyingSortsAndRemovesInvisibleCues) {
  std::vector<Cue> cues = {{.start = 5, .end = 6, .settings = "", .text = "b"},
                           {.start = 1, .end = 2, .settings = "", .text = "a"},
                           {.start = 1, .end = 2, .settings = "", .text = "a"},
                           {.start = 3, .end = 3, .settings = "", .text = "instant"},
                           {.start = 4, .end = 3, .settings = "", .text = "backwards"},
                           {.start = 3, .end = 4, .settings = "", .text = ""}};
  webapi::Tidy(cues);
  EXPECT_EQ(TextsOf(cues), "a;b;");
}

TEST(WebVtt, TimesAreReadInAllCommonForms) {
  struct Row {
    const char* text;
    int64_t time;
    const char* left;
  };
  for (const Row& row : {
           Row{"00:00:01,500", 1500, ""},
           Row{"1:02:03.45 -->", 3723450, " -->"},
           Row{"0:00:01:500", 1500, ""},
           Row{"00:01.000", 1000, ""},
           Row{"00:00:01", 1000, ""},
           Row{" 00:00:01,0009", 1000, ""},
           Row{"100:00:00.000", 360000000, ""},
           Row{"", -1, ""},
           Row{"word", -1, "word"},
           Row{"12", -1, "12"},
           Row{"12:", -1, "12:"},
           Row{"-1:02", -1, "-1:02"},
           Row{"1000000000:02", -1, "1000000000:02"},
           Row{"99999999999999999999:02", -1, "99999999999999999999:02"},
       }) {
    std::string_view text = row.text;
    EXPECT_EQ(webapi::TakeTime(text), row.time) << row.text;
    EXPECT_EQ(text, row.left) << row.text;
  }
}

TEST(CueText, MarkupCharactersAreEscaped) {
  CueText text;
  text.Put("a < b && c --> d");
  EXPECT_EQ(text.Finish(), "a &lt; b &amp;&amp; c --&gt; d");
}

TEST(CueText, StylesNestAndAreClosed) {
  CueText text;
  text.Set(Style::kBold, true);
  text.Put("bold ");
  text.Set(Style::kItalic, true);
  text.Put("both");
  text.Set(Style::kBold, false);
  text.Put(" italic");
  EXPECT_EQ(text.Finish(), "<b>bold <i>both</i></b> <i>italic</i>");
}

TEST(CueText, NoTagIsEmpty) {
  CueText text;
  text.Set(Style::kBold, true);
  text.Put("  ");
  text.Break();
  text.Set(Style::kBold, false);
  EXPECT_EQ(text.Finish(), "");
}

TEST(CueText, NoLineIsEmpty) {
  CueText text;
  text.Break();
  text.Put("one");
  text.Break();
  text.Put("  ");
  text.Break();
  text.Put("two ");
  text.Break();
  EXPECT_EQ(text.Lines(), 2);
  EXPECT_EQ(text.Finish(), "one\ntwo");
}

TEST(CueText, ALongTextEndsAtAWholeCharacter) {
  CueText text;
  text.Put("x");
  for (size_t i = 0; i < CueText::kLongest; ++i) {
    text.Put("\xc3\xa9");
  }
  const std::string kept = text.Finish();
  EXPECT_EQ(kept.size(), CueText::kLongest + 1);
  EXPECT_EQ(kept.substr(kept.size() - 2), "\xc3\xa9");
}

TEST(CueText, ControlCharactersAreLeftOut) {
  CueText text;
  text.Put(std::string_view("a\0b\x1b\r\nc", 7));
  EXPECT_EQ(text.Finish(), "abc");
}

}  // namespace
