#include "stream/cmaf/cmaf_runs.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "state/stream_directory.h"
#include "state/stream_lock.h"
#include "support/processes.h"
#include "support/stand_in.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::CmafFolder;
using LibOrvoQMX::CmafRendition;
using LibOrvoQMX::CmafRun;
using LibOrvoQMX::StreamDirectory;
using test::kFfmpeg;
using test::kId;
using test::kStandIn;
using test::StandIn;

CmafRendition Copy() {
  CmafRendition rendition;
  rendition.name = "copy-video";
  rendition.treatment = "pictures";
  rendition.isPicture = true;
  return rendition;
}

class CmafRuns : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    WriteScript(kFfmpeg, kStandIn);
    MakeDirectory(Directory("CMAF"));
    MakeDirectory(Directory("CMAF") + "/copy-video");
  }

  static StreamDirectory Folder() { return CmafFolder(kId, "copy-video"); }
  static CmafRun Run() { return CmafRun(kId, {"/film.mkv", "", ""}, Copy()); }
  static bool Reach(int number) {
    std::optional<LibOrvoQMX::StreamLock> noPlace;
    return Run().Reach(number, noPlace);
  }
};

TEST_F(CmafRuns, StartForTheLatestRequest) {
  On("x86", [this] {
    const StandIn stand(Root());
    Folder().AskFor(10);
    Folder().MarkAccess();
    EXPECT_TRUE(Reach(10));
    EXPECT_GT(stand.NextStarted(), 0);
    LibOrvoQMX::CloseCmafStream(kId);
    test::ReapAll();
  });
}

TEST_F(CmafRuns, DoNotSendWhatAKilledOneHasLeft) {
  On("x86", [this] {
    const StandIn stand(Root());
    Write(Directory("CMAF") + "/copy-video/position", "7");
    Write(Directory("CMAF") + "/copy-video/00007.m4s.part", "half a segment");
    Folder().AskFor(7);
    Folder().MarkAccess();
    EXPECT_TRUE(Reach(7));
    EXPECT_GT(stand.NextStarted(), 0);
    EXPECT_EQ(Run().Look(7), CmafRun::State::kTimeout);
    LibOrvoQMX::CloseCmafStream(kId);
    test::ReapAll();
  });
}

TEST_F(CmafRuns, AreNotTakenFromALaterRequestElsewhere) {
  On("x86", [this] {
    const StandIn stand(Root());
    Folder().AskFor(50);
    EXPECT_TRUE(Run().IsReplaced(10));
    EXPECT_TRUE(Reach(10));
    EXPECT_FALSE(Folder().IsMonitored());
    EXPECT_FALSE(stand.HasStarted());
  });
}

TEST_F(CmafRuns, GoOnForARequestWhoseNextSegmentIsWantedToo) {
  On("x86", [] {
    for (const auto& [asked, isReplaced] :
         {std::pair{9, true}, {10, false}, {11, false}, {12, true}}) {
      Folder().AskFor(asked);
      EXPECT_EQ(Run().IsReplaced(10), isReplaced) << asked;
    }
  });
}

}  // namespace
