// The films that the owner's rules put into the queue of conversions.
#include "webapi/conversions/rule_following.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "convert/queue.h"
#include "support/file_changes.h"
#include "support/processes.h"
#include "support/sysroot.h"
#include "webapi/choice/machine_speed.h"

namespace {

namespace fs = std::filesystem;
using convert::Item;
using convert::Queue;
using Names = std::vector<std::string>;

class RuleFollowing : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    MakeDirectory("/var/packages/Mirevo");
    MakeDirectory(kFilms);
    fs::create_directory_symlink(ORVO_TEST_TARGET, Path("/var/packages/Mirevo/target"));
    rule_ = *Queue().AddRule(Path(kFilms), "mp4-480p");
  }
  void TearDown() override {
    follower_.reset();
    Sysroot::TearDown();
  }

  void Start() {
    follower_ = std::make_unique<test::Child>([] { webapi::FollowRules(); });
  }

  // A machine on which these codecs are slow. It encodes fast.
  static void Measure(const Names& slow) {
    Json::Value costs(Json::objectValue);
    for (const std::string codec : {"mpeg4", "hevc", "vp9", "mpeg2video"}) {
      const bool isSlow = std::find(slow.begin(), slow.end(), codec) != slow.end();
      costs["decode " + codec + " 640x360"] = isSlow ? 10.0 : 1e-6;
    }
    for (const char* preset : {"ultrafast", "superfast", "veryfast"}) {
      costs[std::string("encode libx264 ") + preset + " 854x480"] = 1e-6;
    }
    webapi::MachineSpeed machine;
    machine.SetCosts(costs);
    ASSERT_TRUE(machine.Save());
  }

  // Makes a film appear whole, as a rename does.
  void Copy(const std::string& name, const std::string& folder = kFilms) const {
    MakeDirectory(folder);
    const std::string part = Path(folder + "/.part");
    fs::copy_file(test::Film(name), part);
    fs::rename(part, Path(folder + "/" + name));
  }

  static Names Queued() {
    Names names;
    for (const Item& item : Queue().List()) {
      names.push_back(fs::path(item.path).filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  void Await(const Names& names) const {
    test::AwaitChange(Path(convert::kQueueFolder), [&] { return Queued() == names; });
    EXPECT_EQ(Queued(), names);
  }

  int64_t Rule() const { return rule_; }

  static constexpr char kFilms[] = "/volume1/films";

 private:
  int64_t rule_ = 0;
  std::unique_ptr<test::Child> follower_;
};

TEST_F(RuleFollowing, QueuesTheFilmsBelowTheFolderThatAreTooSlowHere) {
  Measure({"mpeg4"});
  Copy("hevc10_aac.mov");
  Copy("h264_aac.mp4");
  Copy("mpeg4_mp3.avi", std::string(kFilms) + "/deeper");
  Copy("mpeg4_mp3.avi", "/volume1/elsewhere");
  Copy("mpeg4_mp3.avi", std::string(kFilms) + "/@conversions");
  Start();
  Await({"mpeg4_mp3.avi"});
  const Item item = Queue().List()[0];
  EXPECT_EQ(item.path, Path(std::string(kFilms) + "/deeper/mpeg4_mp3.avi"));
  EXPECT_EQ(item.root, Path(kFilms));
  EXPECT_EQ(item.profile, "mp4-480p");
}

TEST_F(RuleFollowing, QueuesFilmsThatCome) {
  Measure({"mpeg4", "vp9"});
  Copy("hevc10_aac.mov");
  Copy("h264_aac.mp4");
  Copy("mpeg4_mp3.avi");
  Start();
  Await({"mpeg4_mp3.avi"});
  Copy("vp9_opus.webm", std::string(kFilms) + "/new");
  Await({"mpeg4_mp3.avi", "vp9_opus.webm"});
}

TEST_F(RuleFollowing, WaitsUntilTheMachineIsKnownAndLooksAgainWhenItIsSlower) {
  Copy("mpeg4_mp3.avi");
  Copy("hevc10_aac.mov");
  Start();
  Measure({"mpeg4"});
  Await({"mpeg4_mp3.avi"});
  Measure({"mpeg4", "hevc"});
  Await({"hevc10_aac.mov", "mpeg4_mp3.avi"});
}

TEST_F(RuleFollowing, FollowsTheRulesAsTheyCome) {
  Measure({"mpeg4", "vp9"});
  Copy("mpeg4_mp3.avi");
  Copy("vp9_opus.webm", "/volume1/others");
  Start();
  Await({"mpeg4_mp3.avi"});
  ASSERT_TRUE(Queue().AddRule(Path("/volume1/others"), "mp4"));
  Await({"mpeg4_mp3.avi", "vp9_opus.webm"});
  EXPECT_TRUE(Queue().RemoveRule(Rule()));
  EXPECT_EQ(Queued(), Names{"vp9_opus.webm"});
}

}  // namespace
