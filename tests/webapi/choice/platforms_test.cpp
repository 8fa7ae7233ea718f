// The profiles that each platform offers for a film and chooses by itself, by what its engines have
// proved and by the owner's settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

#include "support/sysroot.h"
#include "transcoder/engines.h"
#include "webapi/choice/engine_rows.h"
#include "webapi/choice/profiles.h"

namespace {

using webapi::JudgedProfile;

class Film : public LibOrvoQMX::VideoMetaData {
 public:
  Film(const char* container, const char* codec, const char* profile) {
    m_loaded = true;
    m_document["container_type"] = container;
    m_document["duration"] = 60U;
    Json::Value& tracks = m_document["track_info"];
    tracks["audio"][0]["codec"] = tracks["audio"][0]["codec_raw"] = "aac";
    Json::Value& video = tracks["video"][0];
    video["codec"] = video["codec_raw"] = codec;
    video["profile"] = profile;
    video["pix_fmt"] = "yuv420p10le";  // so that it cannot be copied
    video["resolutionx"] = 1280U;
    video["resolutiony"] = 720U;
  }
};

// What a platform uses for pictures.
enum class Engine { kSoftware, kVaapi, kWrapper, kSmd };

Engine EngineOf(const std::string& value) {
  const auto contains = [&](const char* piece) { return value.find(piece) != std::string::npos; };
  return contains("--acodec")     ? Engine::kWrapper
         : contains("h264_vaapi") ? Engine::kVaapi
         : contains("h264_smd")   ? Engine::kSmd
                                  : Engine::kSoftware;
}

enum class Proofs { kNone, kAll };

class PlatformChoice : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    MakeDirectory("/var/packages/Mirevo");
    std::error_code failure;
    std::filesystem::create_directory_symlink(ORVO_TEST_TARGET, Path("/var/packages/Mirevo/target"),
                                              failure);
    Write("/proc/cpuinfo", "cpu cores\t: 4\nBogoMIPS\t: 3200.12\n");
  }
  void Set(bool hardware, bool vaapi, Proofs proofs) const {
    const auto text = [](bool value) { return std::string(value ? "true}" : "false}"); };
    Write("/var/packages/Mirevo/etc/advanced.conf", R"({"hardware_transcode": )" + text(hardware));
    Write("/var/packages/Mirevo/etc/vaapi_ffmpeg", R"({"enable": )" + text(vaapi));
    orvo::transcoder::EngineRecord record;
    for (const char* encoder : {"h264_vaapi", "h264_smd", orvo::transcoder::kWrapper}) {
      const int lines = proofs == Proofs::kAll ? 1080 : 0;
      record.Set({.encoder = encoder, .node = "/dev/x", .lines = lines});
    }
    ASSERT_TRUE(record.Save());
  }
};

struct Row {
  const char* platform;
  bool hardware;
  bool vaapi;
  Proofs proofs;
  Engine usual;  // for H.264
  Engine vp9;    // for a codec that some engines cannot decode
};
constexpr Row kRows[] = {
    {"braswell", true, true, Proofs::kAll, Engine::kVaapi, Engine::kVaapi},
    {"braswell", true, false, Proofs::kAll, Engine::kWrapper, Engine::kSoftware},
    {"braswell", false, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"braswell", false, false, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"braswell", true, true, Proofs::kNone, Engine::kSoftware, Engine::kSoftware},
    {"braswell", true, false, Proofs::kNone, Engine::kSoftware, Engine::kSoftware},
    {"apollolake", true, true, Proofs::kAll, Engine::kWrapper, Engine::kSoftware},
    {"apollolake", true, false, Proofs::kAll, Engine::kWrapper, Engine::kSoftware},
    {"apollolake", false, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"apollolake", true, false, Proofs::kNone, Engine::kSoftware, Engine::kSoftware},
    {"monaco", true, false, Proofs::kAll, Engine::kWrapper, Engine::kSoftware},
    {"monaco", false, false, Proofs::kAll, Engine::kWrapper, Engine::kSoftware},
    {"monaco", true, false, Proofs::kNone, Engine::kSoftware, Engine::kSoftware},
    {"avoton", true, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"bromolow", true, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"cedarview", true, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"alpine", true, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"kvmx64", true, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"x86", true, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
    {"evansport", false, true, Proofs::kAll, Engine::kSoftware, Engine::kSoftware},
};

std::string NameOf(const Row& row, const std::string& format) {
  return std::string(row.platform) + (row.hardware ? " hardware" : "") +
         (row.vaapi ? " vaapi" : "") + (row.proofs == Proofs::kAll ? " proved " : " ") + format;
}

TEST_F(PlatformChoice, TakesTheEngineThatIsProvedWantedAndAbleToDecode) {
  const Film h264("matroska,webm", "h264", "High");
  const Film vp9("matroska,webm", "vp9", "");
  for (const Row& row : kRows) {
    Set(row.hardware, row.vaapi, row.proofs);
    On(row.platform, [&] {
      for (const char* format : {"hls", "http"}) {
        auto usual = webapi::JudgeProfiles(format, h264);
        const JudgedProfile* chosen = webapi::ChooseProfile(format, usual, h264);
        ASSERT_NE(chosen, nullptr) << NameOf(row, format);
        EXPECT_EQ(EngineOf(chosen->profile.value), row.usual) << NameOf(row, format);
        auto others = webapi::JudgeProfiles(format, vp9);
        chosen = webapi::ChooseProfile(format, others, vp9);
        ASSERT_NE(chosen, nullptr) << NameOf(row, format);
        EXPECT_EQ(EngineOf(chosen->profile.value), row.vp9) << NameOf(row, format);
      }
    });
  }
}

TEST_F(PlatformChoice, LeavesFilmsToFfmpegThatGstreamerDoesNotReadWell) {
  struct Reading {
    const char* container;
    const char* codec;
    Engine engine;
  };
  constexpr Reading kFilms[] = {
      {"flv", "flv1", Engine::kSoftware},    {"flv", "h264", Engine::kSoftware},
      {"avi", "mpeg4", Engine::kSoftware},   {"avi", "h264", Engine::kSoftware},
      {"nut", "h264", Engine::kSoftware},    {"wtv", "mpeg2", Engine::kSoftware},
      {"avi", "vc1", Engine::kWrapper},      {"matroska,webm", "mpeg4", Engine::kWrapper},
      {"mpegts", "mpeg2", Engine::kWrapper},
  };
  Set(true, false, Proofs::kAll);
  for (const char* platform : {"apollolake", "braswell", "monaco"}) {
    On(platform, [&] {
      for (const Reading& row : kFilms) {
        const Film film(row.container, row.codec, "");
        auto profiles = webapi::JudgeProfiles("hls", film);
        const JudgedProfile* const chosen = webapi::ChooseProfile("hls", profiles, film);
        const std::string name = std::string(platform) + " " + row.container + " " + row.codec;
        ASSERT_NE(chosen, nullptr) << name;
        EXPECT_EQ(EngineOf(chosen->profile.value), row.engine) << name;
      }
    });
  }
}

TEST_F(PlatformChoice, OffersARowOfTheWrapperOnlyUpToTheProvedSize) {
  Set(true, false, Proofs::kAll);
  auto record = orvo::transcoder::EngineRecord::Load();
  record.Set({.encoder = orvo::transcoder::kWrapper, .node = "/dev/x", .lines = 480});
  ASSERT_TRUE(record.Save());
  On("apollolake", [] {
    int wrapped = 0;
    for (const webapi::Profile& profile : webapi::ProfilesOf("hls")) {
      if (EngineOf(profile.value) == Engine::kWrapper) {
        ++wrapped;
        EXPECT_EQ(profile.key.find("720p"), std::string::npos);
        EXPECT_EQ(profile.key.find("1080p"), std::string::npos);
      }
    }
    EXPECT_EQ(wrapped, 3);
  });
}

TEST_F(PlatformChoice, OffersVaapiOnlyWhereItsProgramIsUsed) {
  Set(true, true, Proofs::kAll);
  for (const std::string platform : {"braswell", "apollolake"}) {
    On(platform, [&] {
      const auto profiles = webapi::ProfilesOf("hls");
      const bool isOffered = std::any_of(
          profiles.begin(), profiles.end(),
          [](const webapi::Profile& profile) { return EngineOf(profile.value) == Engine::kVaapi; });
      EXPECT_EQ(isOffered, platform == "braswell");
    });
  }
}

TEST_F(PlatformChoice, ServesTheProfilesOfVaapiByAnotherEngineOfFfmpegUpToItsProof) {
  for (const char* encoder : {"h264_nvenc", "h264_qsv", "h264_v4l2m2m"}) {
    Set(true, true, Proofs::kNone);
    auto record = orvo::transcoder::EngineRecord::Load();
    record.Set({.encoder = encoder, .node = "/dev/x", .lines = 720});
    ASSERT_TRUE(record.Save());
    On("braswell", [&] {
      int lines = 0;
      for (const webapi::Profile& profile : webapi::ProfilesOf("hls")) {
        if (EngineOf(profile.value) == Engine::kVaapi) {
          lines = std::max(lines, static_cast<int>(webapi::LinesOf(profile.value)));
          EXPECT_TRUE(webapi::RunsOnHardware(profile.value));
        }
      }
      EXPECT_EQ(lines, 720) << encoder;
    });
  }
}

TEST_F(PlatformChoice, TellsThePlayerWhatTheWrapperWrites) {
  const std::string start = "--vcodec h264 --size 1280x720 --acodec aac --mux ";
  EXPECT_EQ(webapi::ContentTypeOf({"http_mp4_720p_gst", start + "mp4"}), "video/mp4");
  EXPECT_EQ(webapi::ContentTypeOf({"http_ts_720p_gst", start + "mpegts"}), "video/mp2t");
}

}  // namespace
