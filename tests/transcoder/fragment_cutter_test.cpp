#include "transcoder/fragment_cutter.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvo::transcoder::test {
namespace {

constexpr int64_t kSecond = kFragmentClockRate;

// Writes down what comes, in order: "a0 v0 a1 ..." and the samples.
struct Written : FragmentSink {
  void Write(Track track, int number, const std::vector<Sample>& samples) override {
    order.append(track == Track::kVideo ? "v" : "a").append(std::to_string(number)).append(" ");
    (track == Track::kVideo ? pictures : sound).push_back(samples);
  }
  std::string order;
  std::vector<std::vector<Sample>> pictures;
  std::vector<std::vector<Sample>> sound;
};

Sample SampleAt(double seconds, bool isKey = false) {
  return {static_cast<int64_t>(seconds * kSecond), 0, isKey,
          std::make_shared<const std::string>(isKey ? "key" : "other")};
}

class FragmentCutterTest : public testing::Test {
 protected:
  void Start(int firstNumber, std::optional<int> film, bool hasSound = true) {
    FragmentPlan plan;
    plan.firstNumber = firstNumber;
    plan.film = film;
    cutter = std::make_unique<FragmentCutter>(plan, written);
    cutter->SetHasSound(hasSound);
  }
  void Picture(double seconds, bool isKey = false) {
    cutter->Take(Track::kVideo, SampleAt(seconds, isKey));
  }
  void Sound(double from, double to) {
    for (auto frame = static_cast<int64_t>(from * 46.875); frame < to * 46.875; ++frame) {
      cutter->Take(Track::kAudio, SampleAt(static_cast<double>(frame) / 46.875 + 1e-6));
    }
  }
  int64_t EndOf(const std::vector<Sample>& samples) {
    return samples.back().time + samples.back().duration;
  }

  Written written;
  std::unique_ptr<FragmentCutter> cutter;
};

TEST_F(FragmentCutterTest, PicturesWaitForTheSoundOfTheirFragment) {
  Start(0, 10);
  Picture(0, true);
  Picture(5, true);
  EXPECT_EQ(written.order, "");
  Sound(0, 5.1);
  EXPECT_EQ(written.order, "a0 v0 ");
  cutter->Finish();
  EXPECT_EQ(written.order, "a0 v0 a1 v1 ");
}

TEST_F(FragmentCutterTest, WhatComesBeforeTheFirstKeyFrameOfARunIsLeftOut) {
  Start(1, 10);
  Picture(4.8, true);
  Picture(4.9);
  Picture(5, true);
  Picture(5.1);
  Sound(4, 10);
  cutter->Finish();
  EXPECT_EQ(written.order, "a1 v1 ");
  EXPECT_EQ(written.pictures[0].size(), 2U);
  EXPECT_EQ(written.pictures[0][0].time, 5 * kSecond);
}

TEST_F(FragmentCutterTest, APictureStandsUntilTheNextOneComes) {
  Start(0, 10);
  Picture(0, true);
  Picture(1);
  Picture(5.02, true);
  cutter->Finish();
  EXPECT_EQ(written.pictures[0][0].duration, kSecond);
  EXPECT_EQ(EndOf(written.pictures[0]), written.pictures[1][0].time);
  EXPECT_EQ(EndOf(written.pictures[1]), 10 * kSecond);
}

TEST_F(FragmentCutterTest, AFragmentWithoutPicturesShowsTheLastOne) {
  Start(0, 15, false);
  Picture(0, true);
  Picture(1);
  Picture(11, true);
  cutter->Finish();
  EXPECT_EQ(written.order, "a0 v0 a1 v1 a2 v2 ");
  const auto& held = written.pictures[1];
  ASSERT_EQ(held.size(), 2U);
  EXPECT_TRUE(held[0].isKey);
  EXPECT_EQ(held[0].time, 5 * kSecond);
  EXPECT_LT(held[0].duration, kSecond / 1000);
  EXPECT_EQ(EndOf(held), 11 * kSecond);
}

TEST_F(FragmentCutterTest, TheFirstPictureStandsFromTheStart) {
  Start(0, 10, false);
  Picture(6, true);
  cutter->Finish();
  EXPECT_EQ(written.order, "a0 v0 a1 v1 ");
  EXPECT_EQ(written.pictures[0][0].time, 0);
  EXPECT_EQ(EndOf(written.pictures[0]), 6 * kSecond);
  EXPECT_EQ(written.pictures[1][0].time, 6 * kSecond);
}

TEST_F(FragmentCutterTest, NothingGoesBeyondThePromise) {
  Start(0, 7);
  Picture(0, true);
  Picture(5, true);
  Picture(8);
  EXPECT_FALSE(cutter->IsSated());
  Sound(0, 9);
  EXPECT_TRUE(cutter->IsSated());
  cutter->Finish();
  EXPECT_EQ(EndOf(written.pictures[1]), 7 * kSecond);
  EXPECT_LT(EndOf(written.sound[1]), 7.03 * kSecond);
}

TEST_F(FragmentCutterTest, MissingSoundIsSilence) {
  Start(0, 5);
  Picture(0, true);
  Sound(0, 1);
  Sound(3, 4);
  cutter->Finish();
  const auto& sound = written.sound[0];
  for (size_t i = 1; i < sound.size(); ++i) {
    EXPECT_EQ(sound[i].time, sound[i - 1].time + sound[i - 1].duration);
  }
  EXPECT_NEAR(static_cast<double>(EndOf(sound)), 5.0 * kSecond, kSecond / 90.0);
}

TEST_F(FragmentCutterTest, PicturesDoNotWaitForSoundThatHasEnded) {
  Start(0, 60);
  Sound(0, 1);
  for (int number = 0; number < 6; ++number) {
    Picture(5 * number, true);
  }
  EXPECT_EQ(written.order, "a0 v0 a1 v1 ");
}

TEST_F(FragmentCutterTest, SoundDoesNotWaitForPicturesThatHaveEnded) {
  Start(0, 60);
  Picture(0, true);
  Sound(0, 29.9);
  EXPECT_EQ(written.order, "a0 a1 a2 v0 a3 v1 a4 v2 ");
}

TEST_F(FragmentCutterTest, ARunBehindTheLastPictureShowsThatOne) {
  Start(2, 20);
  Sound(10, 20);
  EXPECT_FALSE(cutter->HasPicture());
  Picture(4, true);
  Picture(6, true);
  Picture(6.5);
  EXPECT_TRUE(cutter->HasPicture());
  cutter->Finish();
  EXPECT_EQ(written.order, "a2 a3 v2 v3 ");
  for (const auto& held : written.pictures) {
    ASSERT_EQ(held.size(), 2U);
    EXPECT_TRUE(held[0].isKey);
    EXPECT_LT(held[0].duration, kSecond / 1000);
  }
  EXPECT_EQ(written.pictures[0][0].time, 10 * kSecond);
  EXPECT_EQ(EndOf(written.pictures[0]), 15 * kSecond);
  EXPECT_EQ(EndOf(written.pictures[1]), 20 * kSecond);
}

TEST_F(FragmentCutterTest, PicturesBeforeTheStartNeedTheirKeyFrame) {
  Start(2, 20);
  Picture(6.5);
  EXPECT_FALSE(cutter->HasPicture());
}

TEST_F(FragmentCutterTest, AFilmWithoutPicturesGivesNothing) {
  Start(0, 60);
  Sound(0, 4);
  cutter->Finish();
  EXPECT_EQ(written.order, "");
}

}  // namespace
}  // namespace orvo::transcoder::test
