#include "metadata/large_attachments.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/matroska.h"
#include "support/sysroot.h"

namespace {

using LibOrvoQMX::LargeAttachments;
using test::Element;

constexpr char kAttachments[] = "\x19\x41\xa4\x69";
constexpr char kAttachedFile[] = "\x61\xa7";
constexpr char kMediaType[] = "\x46\x60";
constexpr char kData[] = "\x46\x5c";

class Attachments : public test::Sysroot {
 protected:
  // A list of one attachment at this position of the film.
  void Make(const std::string& type, uint64_t bytes, size_t position = 100) {
    const std::string data = Element(kData, "", bytes);
    const std::string inner = Element(kMediaType, type, type.size()) + data;
    const std::string file = Element(kAttachedFile, inner, inner.size() + bytes);
    const std::string list = Element(kAttachments, file, file.size() + bytes);
    const std::string path = Path("/film");
    std::ofstream(path, std::ios::binary) << std::string(position, 'x') << list;
    std::filesystem::resize_file(path, position + list.size() + bytes);
    film_ = orvo::MediaFile::Open(path);
    ASSERT_TRUE(film_.IsOpen());
    attachment_ = position + Element(kAttachments, "", 0).size();
  }
  // The film's first bytes, read in parts of this size.
  std::string Read(size_t part) {
    constexpr size_t kEnough = 300;
    LargeAttachments attachments(film_);
    std::string bytes(kEnough, '\0');
    EXPECT_EQ(pread(film_.Get(), bytes.data(), kEnough, 0), static_cast<ssize_t>(kEnough));
    for (size_t begin = 0; begin < kEnough; begin += part) {
      attachments.Hide(static_cast<int64_t>(begin), reinterpret_cast<uint8_t*>(&bytes[begin]),
                       std::min(part, kEnough - begin));
    }
    return bytes;
  }

  orvo::MediaFile film_;
  size_t attachment_ = 0;
};

constexpr uint64_t kMany = 300 << 20;

TEST_F(Attachments, ThatAreLargeHaveNoMeaning) {
  Make("font/ttf", kMany);
  const std::string whole = Read(300);
  // An empty element with eight bytes of size, which is one byte longer than before.
  EXPECT_EQ(whole.substr(attachment_, 2), "\xec\x01");
  const std::string data = Element(kData, "", kMany);
  const size_t size = Element(kMediaType, "font/ttf", 8).size() + data.size() + kMany + 1;
  EXPECT_EQ(whole.substr(attachment_, 9), Element("\xec", "", size));
}

TEST_F(Attachments, AreHiddenWhereverAReadEnds) {
  Make("font/ttf", kMany);
  const std::string whole = Read(300);
  for (size_t part = 1; part < 20; ++part) {
    EXPECT_EQ(Read(part), whole) << part;
  }
}

TEST_F(Attachments, ThatArePicturesStay) {
  Make("image/jpeg", kMany);
  EXPECT_EQ(Read(300).substr(attachment_, 2), kAttachedFile);
}

TEST_F(Attachments, ThatAreSmallStay) {
  Make("font/ttf", 1 << 20);
  EXPECT_EQ(Read(300).substr(attachment_, 2), kAttachedFile);
}

TEST_F(Attachments, ThatAreLongerThanTheirFilmStay) {
  Make("font/ttf", kMany);
  std::filesystem::resize_file(Path("/film"), 1000);
  film_ = orvo::MediaFile::Open(Path("/film"));
  EXPECT_EQ(Read(300).substr(attachment_, 2), kAttachedFile);
}

}  // namespace
