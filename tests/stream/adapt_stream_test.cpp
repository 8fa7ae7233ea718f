#include "stream/adapt_stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>

#include "platform/plat.h"
#include "support/processes.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::AdaptStream;
using test::FragmentStream;
using test::kId;

class Fragments : public test::StreamTest {
 protected:
  static Json::Value Request() {
    return test::ParseText(R"({"url": "webapi/x.cgi", "format": "raw", "api": "ORVO.Mirevo2.Stream",
      "version": 1, "method": "get", "token": "t", "_sid": "s", "OrvoToken": "o",
      "sharing_id": "h"})");
  }
  void SetAge(const std::string& path, time_t seconds) const {
    const timespec times[2] = {{time(nullptr) - seconds, 0}, {time(nullptr) - seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Path(path).c_str(), times, 0), 0);
  }
};

TEST_F(Fragments, AreAddressedWithQuotesUnderTheNewerApi) {
  EXPECT_EQ(FragmentStream("HLS").GetStreamURL(Request()),
            std::string("webapi/x.cgi?format=raw&stream_id=%22") + kId +
                "%22&api=ORVO.Mirevo2.Stream&version=1&method=get&token=%22t%22&_sid=%22s%22"
                "&OrvoToken=o&sharing_id=%22h%22");
}

TEST_F(Fragments, AreAddressedPlainlyUnderTheOlderApi) {
  Json::Value request = Request();
  request["api"] = "ORVO.Mirevo1";
  EXPECT_EQ(FragmentStream("HLS").GetStreamURL(request),
            std::string("webapi/x.cgi?format=raw&id=") + kId +
                "&api=ORVO.Mirevo1&version=1&method=get&token=t&_sid=s&OrvoToken=o&sharing_id=h");
  request.removeMember("api");
  EXPECT_EQ(FragmentStream("HLS").GetStreamURL(request),
            std::string("webapi/x.cgi?format=raw&id=") + kId +
                "&version=1&method=get&token=t&_sid=s&OrvoToken=o&sharing_id=h");
}

TEST_F(Fragments, AreAddressedForAnXmlAttributeInASmoothManifest) {
  EXPECT_EQ(FragmentStream("SS").GetStreamURL(Request()),
            std::string("webapi/x.cgi?format=raw&amp;stream_id=%22") + kId +
                "%22&amp;api=ORVO.Mirevo2.Stream&amp;version=1&amp;method=get&amp;token=%22t%22"
                "&amp;_sid=%22s%22&amp;OrvoToken=o&amp;sharing_id=%22h%22");
}

TEST_F(Fragments, AreAddressedWithoutMembersOfAnotherType) {
  const Json::Value request = test::ParseText(R"({"url": "u", "format": "f", "api": 5,
      "version": "1", "method": 1, "token": [], "_sid": {}, "OrvoToken": null,
      "sharing_id": true})");
  EXPECT_EQ(FragmentStream("HLS").GetStreamURL(request), std::string("u?format=f&id=") + kId);
}

TEST_F(Fragments, AreAddressedWithWholeNumbersInDecimal) {
  const struct {
    const char* version;
    const char* expected;
  } rows[] = {{"1.0", "&version=1"},
              {"-2", "&version=-2"},
              {"1e3", "&version=1000"},
              {"18446744073709551615", "&version=18446744073709551615"},
              {"1.5", ""}};
  for (const auto& row : rows) {
    Json::Value request = test::ParseText(R"({"url": "u", "format": "f"})");
    request["version"] = test::ParseText(row.version);
    EXPECT_EQ(FragmentStream("HLS").GetStreamURL(request),
              std::string("u?format=f&id=") + kId + row.expected)
        << row.version;
  }
}

TEST_F(Fragments, AreAddressedWithUnchangedValues) {
  EXPECT_EQ(FragmentStream("HLS", "a b")
                .GetStreamURL(test::ParseText(
                    R"({"url": "u?x", "format": "f g", "token": "", "version": -2})")),
            "u?x?format=f g&id=a b&version=-2&token=");
}

TEST_F(Fragments, HaveNoAddressIfAParameterIsMissing) {
  for (const char* member : {"url", "format"}) {
    for (const char* value : {"\"\"", "5", "null", "[]"}) {
      Json::Value request = Request();
      request[member] = test::ParseText(value);
      EXPECT_EQ(FragmentStream("HLS").GetStreamURL(request), "") << member << value;
    }
    Json::Value request = Request();
    request.removeMember(member);
    EXPECT_EQ(FragmentStream("HLS").GetStreamURL(request), "") << member;
  }
  EXPECT_EQ(FragmentStream("HLS", "").GetStreamURL(Request()), "");
  EXPECT_EQ(FragmentStream("").GetStreamURL(Request()), "");
  EXPECT_EQ(FragmentStream("HLS").GetStreamURL(Json::Value()), "");
}

TEST_F(Fragments, RecogniseTheNewerApiByItsName) {
  const struct {
    const char* request;
    bool newer;
  } rows[] = {{R"({"api": "ORVO.Mirevo2"})", true},
              {R"({"api": "x/ORVO.Mirevo2.Streaming"})", true},
              {R"({"api": "ORVO.Mirevo"})", false},
              {R"({"api": "orvo.mirevo2"})", false},
              {R"({"api": ["ORVO.Mirevo2"]})", false},
              {R"({"api": 2})", false},
              {"{}", false}};
  for (const auto& row : rows) {
    EXPECT_EQ(AdaptStream::IsWebapi5(test::ParseText(row.request)), row.newer) << row.request;
  }
}

TEST_F(Fragments, AreOpenedForARequestWithAUrl) {
  On("avoton", [this] {
    MakeStream("HLS", test::FilmRecord("x"));
    FragmentStream stream("HLS");
    EXPECT_TRUE(stream.InitAdaptStream(Request(), "2"));
    EXPECT_EQ(stream.GetRequestAudioID(), "2");
    EXPECT_FALSE(stream.InitAdaptStream(test::ParseText(R"({"url": ""})"), ""));
    EXPECT_FALSE(stream.InitAdaptStream(test::ParseText("{}"), ""));
    EXPECT_EQ(stream.GetErrorString(), "");
    EXPECT_FALSE(stream.InitAdaptStream(Request(), "9"));
    EXPECT_EQ(stream.GetErrorString(), "TransAudioNotSupported");
  });
}

TEST_F(Fragments, AreOpenedByForceOnlyForABoolean) {
  // Where force passes over a running offline conversion.
  On("braswell", [this] {
    MakeStream("HLS", test::FilmRecord("x"));
    SetRegistry(test::JsonArray({test::RegistryEntry(getpid(), true, true)}));
    Json::Value request = Request();
    for (const char* value : {"\"true\"", "1", "null", "false", "[true]"}) {
      request["force_open_qmx"] = test::ParseText(value);
      FragmentStream stream("HLS");
      EXPECT_FALSE(stream.InitAdaptStream(request, "")) << value;
      EXPECT_EQ(stream.GetErrorString(), "TransEnableOfflineConverting");
    }
    request["force_open_qmx"] = true;
    EXPECT_TRUE(FragmentStream("HLS").InitAdaptStream(request, ""));
  });
}

TEST_F(Fragments, AreDeletedBeforeASeek) {
  ASSERT_TRUE(LibOrvoQMX::QMXStream::CreateTmpDir(kId, "HLS", "profile", "key", 0));
  const std::string directory = Directory("HLS");
  for (const char* name : {"/slice-00000.ts", "/slice-00001.ts", "/slice.m3u8", "/other.ts",
                           "/sub/slice-1.ts", "/slicedir/x", "/smooth/y", "/a slice.ts"}) {
    Write(directory + name, "x");
  }
  test::Child monitor(test::SleepUntilKilled);
  Write(directory + "/monitor.pid", std::to_string(monitor.Pid()));
  EXPECT_TRUE(FragmentStream("HLS").SeekingHandler());
  EXPECT_FALSE(PlatProcAlive(monitor.Pid()));
  EXPECT_EQ(Read(directory + "/monitor.pid"), std::to_string(monitor.Pid()));
  for (const char* name :
       {"/slice-00000.ts", "/slice-00001.ts", "/slice.m3u8", "/sub/slice-1.ts", "/slicedir"}) {
    EXPECT_FALSE(Exists(directory + name)) << name;
  }
  for (const char* name : {"/other.ts", "/smooth/y", "/a slice.ts", "/sub"}) {
    EXPECT_TRUE(Exists(directory + name)) << name;
  }
  EXPECT_TRUE(FragmentStream("HLS").SeekingHandler()) << "nothing left to delete";
}

TEST_F(Fragments, OfASmoothStreamAreOneDirectory) {
  ASSERT_TRUE(LibOrvoQMX::QMXStream::CreateTmpDir(kId, "SS", "profile", "key", 0));
  for (const char* name : {"/smooth/video/0", "/smoother", "/slice-1"}) {
    Write(Directory("SS") + name, "x");
  }
  EXPECT_TRUE(FragmentStream("SS").SeekingHandler());
  EXPECT_FALSE(Exists(Directory("SS") + "/smooth"));
  EXPECT_TRUE(Exists(Directory("SS") + "/smoother"));
  EXPECT_TRUE(Exists(Directory("SS") + "/slice-1"));
}

TEST_F(Fragments, AreNotDeletedWithoutAnIdAKindOrADirectory) {
  EXPECT_FALSE(FragmentStream("HLS", "").SeekingHandler());
  EXPECT_FALSE(FragmentStream("").SeekingHandler());
  EXPECT_FALSE(FragmentStream("HLS").SeekingHandler());
}

TEST_F(Fragments, AreIdleSinceTheLastAccess) {
  const FragmentStream stream("HLS");
  EXPECT_FALSE(stream.QMXIsTimeout(0)) << "no file, no time-out";
  Write(Directory("HLS") + "/access_status", "");
  EXPECT_TRUE(stream.QMXIsTimeout(0));
  EXPECT_FALSE(stream.QMXIsTimeout(900));
  SetAge(Directory("HLS") + "/access_status", 900);
  EXPECT_TRUE(stream.QMXIsTimeout(900)) << "exactly as long counts";
  EXPECT_FALSE(stream.QMXIsTimeout(1000));
  EXPECT_FALSE(FragmentStream("HLS", "").QMXIsTimeout(0));
}

TEST_F(Fragments, AreRemovedWithTheirStream) {
  ASSERT_TRUE(LibOrvoQMX::QMXStream::CreateTmpDir(kId, "HLS", "profile", "key", 0));
  FragmentStream stream("HLS");
  AdaptStream& base = stream;
  EXPECT_TRUE(base.Close());
  EXPECT_FALSE(Exists(Directory("HLS")));
  EXPECT_FALSE(FragmentStream("HLS", "").Close());
}

}  // namespace
