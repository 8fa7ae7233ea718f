// Films that were made to harm whoever looks at them.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "metadata/video_metadata.h"
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

std::string Zeros(size_t count) {
  return std::string(count, '\0');
}

// A box of MP4. `missing` bytes of its content follow elsewhere.
std::string Box(const std::string& type, const std::string& content, uint32_t missing = 0) {
  return Number(static_cast<uint32_t>(content.size()) + 8 + missing) + type + content;
}

const std::string kType = Box("ftyp", "isom" + Number(512) + "isommp41");

// A video track whose table of samples ends with `table`.
std::string Track(uint32_t number, const std::string& table, uint32_t missing = 0) {
  const std::string header = Box("tkhd", Number(3) + Zeros(8) + Number(number) + Zeros(64) +
                                             Number(640 << 16) + Number(360 << 16));
  const std::string clock = Box("mdhd", Zeros(12) + Number(1000) + Number(1000) + Zeros(4));
  const std::string handler = Box("hdlr", Zeros(8) + "vide" + Zeros(13));
  const std::string samples =
      Box("stbl",
          Box("stsd",
              Number(0) + Number(1) + Box("avc1", Zeros(6) + std::string("\0\1", 2) + Zeros(70))) +
              Box("stts", Number(0) + Number(1) + Number(0xfffffff) + Number(1)) +
              Box("stsc", Number(0) + Number(1) + Number(1) + Number(0xfffffff) + Number(1)) +
              Box("stco", Number(0) + Number(1) + Number(0)) + table,
          missing);
  const std::string media = Box(
      "mdia", clock + handler + Box("minf", Box("vmhd", Zeros(12)) + samples, missing), missing);
  return Box("trak", header + media, missing);
}

class FilmOfAnAttacker : public test::Sysroot {
 protected:
  // Writes a film whose last `missing` bytes are a hole, and probes it.
  bool Probe(const std::string& content, off_t missing = 0) const {
    Write("/film.mp4", content);
    EXPECT_EQ(truncate(Path("/film.mp4").c_str(), static_cast<off_t>(content.size()) + missing), 0);
    Json::Value document(Json::objectValue);
    const bool isFilm = VideoMetaData::ReadMetaDataFromFFMPEG(Path("/film.mp4"), document);
    EXPECT_TRUE(test::HasNoChild());
    return isFilm;
  }

  // The most memory that a process below this one has used, in MiB.
  static int64_t MostMemory() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss / 1024;
  }
};

TEST_F(FilmOfAnAttacker, WithATableOfAQuarterBillionSamplesGetsNoMoreMemoryThanAProbeHas) {
  constexpr uint32_t kSamples = 240'000'000;
  constexpr uint32_t kTable = kSamples * 4;
  const std::string table = Box("stsz", Number(0) + Number(0) + Number(kSamples), kTable);
  const std::string header = Box("mvhd", Zeros(12) + Number(1000) + Number(1000) + Zeros(80));
  const std::string film = kType + Box("moov", header + Track(1, table, kTable), kTable);
  EXPECT_FALSE(Probe(film, kTable));
  EXPECT_LT(MostMemory(), 700);
}

TEST_F(FilmOfAnAttacker, WithTenThousandTracksStaysWithinTheLimits) {
  std::string tracks;
  for (uint32_t number = 1; number <= 10000; ++number) {
    tracks += Track(number, Box("stsz", Number(0) + Number(0) + Number(0)));
  }
  Probe(kType +
        Box("moov", Box("mvhd", Zeros(12) + Number(1000) + Number(1000) + Zeros(80)) + tracks));
  EXPECT_LT(MostMemory(), 700);
}

TEST_F(FilmOfAnAttacker, ThatIsAHoleOfTwoHundredGigabytesEndsInTime) {
  Write("/var/packages/Mirevo/etc/confinement.conf", "probe_wall=1\n");
  EXPECT_FALSE(Probe(std::string("\x1a\x45\xdf\xa3\x84\x42\x82\x81m", 9), 200LL << 30));
  EXPECT_LT(MostMemory(), 700);
}

TEST_F(FilmOfAnAttacker, WithHalfAMillionBoxesInEachOtherIsRefused) {
  std::string film;
  for (uint32_t depth = 0; depth < 500'000; ++depth) {
    film += Number((500'000 - depth) * 8) + "moov";
  }
  EXPECT_FALSE(Probe(kType + film));
}

}  // namespace
