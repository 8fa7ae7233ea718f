// A program that knows the library only as installed.
#include <cstdio>
#include <string>

#include "metadata/qmxmetadata.h"
#include "metadata/video_metadata.h"
#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/lock.h"
#include "policy/platform_utils.h"
#include "policy/trans_loading.h"
#include "stream/adapt_stream.h"
#include "stream/direct_stream.h"
#include "stream/http_stream.h"
#include "stream/liborvoqmx.h"
#include "stream/smooth_stream.h"
#include "stream/webm_stream.h"
#include "util/json_utils.h"
#include "util/md5.h"
#include "util/qmxutils.h"
#include "util/random_string.h"

namespace {

int failures = 0;

void Expect(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "not so: %s\n", what);
    ++failures;
  }
}

class Stream : public LibOrvoQMX::AdaptStream {
 public:
  Stream() : AdaptStream("id", "HLS") {}
  int GetSeekTimeInMillisecond() const override { return 0; }
  bool Init(const Json::Value&, const Json::Value&, const std::string&,
            const std::string&) override {
    return true;
  }
  bool Transcoding(const std::string&) override { return true; }
  std::string ReadFragment(const std::string&) override { return ""; }
};

}  // namespace

int main() {
  Expect(libmrv::util::PlatformUtils::GetInst().IsBraswell(), "the platform is read");
  Expect(LibMirevo::GetMD5("") == "d41d8cd98f00b204e9800998ecf8427e", "digests");
  Expect(LibOrvoQMX::StringExplode("a_b", "_").size() == 2, "texts are split");
  Expect(libmrv::util::RandomString("x", 8).size() == 9, "random texts");
  Expect(LibMirevo::TransLoading().TransEnable(true), "the registry is empty");
  Expect(PlatExec("/bin/true") == 0, "programs run");
  Expect(LibOrvoQMX::GetCodecName(AV_CODEC_ID_MPEG2VIDEO) == "mpeg2", "codecs have names");
  Expect(Stream().GetQMXFileFullPath("x") == orvo::SystemPath("/tmp/Mirevo/HLS/id/x"), "paths");
  LibOrvoQMX::HttpStream http("id");
  LibOrvoQMX::DirectStream& direct = http;
  Expect(!direct.Init(""), "no record, no stream");
  Expect(direct.Close(), "closed");
  LibOrvoQMX::WebMStream webm("id");
  Expect(webm.Read(nullptr, 0) == 0, "a stream that has not begun is empty");
  LibOrvoQMX::SmoothStream smooth("id");
  Expect(smooth.GetMainfest() == orvo::SystemPath("/tmp/Mirevo/SS/id/manifest_predict"),
         "a manifest");
  Json::Value document;
  Expect(!LibOrvoQMX::VideoMetaData::ReadMetaDataFromFFMPEG("/dev/null", document), "no film");
  return failures;
}
