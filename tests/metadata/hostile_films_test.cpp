// Films that were made to harm whoever looks at them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "metadata/video_metadata.h"
#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using LibOrvoQMX::VideoMetaData;

std::string Number(uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes += static_cast<char>(value >> shift);
  }
  return bytes;
}

class FilmOfAnAttacker : public test::Sysroot {
 protected:
  // Writes a film whose last `hole` bytes are one, and probes it.
  bool Probe(const std::string& content, off_t hole = 0) const {
    Write("/film", content);
    const auto size = static_cast<off_t>(content.size()) + hole;
    EXPECT_EQ(truncate(Path("/film").c_str(), size), 0);
    Json::Value document(Json::objectValue);
    const bool isFilm = VideoMetaData::ReadMetaDataFromFFMPEG(Path("/film"), document);
    EXPECT_TRUE(test::HasNoChild());
    return isFilm;
  }
};

TEST_F(FilmOfAnAttacker, ThatIsAHoleOfTwoHundredGigabytesIsGivenUpInTime) {
  Write("/var/packages/Mirevo/etc/confinement.conf", "probe_wall=1\n");
  EXPECT_FALSE(Probe(std::string("\x1a\x45\xdf\xa3\x84\x42\x82\x81m", 9), 200LL << 30));
  EXPECT_NE(test::TakeLogTexts().at(0).find("was given up"), std::string::npos);
}

TEST_F(FilmOfAnAttacker, WithHalfAMillionBoxesInEachOtherIsRefused) {
  constexpr uint32_t kDepth = 500'000;
  std::string film;
  for (uint32_t depth = 0; depth < kDepth; ++depth) {
    film += Number((kDepth - depth) * 8) + "moov";
  }
  EXPECT_FALSE(Probe(film));
}

}  // namespace
