// The platforms, each with everything that follows from its name: the profiles, the program that
// runs them, the entry in the register, the limits, and the films that its hardware refuses.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "policy/platform_utils.h"
#include "policy/trans_loading.h"
#include "support/streams.h"

namespace {

using LibMirevo::TransLoading;
using libmrv::util::PlatformUtils;
using test::FilmRecord;
using test::PlainStream;

constexpr char kSoftware[] = "-vcodec libx264 -s hd720 -vb 2000k -acodec aac";
constexpr char kVaapi[] = "-vcodec h264_vaapi -s hd720 -vb 2000k -acodec aac";
constexpr char kSmd[] = "-vcodec h264_smd -s hd720 -vb 2000k -acodec aac";
constexpr char kWrapper[] = "--vcodec h264 --vb 2000k --acodec aac";
constexpr char kRemux[] = "-vcodec copy -bsf:v h264_mp4toannexb -acodec aac";

constexpr char kFfmpegProgram[] = "/var/packages/Mirevo/target/bin/ffmpeg";
constexpr char kVaapiProgram[] = "/var/packages/Mirevo/target/bin/ffmpeg_vaapi";
constexpr char kWrapperProgram[] = "/var/packages/Mirevo/target/bin/orvo-gst";

constexpr char kNoPath[] = "TransVideoNotSupported";
constexpr char kCodec[] = "TransVideoNotHardwareSupported";
constexpr char kResolution[] = "TransVideoOutOfResolutionCapability";
constexpr char kDepth[] = "TransVideoOutOfProfileCapability";
constexpr char kRate[] = "TransVideoOutOfFramerateCapability";

// What is the same on all platforms with the same engines.
struct Engines {
  bool hardware;      // is there an encoder beside the processor?
  bool wrapper;       // does GStreamer drive it?
  bool vaapi;         // does a profile for VA-API count as hardware?
  bool smd;           // with FFmpeg's encoder of its own?
  unsigned software;  // transcoders that may run at the same time
  unsigned onHardware;
};
constexpr Engines kPlain{false, false, false, false, 1, 0};
constexpr Engines kEvansport{true, false, false, true, 1, 1};
constexpr Engines kVaapiEngines{true, true, true, false, 1, 100};
constexpr Engines kMonaco{true, true, true, false, 0, 1};

struct PlatformRow {
  const char* name;
  Engines engines;
  const char* oneCore;  // the profiles' name
  const char* twoCores;
  const char* oneCoreOff;  // without hardware by the owner's wish
  const char* twoCoresOff;
};
constexpr PlatformRow kPlatforms[] = {
    {"braswell", kVaapiEngines, "braswell_1", "braswell_2", "braswell_1", "braswell_2"},
    {"apollolake", kVaapiEngines, "braswell_1", "braswell_2", "braswell_1", "braswell_2"},
    {"monaco", kMonaco, "monaco_2", "monaco_2", "monaco_2", "monaco_2"},
    {"evansport", kEvansport, "evansport_1", "evansport_2", "x86_1", "x86_1"},
    {"avoton", kPlain, "avoton_1", "avoton_2", "avoton_1", "avoton_2"},
    {"bromolow", kPlain, "bromolow_1", "bromolow_2", "bromolow_1", "bromolow_2"},
    {"broadwell", kPlain, "bromolow_1", "bromolow_2", "bromolow_1", "bromolow_2"},
    {"cedarview", kPlain, "cedarview_1", "cedarview_2", "cedarview_1", "cedarview_2"},
    {"alpine", kPlain, "cedarview_2", "cedarview_2", "cedarview_2", "cedarview_2"},
    {"alpine4k", kPlain, "cedarview_2", "cedarview_2", "cedarview_2", "cedarview_2"},
    {"kvmx64", kPlain, "cedarview_2", "cedarview_2", "cedarview_2", "cedarview_2"},
    {"dockerx64", kPlain, "x86_1", "x86_2", "x86_1", "x86_2"},
    {"x86", kPlain, "x86_1", "x86_2", "x86_1", "x86_2"},
    {"newer", kPlain, "x86_1", "x86_2", "x86_1", "x86_2"},
};

class Platforms : public test::StreamTest {
 protected:
  void SetCores(int cores) const {
    Write("/proc/cpuinfo", "cpu cores\t: " + std::to_string(cores) + "\nBogoMIPS\t: 3200.12\n");
  }
  void SetHardware(bool isOn) const {
    Write("/var/packages/Mirevo/etc/advanced.conf",
          std::string(R"({"hardware_transcode": )") + (isOn ? "true}" : "false}"));
  }
  void SetVaapi(bool isOn) const {
    Write("/var/packages/Mirevo/etc/vaapi_ffmpeg",
          std::string(R"({"enable": )") + (isOn ? "true}" : "false}"));
  }
  // In a process of this platform: how a stream with this profile runs.
  void ExpectRun(const char* profile, const char* program, bool onHardware) const {
    MakeStream("HLS", FilmRecord(profile));
    const PlainStream stream("HLS");
    EXPECT_EQ(stream.GetTranscoder(), Path(program)) << profile;
    EXPECT_EQ(stream.IsHardware(), onHardware) << profile;
  }
  // May one more of this kind run beside so many of each kind?
  bool IsAdmitted(bool hardware, unsigned software, unsigned onHardware) const {
    Json::Value entries(Json::arrayValue);
    for (unsigned i = 0; i < software + onHardware; ++i) {
      entries.append(test::RegistryEntry(getpid(), i >= software));
    }
    SetRegistry(entries);
    return TransLoading().TransEnable(hardware);
  }
};

TEST_F(Platforms, HaveTheirProfilesByCoresAndWish) {
  for (const PlatformRow& row : kPlatforms) {
    const char* const names[2][2] = {{row.oneCoreOff, row.twoCoresOff},
                                     {row.oneCore, row.twoCores}};
    for (const bool isOn : {false, true}) {
      for (const int cores : {1, 2}) {
        SetCores(cores);
        SetHardware(isOn);
        On(row.name, [&] {
          EXPECT_EQ(PlatformUtils::GetInst().GetTransPlatformName(), names[isOn][cores - 1])
              << row.name << " with " << cores << " cores";
        });
      }
    }
  }
}

TEST_F(Platforms, OfAContainerHaveTheProfilesOfItsHost) {
  const struct {
    const char* host;
    const char* profiles;
  } rows[] = {{"X64", "x86_2"},           {"AVOTON", "avoton_2"}, {"CEDARVIEW", "cedarview_2"},
              {"BROMOLOW", "bromolow_2"}, {"BRASWELL", "x86_2"},  {"", "x86_2"}};
  SetCores(2);
  for (const auto& row : rows) {
    Write("/proc/orvo_platform", std::string(row.host) + "\n");
    On("dockerx64", [&] {
      EXPECT_EQ(PlatformUtils::GetInst().GetTransPlatformName(), row.profiles) << row.host;
    });
  }
}

TEST_F(Platforms, RunEachProfileWithItsProgramAndItsEntry) {
  for (const PlatformRow& row : kPlatforms) {
    On(row.name, [&] {
      const Engines& has = row.engines;
      ExpectRun(kSoftware, kFfmpegProgram, false);
      ExpectRun(kRemux, kFfmpegProgram, false);
      ExpectRun(kVaapi, kVaapiProgram, has.vaapi);
      ExpectRun(kSmd, kFfmpegProgram, has.smd);
      ExpectRun(kWrapper, has.wrapper ? kWrapperProgram : kFfmpegProgram, has.wrapper);
    });
  }
}

TEST_F(Platforms, LimitEachKindOfTranscoder) {
  for (const PlatformRow& row : kPlatforms) {
    On(row.name, [&] {
      const Engines& has = row.engines;
      EXPECT_TRUE(IsAdmitted(false, 0, 0)) << "the first one, even where the limit is 0";
      EXPECT_EQ(IsAdmitted(true, 0, 0), has.hardware);
      EXPECT_FALSE(IsAdmitted(false, 1, 0)) << "a second one in software";
      EXPECT_EQ(IsAdmitted(false, 0, 1), has.software > 0);
      EXPECT_EQ(IsAdmitted(true, 1, 0), has.hardware);
      if (has.hardware) {
        EXPECT_EQ(IsAdmitted(true, 0, has.onHardware - 1), true);
        EXPECT_FALSE(IsAdmitted(true, 0, has.onHardware));
      }
    });
  }
}

struct Source {
  const char* container;
  const char* codec;
  const char* profile;
  const char* tag;
  unsigned width;
  unsigned height;
  double rate;
  const char* onEvansport;  // the error word of the hardware; "" for none
  const char* onMonaco;
  bool needsFfmpeg;  // on the platforms with VA-API
};
constexpr Source kSources[] = {
    {"matroska,webm", "h264", "High", "avc1", 1920, 1080, 59.94, "", "", false},
    {"matroska,webm", "h264", "High", "avc1", 3840, 2160, 23.976, "", "", false},
    {"matroska,webm", "h264", "High", "avc1", 3840, 2160, 25, "", kRate, false},
    {"matroska,webm", "h264", "High 10", "avc1", 1280, 720, 24, "", kDepth, true},
    {"matroska,webm", "h264", "High 10", "avc1", 4096, 2304, 24, "", kDepth, true},
    {"mov,mp4", "hevc", "Main", "hvc1", 640, 480, 25, "", "", false},
    {"mov,mp4", "hevc", "Main", "hvc1", 3840, 2160, 60, kNoPath, "", false},
    {"mov,mp4", "hevc", "Main 10", "hvc1", 3840, 2160, 24, kNoPath, kDepth, true},
    {"mov,mp4", "hevc", "Main", "hvc1", 7680, 4320, 24, kNoPath, kResolution, false},
    {"matroska,webm", "vp9", "", "", 640, 360, 25, "", kCodec, true},
    {"matroska,webm", "vp9", "", "", 3840, 2160, 25, kNoPath, kResolution, true},
    {"mpegts", "mpeg2", "Main", "", 1920, 1080, 25, "", "", false},
    {"avi", "mpeg4", "Advanced Simple Profile", "XVID", 720, 576, 25, "", "", false},
    {"avi", "mpeg4", "Advanced Simple Profile", "DIVX", 720, 576, 25, "", kCodec, false},
    {"asf", "vc1", "Advanced", "WVC1", 1920, 1080, 24, "", "", false},
    {"asf", "vc1", "Advanced", "WVC1", 3840, 2160, 24, "", kResolution, false},
    {"asf", "wmv3", "Main", "WMV3", 1280, 720, 24, "", "", false},
    {"asf", "wmv2", "", "WMV2", 640, 480, 25, "", kCodec, false},
    {"flv", "flv1", "", "", 1280, 720, 25, kNoPath, kCodec, false},
    {"swf", "flv1", "", "", 320, 240, 25, "", kCodec, true},
    {"rm", "rv40", "", "RV40", 1280, 720, 25, "", kCodec, true},
    {"rm", "rv40", "", "RV40", 1280, 800, 25, kNoPath, kCodec, true},
    {"avi", "dvvideo", "", "dvsd", 720, 576, 25, kNoPath, kCodec, true},
    {"matroska,webm", "h264", "High", "avc1", 0, 0, 25, kNoPath, kNoPath, false},
};

Json::Value RecordOf(const Source& source, const char* profileValue) {
  Json::Value record = FilmRecord(profileValue);
  record["container_type"] = source.container;
  Json::Value& video = record["track_info"]["video"][0];
  video["codec"] = source.codec;
  video["profile"] = source.profile;
  video["codec_tag"] = source.tag;
  video["resolutionx"] = source.width;
  video["resolutiony"] = source.height;
  video["framerate"] = source.rate;
  return record;
}

class Sources : public Platforms {
 protected:
  // In a process of a platform: the error word of a stream of the film; "" if it may begin.
  std::string RefusalOf(const Source& source, const char* profile) const {
    MakeStream("HLS", RecordOf(source, profile));
    PlainStream stream("HLS");
    const bool isAdmitted = stream.InitStreamCommon("", false);
    EXPECT_EQ(isAdmitted, stream.GetErrorString().empty());
    return stream.GetErrorString();
  }
  static std::string NameOf(const Source& source) {
    return std::string(source.codec) + " " + source.profile + " " + std::to_string(source.height);
  }
};

TEST_F(Sources, AreRefusedByTheHardwareOfEachPlatform) {
  for (const Source& source : kSources) {
    On("evansport",
       [&] { EXPECT_EQ(RefusalOf(source, kSmd), source.onEvansport) << NameOf(source); });
    On("monaco",
       [&] { EXPECT_EQ(RefusalOf(source, kWrapper), source.onMonaco) << NameOf(source); });
    const char* const withoutHeight = source.height == 0 ? kNoPath : "";
    for (const char* platform : {"braswell", "apollolake"}) {
      for (const char* profile : {kVaapi, kWrapper}) {
        On(platform,
           [&] { EXPECT_EQ(RefusalOf(source, profile), withoutHeight) << NameOf(source); });
      }
    }
  }
}

TEST_F(Sources, AreRefusedByNoSoftware) {
  for (const PlatformRow& row : kPlatforms) {
    On(row.name, [&] {
      for (const Source& source : kSources) {
        EXPECT_EQ(RefusalOf(source, kSoftware), "") << row.name << " " << NameOf(source);
        EXPECT_EQ(RefusalOf(source, kRemux), "") << row.name << " " << NameOf(source);
      }
    });
  }
}

TEST_F(Sources, NeedFfmpegByPlatformAndSettings) {
  for (const PlatformRow& row : kPlatforms) {
    const bool isVaapi = row.engines.onHardware == 100;
    const bool isBraswell = std::string(row.name) == "braswell";
    const bool isMonaco = std::string(row.name) == "monaco";
    for (const int settings : {0, 1, 2, 3}) {
      const bool hardware = (settings & 1) != 0;
      const bool vaapi = (settings & 2) != 0;
      SetHardware(hardware);
      SetVaapi(vaapi);
      On(row.name, [&] {
        for (const Source& source : kSources) {
          const bool expected =
              isVaapi ? !hardware || (vaapi && isBraswell) || source.needsFfmpeg : !isMonaco;
          EXPECT_EQ(
              LibMirevo::ForceFFmpegTranscoding(source.container, source.codec, source.profile),
              expected)
              << row.name << " " << NameOf(source) << " " << settings;
        }
      });
    }
  }
}

}  // namespace
