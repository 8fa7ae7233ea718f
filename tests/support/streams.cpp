#include "support/streams.h"

#include <unistd.h>

namespace test {

Json::Value FilmRecord(const std::string& profileValue, const std::string& profileKey) {
  Json::Value record = ParseText(R"({
    "path": "/volume1/video/film.mkv", "filesize": "4294967296", "duration": 100,
    "container_type": "matroska,webm", "start_time": 0, "bitrate": 2000000,
    "track_info": {
      "video": [{"codec": "h264", "profile": "High", "level": 40, "bitrate": 1800000,
                 "framerate": 23.976, "framerate_num": 24000, "framerate_den": 1001,
                 "rotate": 0, "codec_tag": "avc1", "pix_fmt": "yuv420p",
                 "sample_aspect_ratio_num": 1, "sample_aspect_ratio_den": 1,
                 "display_x": 1920, "display_y": 1080, "resolutionx": 1920, "resolutiony": 1080,
                 "id": "0", "track": "0"}],
      "audio": [{"codec": "ac3", "channel": 6, "frequency": 48000, "bitrate": 448000,
                 "id": "1", "track": "1"},
                {"codec": "aac", "channel": 2, "frequency": 44100, "bitrate": 128000,
                 "id": "2", "track": "2"}],
      "subtitle": []},
    "device": "", "hls_header": false, "use_pre_analysis": false})");
  record["profile_key"] = profileKey;
  record["profile_value"] = profileValue;
  return record;
}

void StreamTest::MakeStreamOnVolume(const std::string& kind, const Json::Value& record) const {
  const std::string data = "/volume1/@tmp/Mirevo/" + kind + "/" + kId;
  WriteJson(data + "/video_metadata", record);
  MakeDirectory("/tmp/Mirevo/" + kind);
  ASSERT_EQ(symlink(Path(data).c_str(), Path(Directory(kind)).c_str()), 0);
}

}  // namespace test
