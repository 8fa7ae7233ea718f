#include "contract/fragments.h"

#include <gtest/gtest.h>

namespace {

using orvo::FragmentId;
using orvo::Track;

TEST(FragmentIds, AreReadAndWritten) {
  for (const char* text : {"QualityLevels(200000)/Fragments(video=0)",
                           "QualityLevels(40000)/Fragments(audio=600000000)"}) {
    const auto id = FragmentId::Parse(text);
    ASSERT_TRUE(id) << text;
    EXPECT_EQ(id->Text(), text);
  }
  const auto id = FragmentId::Parse("QualityLevels(40000)/Fragments(audio=600000000)");
  EXPECT_EQ(id->rate, "40000");
  EXPECT_EQ(id->track, Track::kAudio);
  EXPECT_EQ(id->start, 600000000);
  EXPECT_EQ(id->Number(), 12);
}

TEST(FragmentIds, HaveOneSpelling) {
  EXPECT_EQ(FragmentId::Parse("QualityLevels(007)/Fragments(video=050000000)")->Text(),
            "QualityLevels(7)/Fragments(video=50000000)");
}

TEST(FragmentIds, AreNothingElse) {
  for (const char* text :
       {"", "QualityLevels(1)", "QualityLevels(1)/Fragments(video=1", "QualityLevels(1)/",
        "QualityLevels(1)/Fragments(video=1))", "QualityLevels(1)/Fragments(text=1)",
        "QualityLevels(1)/Fragments(video=)", "QualityLevels(1)/Fragments(video=-1)",
        "QualityLevels(-1)/Fragments(video=1)", "QualityLevels(a)/Fragments(video=1)",
        "QualityLevels(1)/Fragments(audio=video=1)", " QualityLevels(1)/Fragments(video=1)",
        "QualityLevels(1)/../Fragments(video=1)",
        "QualityLevels(1)/Fragments(video=99999999999999999999)"}) {
    EXPECT_FALSE(FragmentId::Parse(text)) << text;
  }
}

}  // namespace
