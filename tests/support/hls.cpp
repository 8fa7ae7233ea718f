#include "support/hls.h"

#include <cstdio>
#include <filesystem>

#include "preprocess/preprocess_result.h"

namespace test {

void HlsTest::Open(const Json::Value& record) const {
  MakeStreamOnVolume("HLS", record);
}

std::string HlsTest::Slice(int number) {
  char name[32];
  snprintf(name, sizeof(name), "slice-%05d.ts", number);
  return File(name);
}

void HlsTest::StoreKeyframes(const std::string& film, const std::vector<double>& times,
                             double end) const {
  LibOrvoQMX::preprocess::PreprocessResultWrapper result;
  for (const double time : times) {
    result.PushPtsTime(time);
  }
  result.set_end_time(end);
  const std::string path = LibOrvoQMX::preprocess::PreprocessUtil::GetPreprocessResultPath(film);
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  ASSERT_TRUE(result.WriteToFile(path));
}

}  // namespace test
