// A whole request for a segment, with scripts in the transcoder's place.
#include <gtest/gtest.h>

#include "platform/plat.h"
#include "state/stream_directory.h"
#include "stream/fetched_piece.h"
#include "support/hls.h"
#include "support/processes.h"
#include "support/stand_in.h"

namespace {

using LibOrvoQMX::FetchedPiece;
using LibOrvoQMX::HttpLiveStream;
using test::Child;
using test::kFfmpeg;
using test::kId;
using State = FetchedPiece::State;

// Counts its starts and writes the segment that it is started for.
constexpr char kOneSegment[] =
    "echo x >> \"$ORVO_SYSROOT/starts\"\n"
    "for out; do case $last in -segment_start_number) n=$out ;; esac; last=$out; done\n"
    "echo segment > \"$(dirname \"$last\")/$(printf 'slice-%05d.ts' \"$n\")\"\n";
constexpr char kNoSegment[] = "echo x >> \"$ORVO_SYSROOT/starts\"\n";

class HlsFetch : public test::HlsTest {
 protected:
  void SetUp() override {
    HlsTest::SetUp();
    Open(test::kTranscodeProfile);
    WriteScript(kFfmpeg, kOneSegment);
  }

  size_t Starts() const { return Read("/starts").size() / 2; }

  // What a killed service leaves: a restart at that segment whose monitor is gone.
  void LeaveDeadRestart(int segment) const {
    Write(File("seek_time"), std::to_string(segment));
    Write(File("request_sequence"), "1.000000000");
    Child monitor([] {});
    monitor.Wait();
    Write(File("monitor.pid"), std::to_string(monitor.Pid()));
  }
};

TEST_F(HlsFetch, StartsATranscoderInThePlaceOfOneThatWasKilled) {
  On("avoton", [this] {
    for (const int number : {5, 6, 9}) {
      LeaveDeadRestart(5);
      EXPECT_EQ(HttpLiveStream(kId).Fetch(number).path, Path(Slice(number)));
      EXPECT_EQ(Read(File("seek_time")), std::to_string(number));
    }
    EXPECT_EQ(Starts(), 3U);
    test::ReapAll();
  });
}

TEST_F(HlsFetch, StartsATranscoderWhereARestartWasLostBeforeItsMonitorWasRecorded) {
  On("avoton", [this] {
    Write(File("seek_time"), "5");
    Write(File("request_sequence"), "1.000000000");
    EXPECT_EQ(HttpLiveStream(kId).Fetch(7).state, State::kComplete);
    EXPECT_EQ(Starts(), 1U);
    test::ReapAll();
  });
}

TEST_F(HlsFetch, TakesARestartFromBeforeTheMachineStartedForLost) {
  On("avoton", [this] {
    Write(File("seek_time"), "5");
    Write(File("request_sequence"), "99999999999.000000000");
    EXPECT_EQ(HttpLiveStream(kId).Fetch(7).state, State::kComplete);
    test::ReapAll();
  });
}

TEST_F(HlsFetch, StartsOneTranscoderForRequestsThatComeTogether) {
  On("avoton", [this] {
    LeaveDeadRestart(5);
    const auto fetch = [] { EXPECT_EQ(HttpLiveStream(kId).Fetch(7).state, State::kComplete); };
    Child one(fetch);
    Child other(fetch);
    EXPECT_EQ(one.Wait(), 0);
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(Starts(), 1U);
    test::ReapAll();
  });
}

TEST_F(HlsFetch, DoesNotTakeTheTranscoderFromANewerRequestElsewhere) {
  On("avoton", [this] {
    const LibOrvoQMX::StreamDirectory directory("HLS", kId);
    EXPECT_EQ(HttpLiveStream(kId).Fetch(50).state, State::kComplete);
    directory.AskFor(50);
    for (const int left : {10, 44, 90}) {
      EXPECT_EQ(HttpLiveStream(kId).Fetch(left).state, State::kNotYet) << left;
    }
    EXPECT_EQ(Read(File("seek_time")), "50");
    EXPECT_EQ(Starts(), 1U);
    EXPECT_EQ(HttpLiveStream(kId).Fetch(50).state, State::kComplete);
    test::ReapAll();
  });
}

TEST_F(HlsFetch, ARequestJustBeforeTheNewestOneGetsItsSegment) {
  On("avoton", [] {
    const LibOrvoQMX::StreamDirectory directory("HLS", kId);
    directory.AskFor(50);
    EXPECT_EQ(HttpLiveStream(kId).Fetch(46).state, State::kComplete);
    test::ReapAll();
  });
}

TEST_F(HlsFetch, GivesUpWhereItsOwnTranscoderMakesNothing) {
  On("avoton", [this] {
    WriteScript(kFfmpeg, kNoSegment);
    EXPECT_EQ(HttpLiveStream(kId).Fetch(7).state, State::kWillNotCome);
    EXPECT_EQ(Starts(), 1U);
    test::ReapAll();
  });
}

}  // namespace
