#include <gtest/gtest.h>

#include "stream/smooth_stream.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::SmoothStream;
using test::FilmRecord;
using test::kId;
using List = std::vector<std::string>;

constexpr char kHardwareKey[] = "smoothstreaming_hd720_h264_smd_vb1500_aac_ab128";
constexpr char kSoftwareKey[] = "smoothstreaming_hd720_x264_vb1500_vf15_aac_ab128";
constexpr char kSoftwareProfile[] = "-vcodec libx264 -s 720";
constexpr char kHardwareProfile[] = "-vcodec h264_smd -s 720";

class SmoothManifest : public test::StreamTest {
 protected:
  static std::string File(const std::string& name) { return Directory("SS") + "/" + name; }

  // A stream of that profile whose picture has this size.
  SmoothStream Open(const std::string& key, int width, int height,
                    const std::string& profile = kSoftwareProfile, int duration = 100) const {
    Json::Value record = FilmRecord(profile, key);
    record["track_info"]["video"][0]["resolutionx"] = width;
    record["track_info"]["video"][0]["resolutiony"] = height;
    record["duration"] = duration;
    MakeStream("SS", record);
    return SmoothStream(kId);
  }

  static Json::Value Request() {
    return test::ParseText(
        R"({"url": "w.cgi", "format": "ss", "api": "ORVO.Mirevo2.Stream", "version": 1})");
  }

  static std::string Size(const SmoothStream& stream, const std::string& requested) {
    std::string width;
    std::string height;
    std::string size;
    const bool isFound = stream.GetTransResolution(requested, width, height, size);
    EXPECT_EQ(size, isFound ? width + "x" + height : "");
    return size;
  }

  // Size, rates, sampling rate and parameter sets; empty where they are not known.
  static List Parameters(const SmoothStream& stream, bool hardware) {
    List list(6);
    const bool isKnown =
        hardware
            ? stream.ParseHWTransParameter(list[0], list[1], list[2], list[3], list[4], list[5])
            : stream.ParseTransParameter(list[0], list[1], list[2], list[3], list[4], list[5]);
    return isKnown ? list : List();
  }
};

TEST_F(SmoothManifest, TakesTheShapeNearestToTheFilms) {
  On("avoton", [this] {
    const struct {
      int width;  // of a picture 1000 high
      const char* size;
    } rows[] = {{1, "640x480"},     {1330, "640x480"},  {1331, "640x480"}, {1550, "640x480"},
                {1560, "850x480"},  {1770, "850x480"},  {1771, "850x480"}, {2060, "850x480"},
                {2070, "1120x480"}, {2350, "1120x480"}, {9999, "1120x480"}};
    for (const auto& row : rows) {
      EXPECT_EQ(Size(Open("key", row.width, 1000), "480"), row.size) << row.width;
    }
    EXPECT_EQ(Size(Open("key", 0, 0), "480"), "850x480") << "unknown";
  });
}

TEST_F(SmoothManifest, HasASizeForEveryHeightAndShape) {
  On("avoton", [this] {
    const struct {
      const char* requested;
      const char* sizes[3];
    } rows[] = {{"240", {"320x240", "430x240", "560x240"}},
                {"320", {"430x320", "560x320", "750x320"}},
                {"480", {"640x480", "850x480", "1120x480"}},
                {"720", {"960x720", "1270x720", "1280x540"}},
                {"1080", {"1440x1080", "1920x1080", "1920x820"}}};
    const int widths[] = {1330, 1770, 2350};
    for (int shape = 0; shape < 3; ++shape) {
      const SmoothStream stream = Open("key", widths[shape], 1000);
      for (const auto& row : rows) {
        EXPECT_EQ(Size(stream, row.requested), row.sizes[shape]);
      }
      EXPECT_TRUE(test::TakeLog().empty());
      for (const char* other : {"360", "hd720", "0720", "720 "}) {
        EXPECT_EQ(Size(stream, other), "") << other;
        EXPECT_EQ(test::TakeLogTexts(),
                  List{"smooth_stream:N Error: Output resolution not support"});
      }
      EXPECT_EQ(Size(stream, ""), "");
      EXPECT_TRUE(test::TakeLog().empty());
    }
  });
}

struct ParameterRow {
  bool hardware;
  const char* key;
  int width;  // of a picture 1000 high
  List expected;
};

// Every profile, and every size of either encoder.
const ParameterRow kParameters[] = {
    {true,
     "smoothstreaming_240p_h264_smd_vb200_aac_ab40",
     1330,
     {"320", "240", "200000", "40000",
      "000000016742c029da0507effc00240014400000fa40002ee003c58ba80000000168ce1f20"}},
    {true,
     "smoothstreaming_240p_h264_smd_vb200_aac_ab40",
     1770,
     {"430", "240", "200000", "40000",
      "000000016742c029da06c7fafff012000d7100000303e90000bb800f162ea00000000168ce1f20"}},
    {true,
     "smoothstreaming_240p_h264_smd_vb200_aac_ab40",
     2350,
     {"560", "240", "200000", "40000",
      "000000016742c029da0231fbff002400231000003e90000bb800f162ea0000000168ce1f20"}},
    {true,
     "smoothstreaming_240p_h264_smd_vb320_aac_ab40",
     1330,
     {"320", "240", "320000", "40000",
      "000000016742c029da0507effc00240014400000fa40002ee003c58ba80000000168ce1f20"}},
    {true,
     "smoothstreaming_240p_h264_smd_vb320_aac_ab40",
     1770,
     {"430", "240", "320000", "40000",
      "000000016742c029da06c7fafff012000d7100000303e90000bb800f162ea00000000168ce1f20"}},
    {true,
     "smoothstreaming_240p_h264_smd_vb320_aac_ab40",
     2350,
     {"560", "240", "320000", "40000",
      "000000016742c029da0231fbff002400231000003e90000bb800f162ea0000000168ce1f20"}},
    {true,
     "smoothstreaming_320p_h264_smd_vb500_aac_ab64",
     1330,
     {"430", "320", "500000", "64000",
      "000000016742c029da06c29ebffc0600035c400000fa40002ee003c58ba80000000168ce1f20"}},
    {true,
     "smoothstreaming_320p_h264_smd_vb500_aac_ab64",
     1770,
     {"560", "320", "500000", "64000",
      "000000016742c029da0230a6ffc00c0008c400000fa40002ee003c58ba800000000168ce1f20"}},
    {true,
     "smoothstreaming_320p_h264_smd_vb500_aac_ab64",
     2350,
     {"750", "320", "500000", "64000",
      "000000016742c029da02f0a7afff0080007d1000003e90000bb800f162ea0000000168ce1f20"}},
    {true,
     "smoothstreaming_320p_h264_smd_vb720_aac_ab64",
     1330,
     {"430", "320", "720000", "64000",
      "000000016742c029da06c29ebffc0600035c400000fa40002ee003c58ba80000000168ce1f20"}},
    {true,
     "smoothstreaming_320p_h264_smd_vb720_aac_ab64",
     1770,
     {"560", "320", "720000", "64000",
      "000000016742c029da0230a6ffc00c0008c400000fa40002ee003c58ba800000000168ce1f20"}},
    {true,
     "smoothstreaming_320p_h264_smd_vb720_aac_ab64",
     2350,
     {"750", "320", "720000", "64000",
      "000000016742c029da02f0a7afff0080007d1000003e90000bb800f162ea0000000168ce1f20"}},
    {true,
     "smoothstreaming_hd480_h264_smd_vb1000_aac_ab96",
     1330,
     {"640", "480", "1000000", "96000",
      "000000016742c029da0280f6ffc00240014400000fa40002ee003c58ba800000000168ce1f20"}},
    {true,
     "smoothstreaming_hd480_h264_smd_vb1000_aac_ab96",
     1770,
     {"850", "480", "1000000", "96000",
      "000000016742c029da0360f788fff024001a9100000303e90000bb800f162ea00000000168ce1f20"}},
    {true,
     "smoothstreaming_hd480_h264_smd_vb1000_aac_ab96",
     2350,
     {"1120", "480", "1000000", "96000",
      "000000016742c029da01183dbff00240023100000303e90000bb800f162ea00000000168ce1f20"}},
    {true,
     "smoothstreaming_hd720_h264_smd_vb1500_aac_ab128",
     1330,
     {"960", "720", "1500000", "128000",
      "000000016742c029da03c05bbff00090005100000303e90000bb800f1832a00000000168ce1f20"}},
    {true,
     "smoothstreaming_hd720_h264_smd_vb1500_aac_ab128",
     1770,
     {"1270", "720", "1500000", "128000",
      "000000016742c029da014016f9bffc0d8009ec400000fa40002ee003c60ca80000000168ce1f20"}},
    {true,
     "smoothstreaming_hd720_h264_smd_vb1500_aac_ab128",
     2350,
     {"1280", "540", "1500000", "128000",
      "000000016742c029da0140117efff00510050100000303e90000bb800f1832a00000000168ce1f20"}},
    {true,
     "smoothstreaming_hd1080_h264_smd_vb4500_aac_ab128",
     1330,
     {"1440", "1080", "4500000", "128000",
      "000000016742c029da0168089f97ff000900051000003e90000bb800f1832a0000000168ce1f20"}},
    {true,
     "smoothstreaming_hd1080_h264_smd_vb4500_aac_ab128",
     1770,
     {"1920", "1080", "4500000", "128000",
      "000000016742c029da01e0089f97ff001b00141000003e90000bb800f1832a0000000168ce1f20"}},
    {true,
     "smoothstreaming_hd1080_h264_smd_vb4500_aac_ab128",
     2350,
     {"1920", "820", "4500000", "128000",
      "000000016742c029da01e01a7e7ffc00a400a0400000fa40002ee003c60ca80000000168ce1f20"}},
    {false,
     "smoothstreaming_240p_x264_vb200_vf15_aac_ab40",
     1330,
     {"320", "240", "200000", "40000",
      "000000016742c01eda0507e840000003004000000783c58ba80000000168ce1f20"}},
    {false,
     "smoothstreaming_240p_x264_vb200_vf15_aac_ab40",
     1770,
     {"430", "240", "200000", "40000",
      "000000016742c01eda06c7fae10000030001000003001e0f162ea00000000168ce1f20"}},
    {false,
     "smoothstreaming_240p_x264_vb200_vf15_aac_ab40",
     2350,
     {"560", "240", "200000", "40000",
      "000000016742c01eda0231fa10000003001000000301e0f162ea0000000168ce1f20"}},
    {false,
     "smoothstreaming_240p_x264_vb320_vf15_aac_ab40",
     1330,
     {"320", "240", "320000", "40000",
      "000000016742c01eda0507e840000003004000000783c58ba80000000168ce1f20"}},
    {false,
     "smoothstreaming_240p_x264_vb320_vf15_aac_ab40",
     1770,
     {"430", "240", "320000", "40000",
      "000000016742c01eda06c7fae10000030001000003001e0f162ea00000000168ce1f20"}},
    {false,
     "smoothstreaming_240p_x264_vb320_vf15_aac_ab40",
     2350,
     {"560", "240", "320000", "40000",
      "000000016742c01eda0231fa10000003001000000301e0f162ea0000000168ce1f20"}},
    {false,
     "smoothstreaming_320p_x264_vb500_vf15_aac_ab64",
     1330,
     {"430", "320", "500000", "64000",
      "000000016742c01eda06c29eb840000003004000000783c58ba80000000168ce1f20"}},
    {false,
     "smoothstreaming_320p_x264_vb500_vf15_aac_ab64",
     1770,
     {"560", "320", "500000", "64000",
      "000000016742c01eda0230a684000003000400000300783c58ba800000000168ce1f20"}},
    {false,
     "smoothstreaming_320p_x264_vb500_vf15_aac_ab64",
     2350,
     {"750", "320", "500000", "64000",
      "000000016742c01eda02f0a7ae10000003001000000301e0f162ea0000000168ce1f20"}},
    {false,
     "smoothstreaming_320p_x264_vb720_vf15_aac_ab64",
     1330,
     {"430", "320", "720000", "64000",
      "000000016742c01eda06c29eb840000003004000000783c58ba80000000168ce1f20"}},
    {false,
     "smoothstreaming_320p_x264_vb720_vf15_aac_ab64",
     1770,
     {"560", "320", "720000", "64000",
      "000000016742c01eda0230a684000003000400000300783c58ba800000000168ce1f20"}},
    {false,
     "smoothstreaming_320p_x264_vb720_vf15_aac_ab64",
     2350,
     {"750", "320", "720000", "64000",
      "000000016742c01eda02f0a7ae10000003001000000301e0f162ea0000000168ce1f20"}},
    {false,
     "smoothstreaming_hd480_x264_vb1000_vf15_aac_ab96",
     1330,
     {"640", "480", "1000000", "96000",
      "000000016742c01eda0280f684000003000400000300783c58ba800000000168ce1f20"}},
    {false,
     "smoothstreaming_hd480_x264_vb1000_vf15_aac_ab96",
     1770,
     {"850", "480", "1000000", "96000",
      "000000016742c01eda0360f788e10000030001000003001e0f162ea00000000168ce1f20"}},
    {false,
     "smoothstreaming_hd480_x264_vb1000_vf15_aac_ab96",
     2350,
     {"1120", "480", "1000000", "96000",
      "000000016742c01eda01183da10000030001000003001e0f162ea00000000168ce1f20"}},
    {false,
     "smoothstreaming_hd720_x264_vb1500_vf15_aac_ab128",
     1330,
     {"960", "720", "1500000", "128000",
      "000000016742c01eda03c05ba10000030001000003001e0f162ea00000000168ce1f20"}},
    {false,
     "smoothstreaming_hd720_x264_vb1500_vf15_aac_ab128",
     1770,
     {"1270", "720", "1500000", "128000",
      "000000016742c01eda014016f9b840000003004000000783c58ba80000000168ce1f20"}},
    {false,
     "smoothstreaming_hd720_x264_vb1500_vf15_aac_ab128",
     2350,
     {"1280", "540", "1500000", "128000",
      "000000016742c01eda0140117ee10000030001000003001e0f162ea00000000168ce1f20"}},
};

TEST_F(SmoothManifest, PredictsEveryProfile) {
  On("avoton", [this] {
    for (const ParameterRow& row : kParameters) {
      const SmoothStream stream = Open(row.key, row.width, 1000);
      List expected = row.expected;
      expected.insert(expected.begin() + 4, "48000");
      EXPECT_EQ(Parameters(stream, row.hardware), expected) << row.key << " " << row.width;
      EXPECT_TRUE(test::TakeLog().empty());
      EXPECT_EQ(Parameters(stream, !row.hardware), List()) << row.key;
      EXPECT_EQ(test::TakeLogTexts(),
                List{"smooth_stream:N Error: such transcoding profile not support for predect "
                     "manifest"});
    }
  });
}

TEST_F(SmoothManifest, KnowsNoOtherProfile) {
  On("avoton", [this] {
    for (const char* key : {"smoothstreaming_hd1080_x264_vb4500_vf15_aac_ab128", "key",
                            "smoothstreaming_hd720_x264_vb1500_vf15_aac_ab1280"}) {
      EXPECT_EQ(Parameters(Open(key, 1770, 1000), false), List());
      EXPECT_EQ(test::TakeLog().size(), 1U);
    }
    EXPECT_EQ(Parameters(Open("", 1770, 1000), false), List());
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

TEST_F(SmoothManifest, IsComplete) {
  On("avoton", [this] {
    EXPECT_TRUE(Open(kSoftwareKey, 1770, 1000, kSoftwareProfile, 12).Predict_Manifest(Request()));
    const std::string address = std::string("w.cgi?format=ss&amp;stream_id=%22") + kId +
                                "%22&amp;api=ORVO.Mirevo2.Stream&amp;version=1&amp;fragment_id=";
    const std::string chunks =
        "<c n=\"0\" d=\"50000000\" />\n"
        "<c n=\"1\" d=\"50000000\" />\n"
        "<c n=\"2\" d=\"20000000\" />\n"
        "</StreamIndex>\n";
    EXPECT_EQ(
        Read(File("manifest_predict")),
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<SmoothStreamingMedia MajorVersion=\"2\" MinorVersion=\"0\" Duration=\"120000000\">\n"
        "<StreamIndex Type=\"video\" QualityLevels=\"1\" Chunks=\"3\" Url=\"" +
            address +
            "QualityLevels({bitrate})/Fragments(video={start time})\">\n"
            "<QualityLevel Index=\"0\" Bitrate=\"1500000\" FourCC=\"H264\" MaxWidth=\"1270\" "
            "MaxHeight=\"720\" CodecPrivateData=\"000000016742c01eda014016f9b840000003004000000783"
            "c58ba80000000168ce1f20\" />\n" +
            chunks + "<StreamIndex Type=\"audio\" QualityLevels=\"1\" Chunks=\"3\" Url=\"" +
            address +
            "QualityLevels({bitrate})/Fragments(audio={start time})\">\n"
            "<QualityLevel Index=\"0\" Bitrate=\"128000\" FourCC=\"AACL\" SamplingRate=\"48000\" "
            "Channels=\"2\" BitsPerSample=\"16\" PacketSize=\"4\" AudioTag=\"255\" "
            "CodecPrivateData=\"1190\" />\n" +
            chunks + "</SmoothStreamingMedia>\n");
    EXPECT_EQ(SmoothStream(kId).GetMainfest(), Path(File("manifest_predict")));
    EXPECT_EQ(SmoothStream("").GetMainfest(), "");
  });
}

TEST_F(SmoothManifest, HasFragmentsOfFiveSecondsAndTheRest) {
  On("avoton", [this] {
    const struct {
      int duration;
      const char* total;
      const char* count;
      const char* last;
    } rows[] = {{10, "100000000", "2", "<c n=\"1\" d=\"50000000\" />"},
                {1, "10000000", "1", "<c n=\"0\" d=\"10000000\" />"},
                {5, "50000000", "1", "<c n=\"0\" d=\"50000000\" />"},
                // What single precision makes of 33333 s.
                {33333, "333329989632", "6667", "<c n=\"6666\" d=\"30000000\" />"}};
    for (const auto& row : rows) {
      EXPECT_TRUE(
          Open(kSoftwareKey, 16, 9, kSoftwareProfile, row.duration).Predict_Manifest(Request()));
      const std::string manifest = Read(File("manifest_predict"));
      EXPECT_NE(manifest.find(std::string("Duration=\"") + row.total + "\""), std::string::npos)
          << manifest.substr(0, 200);
      EXPECT_NE(manifest.find(std::string("Chunks=\"") + row.count + "\""), std::string::npos);
      const size_t end = manifest.find("\n</StreamIndex>");
      EXPECT_EQ(
          manifest.substr(manifest.rfind("\n<c ", end) + 1, end - manifest.rfind("\n<c ", end) - 1),
          row.last);
    }
  });
}

TEST_F(SmoothManifest, OfTheHardwareEncoderHasItsOwnTables) {
  On("evansport", [this] {
    EXPECT_TRUE(Open(kHardwareKey, 2350, 1000, kHardwareProfile).Predict_Manifest(Request()));
    const std::string manifest = Read(File("manifest_predict"));
    EXPECT_NE(manifest.find("MaxWidth=\"1280\" MaxHeight=\"540\" CodecPrivateData=\"000000016742c0"
                            "29da0140117efff00510050100000303e90000bb800f1832a00000000168ce1f20\""),
              std::string::npos);
    EXPECT_FALSE(Open(kSoftwareKey, 2350, 1000, kHardwareProfile).Predict_Manifest(Request()));
  });
}

TEST_F(SmoothManifest, OfAnUnknownProfileEndsEarly) {
  On("avoton", [this] {
    EXPECT_FALSE(Open("key", 16, 9, kSoftwareProfile, 12).Predict_Manifest(Request()));
    EXPECT_EQ(
        Read(File("manifest_predict")),
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<SmoothStreamingMedia MajorVersion=\"2\" MinorVersion=\"0\" Duration=\"120000000\">\n");
  });
}

TEST_F(SmoothManifest, NeedsAnAddressAStreamAndADuration) {
  On("avoton", [this] {
    Json::Value request = Request();
    request.removeMember("url");
    EXPECT_FALSE(Open(kSoftwareKey, 16, 9).Predict_Manifest(request));
    EXPECT_FALSE(Open(kSoftwareKey, 16, 9, kSoftwareProfile, 0).Predict_Manifest(Request()));
    EXPECT_FALSE(Open(kSoftwareKey, 16, 9, "").Predict_Manifest(Request()));
    EXPECT_FALSE(SmoothStream("").Predict_Manifest(Request()));
    EXPECT_FALSE(Exists(File("manifest_predict")));
    const SmoothStream stream = Open(kSoftwareKey, 16, 9);
    MakeDirectory(File("manifest_predict"));
    EXPECT_FALSE(stream.Predict_Manifest(Request()));
  });
}

TEST_F(SmoothManifest, IsWrittenWhenTheStreamIsOpened) {
  On("avoton", [this] {
    MakeStreamOnVolume("SS", FilmRecord(kSoftwareProfile, kSoftwareKey));
    EXPECT_TRUE(SmoothStream(kId).Init(Request(), Json::Value(), "2", "aac"));
    EXPECT_TRUE(Exists(File("manifest_predict")));
    EXPECT_EQ(Read(File("audio_id")), "2");
    EXPECT_FALSE(Exists(File("audio_format")));
    EXPECT_TRUE(SmoothStream(kId).Close());
    EXPECT_FALSE(Exists(Directory("SS")));
  });
}

TEST_F(SmoothManifest, LeavesNoStreamWhenItFails) {
  On("avoton", [this] {
    MakeStreamOnVolume("SS", FilmRecord(kSoftwareProfile, "key"));
    EXPECT_FALSE(SmoothStream(kId).Init(Request(), Json::Value(), "", ""));
    EXPECT_EQ(test::TakeLogTexts(),
              (List{"smooth_stream:N Error: such transcoding profile not support for predect "
                    "manifest",
                    "smooth_stream:N Failed to predect manifest for smooth streaming"}));
    EXPECT_FALSE(Exists(Directory("SS")));
    MakeStreamOnVolume("SS", FilmRecord(kSoftwareProfile, kSoftwareKey));
    EXPECT_FALSE(SmoothStream(kId).Init(Json::Value(), Json::Value(), "", "")) << "no address";
    EXPECT_FALSE(Exists(Directory("SS")));
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

}  // namespace
