// What the machine's measured speed means for a film and its choice of a quality.
#include "webapi/choice/machine_speed.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>

#include "support/sysroot.h"
#include "webapi/choice/profiles.h"
#include "webapi/choice/speed_measurement.h"

namespace {

using webapi::Conversion;
using webapi::JudgedProfile;
using webapi::MachineSpeed;

class Speed : public test::Sysroot {
 protected:
  // A machine on which a film's picture of 1280x720 costs so many processor seconds.
  static MachineSpeed Machine(double decoding, double encoding) {
    Json::Value costs(Json::objectValue);
    costs["decode h264 1280x720"] = decoding;
    costs["encode libx264 superfast 1280x720"] = encoding;
    MachineSpeed machine;
    machine.SetCosts(costs);
    return machine;
  }
  static Conversion Film() {
    return {"h264", 1280, 720, 25, false, "libx264 superfast", 1280, 720, 0};
  }
  static double Cores() { return static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN)); }
};

TEST_F(Speed, FollowsFromTheCostsOfAPictureAndTheCores) {
  const double speed = Machine(0.01, 0.03).Of(Film());
  EXPECT_GT(speed, 0.5 * Cores());
  EXPECT_LE(speed, Cores());
  Conversion larger = Film();
  larger.outWidth *= 2;
  larger.outHeight *= 2;
  EXPECT_NEAR(Machine(0.01, 0.03).Of(larger) / speed, 0.04 / 0.13, 1e-6);
}

TEST_F(Speed, OfAnEncoderWithOneThreadIsThatOfOneCore) {
  Conversion film = Film();
  film.threads = 1;
  EXPECT_LE(Machine(0.0001, 0.04).Of(film), 1.0);
}

TEST_F(Speed, IsUnknownForWorkThatWasNotMeasured) {
  Conversion film = Film();
  film.codec = "hevc";
  EXPECT_EQ(Machine(0.01, 0.03).Of(film), 0);
  EXPECT_EQ(MachineSpeed().Of(Film()), 0);
}

TEST_F(Speed, ComesNearerToWhatStreamsReallyCost) {
  MachineSpeed machine = Machine(0.01, 0.03);
  const double promised = machine.Of(Film());
  for (int stream = 0; stream < 8; ++stream) {
    machine.Learn(Film(), 2 * 0.04 * 25);
  }
  EXPECT_NEAR(machine.Of(Film()), promised / 2, promised * 0.1);
  EXPECT_FALSE(machine.Learn(Film(), 2 * 0.04 * 25)) << "nothing new";
  EXPECT_FALSE(machine.Learn(Film(), 0));
}

TEST_F(Speed, IsKeptAndReadAgainOnTheSameMachine) {
  EXPECT_FALSE(MachineSpeed::Load().IsKnown());
  MachineSpeed machine = Machine(0.01, 0.03);
  machine.Learn(Film(), 2);
  ASSERT_TRUE(machine.Save());
  EXPECT_EQ(MachineSpeed::Load().Of(Film()), machine.Of(Film()));
}

TEST_F(Speed, OfAnotherMachineOrADamagedFileIsUnknown) {
  ASSERT_TRUE(Machine(0.01, 0.03).Save());
  const std::string name = "/var/packages/Mirevo/cache/machine_speed.json";
  std::string content = test::ReadWhole(Path(name));
  const auto cores = content.find(" cores");
  ASSERT_NE(cores, std::string::npos);
  Write(name, content.insert(cores, "0"));
  EXPECT_FALSE(MachineSpeed::Load().IsKnown());
  for (const char* damaged : {"", "[]", "{\"version\":1,\"costs\":[]}", "{\"machine\":{}}"}) {
    Write(name, damaged);
    EXPECT_FALSE(MachineSpeed::Load().IsKnown()) << damaged;
  }
}

class Measurement : public Speed {};

TEST_F(Measurement, KnowsTheCommonCodecsAndTheEncodersOfTheProfiles) {
  MakeDirectory("/var/packages/Mirevo");
  ASSERT_TRUE(webapi::MeasureMachine());
  const MachineSpeed machine = MachineSpeed::Load();
  for (const char* work :
       {"decode h264 640x360", "decode h264 1920x1080", "decode vp9 640x360",
        "encode libx264 superfast 1280x720", "encode libx264 veryfast 854x480", "tone 1280x720"}) {
    EXPECT_GT(machine.Costs()[work].asDouble(), 0) << work;
  }
  EXPECT_GT(machine.Of(Film()), 0);
  EXPECT_FALSE(Exists("/var/packages/Mirevo/cache/measurement"));
}

// A film of 1920x1080 and the profiles of one format for it.
class Choice : public Speed {
 protected:
  class Film : public LibOrvoQMX::VideoMetaData {
   public:
    Film() {
      m_loaded = true;
      Json::Value& tracks = m_document["track_info"];
      tracks["audio"][0]["codec_raw"] = "aac";
      Json::Value& video = tracks["video"][0];
      video["codec"] = video["codec_raw"] = "hevc";
      video["resolutionx"] = 1920U;
      video["resolutiony"] = 1080U;
    }
  };

  static std::vector<JudgedProfile> Profiles(double fast, double middle, double small) {
    const auto profile = [](const char* key, const char* size, double speed) {
      return JudgedProfile{{key, std::string("-vcodec libx264 -s ") + size + " -acodec aac"},
                           {"transcode", "", "It is re-encoded."},
                           speed};
    };
    return {profile("hls_720p", "hd720", fast), profile("hls_480p", "hd480", middle),
            profile("hls_240p", "320x240", small)};
  }

  static std::string KeyOf(std::vector<JudgedProfile> profiles) {
    const JudgedProfile* const chosen = webapi::ChooseProfile("hls", profiles, Film());
    return chosen == nullptr ? "" : chosen->profile.key + ": " + chosen->verdict.why;
  }
};

TEST_F(Choice, IsTheLargestPictureOnAMachineThatIsFastOrUnknown) {
  EXPECT_EQ(KeyOf(Profiles(1.5, 3, 6)), "hls_720p: It is re-encoded.");
  EXPECT_EQ(KeyOf(Profiles(0, 0, 0)), "hls_720p: It is re-encoded.");
}

TEST_F(Choice, IsTheNextSmallerPictureThatComesInTimeAndSaysWhy) {
  EXPECT_EQ(KeyOf(Profiles(0.7, 1.2, 6)),
            "hls_480p: It is re-encoded. This server makes 720p at 0.7 of the film's speed; 480p "
            "is chosen.");
  EXPECT_EQ(KeyOf(Profiles(0.4, 0.8, 2)).rfind("hls_240p: ", 0), 0U);
}

TEST_F(Choice, IsTheFastestOneWhereNothingComesInTime) {
  EXPECT_EQ(KeyOf(Profiles(0.2, 0.4, 0.8)),
            "hls_240p: It is re-encoded. This server makes 720p at 0.2 of the film's speed; 240p "
            "is chosen.");
}

}  // namespace
