#include "policy/platform_utils.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using libmrv::util::PlatformUtils;
using List = std::vector<std::string>;

class Platform : public test::Sysroot {
 protected:
  PlatformUtils Of(const std::string& platform) const {
    SetPlatform(platform);
    return PlatformUtils();
  }
  void SetCores(int cores) const {
    Write("/proc/cpuinfo",
          "processor\t: 0\nmodel name\t: CPU @ 1.6GHz\nphysical id\t: 0\n"
          "cpu cores\t: " +
              std::to_string(cores) + "\nBogoMIPS\t: 3200.12\n");
  }
};

TEST_F(Platform, PredicatesNameThePlatformsExactly) {
  const struct {
    const char* platform;
    bool evansport, braswell, monaco, apollolake, vaapi, gstreamer, hardware;
  } rows[] = {
      {"evansport", true, false, false, false, false, false, true},
      {"braswell", false, true, false, false, true, true, true},
      {"monaco", false, false, true, false, false, true, true},
      {"apollolake", false, false, false, true, true, true, true},
      {"avoton", false, false, false, false, false, false, false},
      {"Braswell", false, false, false, false, false, false, false},
      {"braswell2", false, false, false, false, false, false, false},
      {"", false, false, false, false, false, false, false},
  };
  for (const auto& row : rows) {
    const PlatformUtils utils = Of(row.platform);
    EXPECT_EQ(utils.IsEvansport(), row.evansport) << row.platform;
    EXPECT_EQ(utils.IsBraswell(), row.braswell) << row.platform;
    EXPECT_EQ(utils.IsMonaco(), row.monaco) << row.platform;
    EXPECT_EQ(utils.IsApolloLake(), row.apollolake) << row.platform;
    EXPECT_EQ(utils.IsSupportVaapi(), row.vaapi) << row.platform;
    EXPECT_EQ(utils.IsSupportGstreamer(), row.gstreamer) << row.platform;
    EXPECT_EQ(utils.IsSupportHWTranscode(), row.hardware) << row.platform;
  }
}

TEST_F(Platform, NameIsTheSecondFieldOfTheUniqueIdentifier) {
  const PlatformUtils utils;
  const struct {
    const char* unique;
    bool found;
    const char* platform;
  } rows[] = {
      {"vendor_braswell_model", true, "braswell"},
      {"vendor_braswell", true, "braswell"},
      {"a__b", true, ""},
      {"_b", true, "b"},
      {"a_", false, "before"},
      {"a", false, "before"},
      {"", false, "before"},
      {"a_b_c_d", true, "b"},
      {"__", true, ""},
      {"_", false, "before"},
  };
  for (const auto& row : rows) {
    std::string platform = "before";
    EXPECT_EQ(utils.ParsePlatform(row.unique, platform), row.found) << row.unique;
    EXPECT_EQ(platform, row.platform) << row.unique;
  }
}

TEST_F(Platform, IsUnknownWithoutAUsableConfiguration) {
  for (const char* content : {"", "unique=braswell\n", "unique=a__b\n", "other=a_braswell_b\n"}) {
    Write("/etc.defaults/orvoinfo.conf", content);
    const PlatformUtils utils;
    EXPECT_FALSE(utils.IsSupportHWTranscode()) << content;
    EXPECT_FALSE(utils.IsBraswell()) << content;
  }
  Write("/etc.defaults/orvoinfo.conf", "unique=a_braswell_" + std::string(300, 'x'));
  EXPECT_FALSE(PlatformUtils().IsBraswell()) << "too long to be read";
}

TEST_F(Platform, IsReadOncePerProcess) {
  On("braswell", [this] {
    PlatformUtils& first = PlatformUtils::GetInst();
    EXPECT_TRUE(first.IsBraswell());
    SetPlatform("monaco");
    EXPECT_EQ(&PlatformUtils::GetInst(), &first);
    EXPECT_TRUE(PlatformUtils::GetInst().IsBraswell());
  });
}

TEST_F(Platform, UsesItsHardwareUnlessSwitchedOff) {
  const char* const file = "/var/packages/Mirevo/etc/advanced.conf";
  const struct {
    const char* content;
    bool enabled;
  } rows[] = {
      {R"({"hardware_transcode": false})", false},
      {R"({"hardware_transcode": true})", true},
      {R"({"hardware_transcode": "no"})", true},
      {R"({"hardware_transcode": 0})", true},
      {R"({"hardware_transcode": null})", true},
      {R"({"other": false})", true},
      {"[]", true},
      {"[false]", true},
      {"false", true},
      {"{", true},
      {"", true},
  };
  for (const char* platform : {"braswell", "apollolake", "evansport"}) {
    const PlatformUtils utils = Of(platform);
    for (const auto& row : rows) {
      Write(file, row.content);
      EXPECT_EQ(utils.IsHWSettingEnabled(), row.enabled) << platform << row.content;
    }
  }
  Write(file, R"({"hardware_transcode": false})");
  EXPECT_TRUE(Of("monaco").IsHWSettingEnabled());
  Write(file, R"({"hardware_transcode": true})");
  EXPECT_FALSE(Of("avoton").IsHWSettingEnabled());
}

TEST_F(Platform, UsesItsHardwareWithoutASetting) {
  EXPECT_TRUE(Of("braswell").IsHWSettingEnabled());
}

TEST_F(Platform, UsesTheVaapiBuildOnlyOnBraswellAndOnlyWhenSwitchedOn) {
  const char* const file = "/var/packages/Mirevo/etc/vaapi_ffmpeg";
  EXPECT_FALSE(Of("braswell").IsVaapiFFmpegEnabled());
  for (const char* content : {R"({"enable": false})", R"({"enable": "true"})", R"({"enable": 1})",
                              "{}", "[true]", "true", "x"}) {
    Write(file, content);
    EXPECT_FALSE(Of("braswell").IsVaapiFFmpegEnabled()) << content;
  }
  Write(file, R"({"enable": true})");
  EXPECT_TRUE(Of("braswell").IsVaapiFFmpegEnabled());
  EXPECT_FALSE(Of("apollolake").IsVaapiFFmpegEnabled());
  EXPECT_FALSE(Of("monaco").IsVaapiFFmpegEnabled());
  Write("/var/packages/Mirevo/etc/advanced.conf", R"({"hardware_transcode": false})");
  EXPECT_FALSE(Of("braswell").IsVaapiFFmpegEnabled());
}

TEST_F(Platform, HostNameIsTheFirstLineUnchanged) {
  const PlatformUtils utils;
  EXPECT_EQ(utils.GetHostPlatformName(), "");
  Write("/proc/orvo_platform", " X64 \nsecond\n");
  EXPECT_EQ(utils.GetHostPlatformName(), " X64 ");
  Write("/proc/orvo_platform", "avoton");
  EXPECT_EQ(utils.GetHostPlatformName(), "avoton");
}

TEST_F(Platform, HostOfAContainerIsMappedAndRemembered) {
  const struct {
    const char* host;
    const char* name;
  } rows[] = {{"X64", "x86"},
              {"AVOTON", "avoton"},
              {"CEDARVIEW", "cedarview"},
              {"BROMOLOW", "bromolow"},
              {"avoton", "x86"},
              {"AVOTON ", "x86"},
              {"", "x86"}};
  for (const auto& row : rows) {
    PlatformUtils utils;
    Write("/proc/orvo_platform", std::string(row.host) + "\n");
    EXPECT_EQ(utils.GetDockerHostPlatformName(), row.name) << row.host;
    Write("/proc/orvo_platform", "BROMOLOW\n");
    EXPECT_EQ(utils.GetDockerHostPlatformName(), row.name) << "known already";
  }
}

TEST_F(Platform, CpuInformationIsTheTextBehindTheColon) {
  const PlatformUtils utils;
  Write("/proc/cpuinfo",
        "processor\t: 0\nmodel name\t: A: B\ncpu cores\t: 4\ncpu cores\t: 8\nflags\t\t:\n"
        "bogomips\t: 1\nBogoMIPS\t: 3200.12\n");
  EXPECT_EQ(utils.GetCPUInfo("cpu cores"), " 4\n");
  EXPECT_EQ(utils.GetCPUInfo("cores"), " 4\n") << "part of a name is enough";
  EXPECT_EQ(utils.GetCPUInfo("BogoMIPS"), " 3200.12\n");
  EXPECT_EQ(utils.GetCPUInfo("model name"), "") << "three fields";
  EXPECT_EQ(utils.GetCPUInfo("missing"), "");
  EXPECT_EQ(utils.GetCPUInfo("4"), "") << "the name counts, not the value";
  EXPECT_TRUE(test::TakeLog().empty());
}

TEST_F(Platform, CpuInformationIsReadInPiecesOf127Bytes) {
  const PlatformUtils utils;
  // The key stands in the second piece of a long line; the first piece has a colon of its own.
  const std::string first = "flags\t: " + std::string(119, 'x');
  ASSERT_EQ(first.size(), 127U);
  Write("/proc/cpuinfo", first + "cpu cores : 6\n");
  EXPECT_EQ(utils.GetCPUInfo("cpu cores"), " 6\n");
}

TEST_F(Platform, CpuInformationLogsWhyThereIsNone) {
  const PlatformUtils utils;
  EXPECT_EQ(utils.GetCPUInfo(""), "");
  EXPECT_EQ(test::TakeLogTexts(), List{"platform_utils:N Bad parameter"});
}

TEST_F(Platform, TranscodingNameSelectsTheProfiles) {
  const struct {
    const char* platform;
    const char* oneCore;
    const char* twoCores;
  } rows[] = {
      {"cedarview", "cedarview_1", "cedarview_2"},
      {"alpine", "cedarview_2", "cedarview_2"},
      {"alpine4k", "cedarview_2", "cedarview_2"},
      {"kvmx64", "cedarview_2", "cedarview_2"},
      {"bromolow", "bromolow_1", "bromolow_2"},
      {"broadwell", "bromolow_1", "bromolow_2"},
      {"evansport", "evansport_1", "evansport_2"},
      {"dockerx64", "x86_1", "x86_2"},
      {"avoton", "avoton_1", "avoton_2"},
      {"braswell", "braswell_1", "braswell_2"},
      {"monaco", "monaco_2", "monaco_2"},
      {"apollolake", "braswell_1", "braswell_2"},
      {"other", "x86_1", "x86_2"},
      {"", "x86_1", "x86_2"},
  };
  for (const auto& row : rows) {
    PlatformUtils utils = Of(row.platform);
    SetCores(1);
    EXPECT_EQ(utils.GetTransPlatformName(), row.oneCore) << row.platform;
    SetCores(2);
    EXPECT_EQ(utils.GetTransPlatformName(), row.twoCores) << row.platform;
  }
}

TEST_F(Platform, TranscodingNameOfAContainerIsItsHosts) {
  Write("/proc/orvo_platform", "CEDARVIEW\n");
  SetCores(2);
  EXPECT_EQ(Of("dockerx64").GetTransPlatformName(), "cedarview_2");
}

TEST_F(Platform, TranscodingNameOfEvansportFollowsTheSetting) {
  Write("/var/packages/Mirevo/etc/advanced.conf", R"({"hardware_transcode": false})");
  SetCores(2);
  EXPECT_EQ(Of("evansport").GetTransPlatformName(), "x86_1");
}

TEST_F(Platform, TranscodingNameWithoutACoreCountAssumesOneCore) {
  Write("/proc/cpuinfo", "processor\t: 0\n");
  EXPECT_EQ(Of("avoton").GetTransPlatformName(), "avoton_1");
}

}  // namespace
