// The plans of presentations from one opening of a film to the next.
#include "webapi/streams/kept_plans.h"

#include <gtest/gtest.h>

#include <string>

#include "contract/cmaf.h"
#include "support/sysroot.h"

namespace {

using LibOrvoQMX::StreamDirectory;
using webapi::KeepPlan;
using webapi::UseKeptPlan;

constexpr char kFilm[] = "/films/film.mkv";
constexpr char kKnown[] = "copied sdr";

class KeptPlans : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    Write(kFilm, "pictures");
    MakeDirectory(Folder("first"));
    MakeDirectory(Folder("second"));
    Write(Folder("first") + "/" + orvo::kCmafPicturesFile, kKnown);
    Write(Folder("first") + "/" + orvo::kCmafPlanFile, plan_);
  }

  static std::string Folder(const std::string& id) { return "/tmp/Mirevo/CMAF/" + id; }
  static StreamDirectory Directory(const std::string& id) { return {"CMAF", id}; }
  orvo::MediaFile OpenedFilm() const { return orvo::MediaFile::Open(Path(kFilm)); }
  std::string SecondPlan() const { return Read(Folder("second") + "/" + orvo::kCmafPlanFile); }

  std::string plan_ = orvo::CmafPlan{25, 1, 0, {0, 90000, 180000}}.Text();
};

TEST_F(KeptPlans, ServeTheNextOpening) {
  EXPECT_FALSE(UseKeptPlan(OpenedFilm(), false, Directory("second")));
  KeepPlan(OpenedFilm(), false, Directory("first"));
  EXPECT_TRUE(UseKeptPlan(OpenedFilm(), false, Directory("second")));
  EXPECT_EQ(SecondPlan(), plan_);
  EXPECT_EQ(Read(Folder("second") + "/" + orvo::kCmafPicturesFile), kKnown);
}

TEST_F(KeptPlans, AreOthersOnceTheFilmIsAnalyzed) {
  KeepPlan(OpenedFilm(), false, Directory("first"));
  EXPECT_FALSE(UseKeptPlan(OpenedFilm(), true, Directory("second")));
}

TEST_F(KeptPlans, BelongToOneStateOfTheFilm) {
  KeepPlan(OpenedFilm(), false, Directory("first"));
  Write(kFilm, "other pictures");
  EXPECT_FALSE(UseKeptPlan(OpenedFilm(), false, Directory("second")));
}

TEST_F(KeptPlans, AreNotUsedWhenDamaged) {
  for (const char* const damaged : {"", "25\n1\n", "none\n"}) {
    Write(Folder("first") + "/" + orvo::kCmafPlanFile, damaged);
    KeepPlan(OpenedFilm(), true, Directory("first"));
    EXPECT_FALSE(UseKeptPlan(OpenedFilm(), true, Directory("second"))) << damaged;
    EXPECT_FALSE(Exists(Folder("second") + "/" + orvo::kCmafPlanFile)) << damaged;
  }
}

}  // namespace
