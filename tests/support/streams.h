// Streams without a probe: the test writes the directory and the record.
#pragma once

#include <json/value.h>

#include <string>

#include "metadata/qmxmetadata.h"
#include "stream/adapt_stream.h"
#include "stream/liborvoqmx.h"
#include "support/sysroot.h"

namespace test {

inline constexpr char kId[] = "0123456789abcdef0123456789abcdef_abcdEF12";

// The record of a film: one h264 video of 1920x1080 (container stream 0, SAR 1:1), an ac3 track (1,
// id "1") and an aac track (2, id "2").
Json::Value FilmRecord(const std::string& profileValue, const std::string& profileKey = "key");

class StreamTest : public Sysroot {
 protected:
  // The directory of a stream, without the sysroot.
  static std::string Directory(const std::string& kind, const std::string& id = kId) {
    return "/tmp/Mirevo/" + kind + "/" + id;
  }
  // Makes the directory and the record in it.
  void MakeStream(const std::string& kind, const Json::Value& record,
                  const std::string& id = kId) const {
    MakeDirectory(Directory(kind, id));
    WriteJson(Directory(kind, id) + "/video_metadata", record);
  }
  // The same on a data volume with a link to it, as opening a film makes it.
  void MakeStreamOnVolume(const std::string& kind, const Json::Value& record) const;
  // A record that was loaded from this document.
  LibOrvoQMX::QMXMetaData Load(const Json::Value& document) const {
    MakeStream("HTTP", document, "loaded");
    LibOrvoQMX::QMXMetaData record("loaded", "HTTP");
    EXPECT_TRUE(record.LoadMetaData());
    return record;
  }
};

// The smallest concrete streams.
class PlainStream : public LibOrvoQMX::QMXStream {
 public:
  explicit PlainStream(const std::string& kind, const std::string& id = kId)
      : QMXStream(id, kind) {}
  int GetSeekTimeInMillisecond() const override { return start; }
  int start = 0;

  bool IsRemuxStream() const { return m_isRemux; }
  bool IsHardware() const { return m_isHwTranscode; }
  bool IsGstreamer() const { return m_isGstreamer; }
  bool IsVaapi() const { return m_isVaapi; }
  std::string Profile() const { return m_profileValue; }
};

class FragmentStream : public LibOrvoQMX::AdaptStream {
 public:
  explicit FragmentStream(const std::string& kind, const std::string& id = kId)
      : AdaptStream(id, kind) {}
  int GetSeekTimeInMillisecond() const override { return 0; }
  bool Init(const Json::Value& request, const Json::Value& /*options*/, const std::string& audioId,
            const std::string& /*audioFormat*/) override {
    return InitAdaptStream(request, audioId);
  }
  bool Transcoding(const std::string& /*fragment*/) override { return false; }
  std::string ReadFragment(const std::string& /*fragment*/) override { return ""; }
};

}  // namespace test
