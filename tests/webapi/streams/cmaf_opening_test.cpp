// What a CMAF stream keeps from its opening on.
#include "webapi/streams/cmaf_opening.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/sysroot.h"
#include "webapi/choice/machine_speed.h"

namespace {

class Film : public LibOrvoQMX::VideoMetaData {
 public:
  Film() {
    m_loaded = true;
    m_document["track_info"]["audio"] = Json::Value(Json::arrayValue);
    Json::Value& video = m_document["track_info"]["video"][0];
    video["codec"] = video["codec_raw"] = "h264";
    video["resolutionx"] = 1920U;
    video["resolutiony"] = 1080U;
    video["framerate"] = 25.0;
    m_document["path"] = "/films/none.mkv";
  }
};

class CmafLadder : public test::Sysroot {
 protected:
  // A machine that encodes pictures of 1280x720 at so many times the film's speed.
  static void Measure(double speed) {
    const auto cores = static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
    Json::Value costs(Json::objectValue);
    costs["decode h264 1920x1080"] = 1e-6;
    costs["encode libx264 superfast 1280x720"] = cores * 0.85 / 25 / speed;
    webapi::MachineSpeed machine;
    machine.SetCosts(costs);
    ASSERT_TRUE(machine.Save());
  }
};

TEST_F(CmafLadder, EndsWithTheLargestPictureThatTheMachineEncodesInTime) {
  Measure(1.2);
  EXPECT_EQ(webapi::SustainedHeight(Film()), 720U);
  Measure(0.6);
  EXPECT_EQ(webapi::SustainedHeight(Film()), 480U);
}

TEST_F(CmafLadder, HasItsSmallestPictureOnAMachineThatIsTooSlowForAny) {
  Measure(0.001);
  EXPECT_EQ(webapi::SustainedHeight(Film()), 360U);
}

TEST_F(CmafLadder, HasNoBoundWhereTheSpeedIsUnknown) {
  EXPECT_EQ(webapi::SustainedHeight(Film()), 0U);
}

}  // namespace
