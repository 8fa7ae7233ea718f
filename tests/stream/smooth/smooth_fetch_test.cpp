// A whole request for a fragment, with scripts in the transcoder's place.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <optional>

#include "contract/fragments.h"
#include "platform/plat.h"
#include "state/stream_directory.h"
#include "stream/fetched_piece.h"
#include "stream/smooth_stream.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/stand_in.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::FetchedPiece;
using LibOrvoQMX::SmoothStream;
using LibOrvoQMX::StreamDirectory;
using orvo::FragmentId;
using orvo::Track;
using test::Child;
using test::kFfmpeg;
using test::kId;
using State = FetchedPiece::State;

constexpr char kProfileKey[] = "smoothstreaming_240p_x264_vb200_vf15_aac_ab40";
// One more line for each transcoder that was started.
constexpr char kCount[] = "echo x >> \"$ORVO_SYSROOT/starts\"\n";

class SmoothFetch : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    WriteScript(kFfmpeg, std::string(kCount) + "exit 0\n");
    MakeStreamOnVolume("SS", test::FilmRecord("-vcodec libx264 -s 240", kProfileKey));
  }

  static std::string File(const std::string& name) { return Directory("SS") + "/" + name; }
  static FragmentId Id(int seconds, Track track = Track::kVideo) {
    return {track == Track::kVideo ? "200000" : "40000", track, seconds * orvo::kTicksPerSecond};
  }
  void Finish(const FragmentId& id) const { Write(File("smooth/" + id.Text()), "fragment"); }

  // What such a request gets, which is the latest one.
  static FetchedPiece Fetch(const FragmentId& id) {
    StreamDirectory("SS", kId).AskFor(id.Number());
    return SmoothStream(kId).Fetch(id);
  }
  size_t Starts() const { return Read("/starts").size() / 2; }

  // A process that stands for the stream's monitor, whose transcoder began at that second.
  std::unique_ptr<Child> StartMonitor(int seconds) const {
    auto monitor = std::make_unique<Child>([] { test::SleepUntilKilled(); });
    Write(File("monitor.pid"), std::to_string(monitor->Pid()));
    Write(File("seek_time"), std::to_string(seconds));
    return monitor;
  }
};

TEST_F(SmoothFetch, OfACompleteFragmentStartsNothing) {
  On("avoton", [this] {
    const auto monitor = StartMonitor(0);
    Finish(Id(10));
    Finish(Id(15));
    const FetchedPiece piece = Fetch(Id(10));
    EXPECT_EQ(piece.state, State::kComplete);
    EXPECT_EQ(piece.path, Path(File("smooth/" + Id(10).Text())));
    EXPECT_EQ(Starts(), 0U);
  });
}

TEST_F(SmoothFetch, StartsATranscoderAtTheFragmentAndReturnsItsFile) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, std::string(kCount) +
                             "for out; do :; done\nmkdir -p \"$out/QualityLevels(200000)\"\n"
                             "echo > \"$out/QualityLevels(200000)/Fragments(video=100000000)\"\n");
    EXPECT_EQ(Fetch(Id(10)).state, State::kComplete);
    EXPECT_EQ(Read(File("seek_time")), "10");
    test::ReapAll();
  });
}

TEST_F(SmoothFetch, IsTriedTwiceIfTheTranscoderMakesNothing) {
  On("avoton", [this] {
    EXPECT_EQ(Fetch(Id(10)).state, State::kWillNotCome);
    EXPECT_EQ(Starts(), 2U);
    test::ReapAll();
  });
}

TEST_F(SmoothFetch, IsTriedOnceWhenTheViewerHasGoneElsewhere) {
  On("avoton", [this] {
    for (const auto& [asked, starts] : {std::pair{12, 2U}, {13, 1U}}) {
      unlink(Path("/starts").c_str());
      StreamDirectory("SS", kId).AskFor(asked);
      EXPECT_EQ(SmoothStream(kId).Fetch(Id(10)).state, State::kWillNotCome);
      EXPECT_EQ(Starts(), starts) << asked;
    }
    test::ReapAll();
  });
}

TEST_F(SmoothFetch, OfSoundWaitsOneSecondForThePictureToMoveTheTranscoder) {
  On("avoton", [this] {
    const auto monitor = StartMonitor(60);
    const double start = test::Now();
    Child picture([this] {
      Write(File("seek_time"), "10");
      Finish(Id(10, Track::kAudio));
      Finish(Id(15, Track::kAudio));
    });
    EXPECT_EQ(Fetch(Id(10, Track::kAudio)).state, State::kComplete);
    EXPECT_LT(test::Now() - start, 1);
    EXPECT_EQ(picture.Wait(), 0);
    EXPECT_EQ(Starts(), 0U);
  });
}

TEST_F(SmoothFetch, OfSoundMovesTheTranscoderIfNoPictureDoes) {
  On("avoton", [this] {
    const double start = test::Now();
    EXPECT_EQ(Fetch(Id(10, Track::kAudio)).state, State::kWillNotCome);
    // One second of patience for each start; the looks whether it settled take one second more.
    EXPECT_GE(test::Now() - start, 2);
    EXPECT_EQ(Starts(), 2U);
    EXPECT_EQ(Read(File("seek_time")), "10");
    EXPECT_TRUE(test::TakeLog().empty());
    test::ReapAll();
  });
}

TEST_F(SmoothFetch, OfARemovedStreamStartsNothing) {
  On("avoton", [this] {
    SmoothStream stream(kId);
    stream.Close();
    EXPECT_EQ(stream.Fetch(Id(10)).state, State::kNotStarted);
    EXPECT_EQ(SmoothStream(kId).Fetch(Id(10)).state, State::kNotStarted);
    EXPECT_EQ(Starts(), 0U);
  });
}

}  // namespace
