#include "webapi/subtitles/subtitle_formats.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// The cues of an SRT file that has this text once.
std::string FromSrt(const std::string& text) {
  const auto cues = webapi::ParseSrt("1\n00:00:01,000 --> 00:00:02,000\n" + text + "\n\n");
  return cues.empty() ? ""
                      : cues[0].text + (cues[0].settings.empty() ? "" : "|" + cues[0].settings);
}

std::string FromScript(const std::string& text) {
  const auto cues = webapi::ParseScript(
      "[Script Info]\nPlayResX: 1000\nPlayResY: 500\n\n"
      "[V4+ Styles]\nFormat: Name, Bold, Italic, Underline, Alignment\n"
      "Style: Default,0,0,0,2\nStyle: Sign,-1,0,0,8\n\n"
      "[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
      "Dialogue: 0,0:00:01.00,0:00:02.00," +
      text + "\n");
  return cues.empty() ? ""
                      : cues[0].text + (cues[0].settings.empty() ? "" : "|" + cues[0].settings);
}

std::string Plain(const std::string& text) {
  return FromScript("Default,,0,0,0,," + text);
}

struct Row {
  const char* from;
  const char* to;
};

TEST(Srt, MarkupIsConvertedToWebVtt) {
  for (const Row& row : {
           Row{"<i>leaning</i>", "<i>leaning</i>"},
           Row{"<B>a<I>b</B>c", "<b>a<i>b</i></b><i>c</i>"},
           Row{"<font color=\"#ff0000\">red</font>", "red"},
           Row{"<font color=red><u>red</font></u>", "<u>red</u>"},
           Row{"{\\an8}above", "above|line:0"},
           Row{"{\\an4}left", "left|line:45% align:left"},
           Row{"{\\i1}leaning{\\i0} not", "<i>leaning</i> not"},
           Row{"<laughs> 1 < 2 & 3 > 2", "&lt;laughs&gt; 1 &lt; 2 &amp; 3 &gt; 2"},
           Row{"I <3 you", "I &lt;3 you"},
           Row{"one&nbsp;two &amp; &lt;b&gt; &#39;&#x41;", "one\xc2\xa0two &amp; &lt;b&gt; 'A"},
           Row{"&unknown; &#0; &#xd800; &", "&amp;unknown; &amp;#0; &amp;#xd800; &amp;"},
           Row{"a<br>b", "a\nb"},
           Row{"<!-- remark -->text", "text"},
           Row{"{a remark}", "{a remark}"},
           Row{"{\\pos(nan,inf)}text", "text"},
       }) {
    EXPECT_EQ(FromSrt(row.from), row.to) << row.from;
  }
}

TEST(Srt, FilesWithCommonIrregularitiesAreRead) {
  for (const char* file : {
           "1\n00:00:01,000 --> 00:00:02,000\nfirst\n\n2\n00:00:03,000 --> 00:00:04,000\nsecond\n",
           "1\r\n00:00:01,000 --> 00:00:02,000\r\nfirst\r\n\r\n2\r\n00:00:03,000 --> "
           "00:00:04,000\r\nsecond",
           "1\r00:00:01,000 --> 00:00:02,000\rfirst\r\r2\r00:00:03,000 --> 00:00:04,000\rsecond\r",
           "00:00:01.000 --> 00:00:02.000\nfirst\n00:00:03.000-->00:00:04.000 X1:1 "
           "Y1:2\nsecond\n\n\n",
           "2\n00:00:03,000 --> 00:00:04,000\nsecond\n\n\n\n1\n0:0:1,0 --> 0:0:2,0\n\nfirst\n",
       }) {
    const auto cues = webapi::ParseSrt(file);
    ASSERT_EQ(cues.size(), 2u) << file;
    EXPECT_EQ(cues[0].text, "first") << file;
    EXPECT_EQ(cues[0].start, 1000) << file;
    EXPECT_EQ(cues[1].text, "second") << file;
    EXPECT_EQ(cues[1].end, 4000) << file;
  }
}

TEST(Srt, AnEmptyLineInATextDoesNotEndIt) {
  EXPECT_EQ(FromSrt("one\n\ntwo"), "one\ntwo");
}

TEST(Srt, AFileThatIsNotASubtitleGivesNoCues) {
  for (const std::string& file : {std::string(), std::string("\n\n\n"), std::string("no times"),
                                  std::string(1000, '\0'), std::string("00:00:01,000 --> \n")}) {
    EXPECT_TRUE(webapi::ParseSrt(file).empty());
    EXPECT_TRUE(webapi::ParseScript(file).empty());
    EXPECT_TRUE(webapi::ParseSami(file).empty());
  }
}

TEST(Script, OverridesBecomeMarkupOrAreRemoved) {
  for (const Row& row : {
           Row{"plain, with a comma", "plain, with a comma"},
           Row{"{\\i1}a{\\i0}b", "<i>a</i>b"},
           Row{"{\\b700}a{\\b400}b{\\b1}c{\\b}d", "<b>a</b>b<b>c</b>d"},
           Row{"{\\bord2\\blur3\\be1\\iclip(1,2,3,4)\\fnArial\\c&HFFFFFF&\\alpha&H80&}x", "x"},
           Row{"one\\Ntwo\\nthree\\hfour",
               "one\ntwo three\xc2\xa0"
               "four"},
           Row{"{\\an8}top", "top|line:0"},
           Row{"{\\a6}top", "top|line:0"},
           Row{"{\\an7\\pos(100,50)}x", "x|line:10% position:10% align:left"},
           Row{"{\\pos(500,250)}x", "x|line:44% position:50%"},
           Row{"{\\move(500,250,0,0)}x", "x|line:44% position:50%"},
           Row{"{\\p1}m 0 0 l 100 0{\\p0}", ""},
           Row{"{\\p1}m 0 0 l 100 0 \\N{\\p0}seen", "seen"},
           Row{"{\\k20}ka{\\kf30}ra", "kara"},
           Row{"{\\t(0,100,\\i1\\fscx200)}still", "still"},
           Row{"{\\u1}a{\\r}b", "<u>a</u>b"},
           Row{"{remark}a < b & c", "a &lt; b &amp; c"},
           Row{"\\{not a block\\}", "{not a block}"},
           Row{"{never closed", "{never closed"},
       }) {
    EXPECT_EQ(Plain(row.from), row.to) << row.from;
  }
}

TEST(Script, AStyleAppliesUntilItIsOverridden) {
  EXPECT_EQ(FromScript("Sign,,0,0,0,,a{\\b0}b"), "<b>a</b>b|line:0");
  EXPECT_EQ(FromScript("*Sign,,0,0,0,,a"), "<b>a</b>|line:0");
  EXPECT_EQ(FromScript("Unknown,,0,0,0,,a"), "a");
}

TEST(Script, TheOlderVersionHasItsOwnAlignmentNumbers) {
  const auto cues = webapi::ParseScript(
      "[Script Info]\nScriptType: v4.00\n[V4 Styles]\n"
      "Format: Name, Fontname, Bold, Italic, Alignment\nStyle: Top,Arial,0,-1,6\n"
      "[Events]\nFormat: Marked, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
      "Comment: Marked=0,0:00:00.00,0:00:09.00,Top,,0,0,0,,unseen\n"
      "Dialogue: Marked=0,0:00:01.50,0:00:02.00,Top,,0,0,0,,seen\n");
  ASSERT_EQ(cues.size(), 1u);
  EXPECT_EQ(cues[0].start, 1500);
  EXPECT_EQ(cues[0].text, "<i>seen</i>");
  EXPECT_EQ(cues[0].settings, "line:0");
}

TEST(Script, LayersOfTheSameTextAreOneCue) {
  const auto cues = webapi::ParseScript(
      "[Events]\n"
      "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,{\\bord4}sign\n"
      "Dialogue: 1,0:00:01.00,0:00:02.00,Default,,0,0,0,,{\\bord0}sign\n");
  EXPECT_EQ(cues.size(), 1u);
}

constexpr char kSami[] =
    "<SAMI><HEAD><STYLE TYPE=\"text/css\"><!-- P {font-size:20px;} .KRCC {lang:ko-KR;} --></STYLE>"
    "</HEAD><BODY>\n"
    "<SYNC Start=1000><P Class=KRCC>one<br>\n<i>two</i> &amp; <font color=red>three</font>\n"
    "<SYNC Start=\"2500\"><P Class=KRCC>&nbsp;\n"
    "<SYNC start=3000><P Class=ENCC>english<P Class=KRCC>four<!-- a -> remark -->\n"
    "<SYNC Start=4000><P class='krcc'>five</P></SYNC>\n</BODY></SAMI>\n";

TEST(Sami, TextsLastUntilTheNextTime) {
  const auto cues = webapi::ParseSami(kSami);
  ASSERT_EQ(cues.size(), 3u);
  EXPECT_EQ(cues[0].text, "one\n<i>two</i> &amp; three");
  EXPECT_EQ(cues[0].start, 1000);
  EXPECT_EQ(cues[0].end, 2500);
  EXPECT_EQ(cues[1].text, "four");
  EXPECT_EQ(cues[1].end, 4000);
  EXPECT_EQ(cues[2].text, "five");
  EXPECT_GT(cues[2].end, 4000);
}

TEST(Sami, DamagedTimesAreSkipped) {
  const auto cues = webapi::ParseSami(
      "<SYNC Start=x><P>no<SYNC><P>no<SYNC Start=-5><P>no<SYNC Start=99999999999999999999><P>no"
      "<SYNC Start=1000<P>yes<SYNC Start=2000>no paragraph<SYNC Start=3000><P>&nbsp;");
  ASSERT_EQ(cues.size(), 2u);
  EXPECT_EQ(cues[0].text, "yes");
  EXPECT_EQ(cues[1].text, "no paragraph");
}

TEST(Formats, AreRecognisedByTheirEndingsInAnyCase) {
  EXPECT_EQ(webapi::ParserFor("srt"), &webapi::ParseSrt);
  EXPECT_EQ(webapi::ParserFor("SSA"), webapi::ParserFor("ass"));
  EXPECT_EQ(webapi::ParserFor("SmI"), &webapi::ParseSami);
  EXPECT_EQ(webapi::ParserFor("txt"), nullptr);
  EXPECT_EQ(webapi::ParserFor(""), nullptr);
}

TEST(Formats, ATrackHasAnEnd) {
  const auto repeated = [](const std::string& head, const std::string& cue) {
    std::string file = head;
    for (size_t i = 0; i < webapi::kMostCues + 1000; ++i) {
      file += cue + std::to_string(i) + "\n";
    }
    return file;
  };
  const std::string srt = repeated("", "0:0 --> 0:9\n");
  const std::string ass = repeated("[Events]\nFormat: Start, End, Text\n", "Dialogue: 0:0,0:9,");
  const std::string smi = repeated("", "<sync start=1><p>");
  const std::string vtt = repeated("", "\n0:0 --> 0:9\n");
  for (const size_t count : {webapi::ParseSrt(srt).size(), webapi::ParseScript(ass).size(),
                             webapi::ParseSami(smi).size(), webapi::ParseWebVtt(vtt).size()}) {
    EXPECT_LE(count, webapi::kMostCues);
  }
  EXPECT_GE(webapi::ParseScript(ass).size(), webapi::kMostCues - 1);
}

TEST(Formats, AColumnThatARowLacksIsEmpty) {
  const auto cues = webapi::ParseScript(
      "[Events]\nFormat: Start, End, Start, Nobody, Text, Style\n"
      "Dialogue: 0:00:01.00,0:00:02.00,0:00:05.00,x, seen ,Default, with a comma\n"
      "Dialogue: 0:00:03.00,0:00:04.00\n");
  ASSERT_EQ(cues.size(), 1u);
  EXPECT_EQ(cues[0].start, 1000);
  EXPECT_EQ(cues[0].text, "seen");
}

TEST(Formats, BracesBelongToTheNextClosingBrace) {
  EXPECT_EQ(Plain("{{\\i1}a}{b}c"), "<i>a}c</i>");
  EXPECT_EQ(Plain("{" + std::string(5000, 'x') + "}{\\i1}"), "{" + std::string(5000, 'x') + "}");
}

}  // namespace
