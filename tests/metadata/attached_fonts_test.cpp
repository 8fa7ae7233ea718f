#include "metadata/attached_fonts.h"

#include <gtest/gtest.h>

#include <fstream>

#include "metadata/matroska_elements.h"
#include "support/matroska.h"
#include "support/sysroot.h"

namespace {

using LibOrvoQMX::AttachedFont;
using test::Element;

const std::string kHeader = "\x1a\x45\xdf\xa3";
const std::string kSegment = "\x18\x53\x80\x67";
const std::string kSeekHead = "\x11\x4d\x9b\x74";
const std::string kCluster = "\x1f\x43\xb6\x75";
const std::string kTracks = "\x16\x54\xae\x6b";
const std::string kTrack = "\xae";
const std::string kAttachments = "\x19\x41\xa4\x69";
const std::string kAttachedFile = "\x61\xa7";
const std::string kFileName = "\x46\x6e";
const std::string kMediaType = "\x46\x60";
const std::string kData = "\x46\x5c";
const std::string kFont("\0\1\0\0a font", 10);

std::string Attachment(const std::string& name, const std::string& data) {
  return Element(kAttachedFile,
                 Element(kFileName, name) + Element(kMediaType, "font/ttf") + Element(kData, data));
}

class Fonts : public test::Sysroot {
 protected:
  void Write(const std::string& content) {
    std::ofstream(Path("/film"), std::ios::binary) << content;
    film_ = orvo::MediaFile::Open(Path("/film"));
    ASSERT_TRUE(film_.IsOpen());
  }
  // A film with two tracks and these attachments.
  void WriteFilm(const std::string& attachments) {
    const std::string tracks = Element(kTracks, Element(kTrack, "a") + Element(kTrack, "b"));
    Write(Element(kHeader, "") +
          Element(kSegment, tracks + Element(kAttachments, attachments) + Element(kCluster, "x")));
  }
  std::string BytesOf(const AttachedFont& font) const {
    return LibOrvoQMX::BytesAt(film_, font.position, static_cast<size_t>(font.size));
  }

  std::vector<AttachedFont> FindAttachedFonts() const {
    const auto fonts = LibOrvoQMX::FindAttachedFonts(film_);
    EXPECT_TRUE(fonts);
    return fonts.value_or(std::vector<AttachedFont>());
  }

  orvo::MediaFile film_;
};

// A number with the highest byte first.
std::string Big(size_t number, size_t count) {
  std::string bytes;
  for (size_t i = count; i > 0; --i) {
    bytes += static_cast<char>(number >> 8 * (i - 1) & 0xff);
  }
  return bytes;
}

// A font with nothing but names: the family as UTF-16 and in another language, and a style.
std::string NamedFont(const std::string& family) {
  std::string wide;
  for (const char c : family) {
    wide += std::string(1, '\0') + c;
  }
  const auto record = [](size_t platform, size_t name, size_t size, size_t offset) {
    return Big(platform, 2) + Big(1, 2) + Big(0x409, 2) + Big(name, 2) + Big(size, 2) +
           Big(offset, 2);
  };
  const std::string other = "Andere";
  const std::string names = Big(0, 2) + Big(4, 2) + Big(6 + 4 * 12, 2) +
                            record(3, 1, wide.size(), 0) + record(3, 2, 2, 0) +
                            record(3, 16, wide.size(), 0) +
                            record(1, 1, other.size(), wide.size()) + wide + other;
  return kFont.substr(0, 4) + Big(1, 2) + Big(0, 6) + "name" + Big(0, 4) + Big(28, 4) +
         Big(names.size(), 4) + names;
}

TEST_F(Fonts, AreFoundWithTheirPlacesAndNumbers) {
  WriteFilm(Attachment("notes.txt", "text") + Attachment("a.ttf", kFont) +
            Attachment("b.otf", "OTTO and more"));
  const auto fonts = FindAttachedFonts();
  ASSERT_EQ(fonts.size(), 2U);
  EXPECT_EQ(fonts[0].id, 3);
  EXPECT_EQ(fonts[0].name, "a.ttf");
  EXPECT_STREQ(fonts[0].type, "font/ttf");
  EXPECT_EQ(BytesOf(fonts[0]), kFont);
  EXPECT_EQ(fonts[1].id, 4);
  EXPECT_STREQ(fonts[1].type, "font/otf");
  EXPECT_EQ(BytesOf(fonts[1]), "OTTO and more");
}

TEST_F(Fonts, BehindTheFilmAreFoundByItsIndex) {
  const std::string cluster = Element(kCluster, std::string(1000, 'x'));
  const auto seek = [&](uint8_t position) {
    return Element(kSeekHead, Element("\x4d\xbb", Element("\x53\xab", kAttachments) +
                                                      Element("\x53\xac", std::string("\x04") +
                                                                              char(position))));
  };
  const std::string before = seek(0) + cluster;
  ASSERT_EQ(before.size() >> 8, 4U);
  Write(Element(kHeader, "") +
        Element(kSegment, seek(before.size() & 0xff) + cluster +
                              Element(kAttachments, Attachment("a.ttf", kFont))));
  ASSERT_EQ(FindAttachedFonts().size(), 1U);
}

TEST_F(Fonts, OfAFilmThatIsCutOffAreFoundWhereTheyAreWhole) {
  const std::string tracks = Element(kTracks, Element(kTrack, "a"));
  const std::string list = Element(kAttachments, Attachment("a.ttf", kFont));
  Write(Element(kHeader, "") + Element(kSegment, tracks + list, 1 << 20));
  EXPECT_EQ(FindAttachedFonts().size(), 1U);
  Write(Element(kHeader, "") +
        Element(kSegment, tracks + list.substr(0, list.size() - 1), 1 << 20));
  EXPECT_TRUE(FindAttachedFonts().empty());
}

TEST_F(Fonts, LargerThanTheirAttachmentOrTooLargeAreLeftOut) {
  const std::string lies = Element(kFileName, "a.ttf") + Element(kMediaType, "font/ttf") +
                           Element(kData, kFont, uint64_t{1} << 55);
  WriteFilm(Element(kAttachedFile, lies));
  EXPECT_TRUE(FindAttachedFonts().empty());
  WriteFilm(Attachment("a.ttf", kFont + std::string(LibOrvoQMX::kLargestFont, 'x')));
  EXPECT_TRUE(FindAttachedFonts().empty());
}

TEST_F(Fonts, TellTheNamesByWhichScriptsAskForThem) {
  WriteFilm(Attachment("a.ttf", NamedFont("Sans")) + Attachment("b.ttf", kFont) +
            Attachment("c.ttf", NamedFont("Sans").substr(0, 40)));
  const auto fonts = FindAttachedFonts();
  ASSERT_EQ(fonts.size(), 3U);
  EXPECT_EQ(fonts[0].families, (std::vector<std::string>{"Sans", "Andere"}));
  EXPECT_TRUE(fonts[1].families.empty());
  EXPECT_TRUE(fonts[2].families.empty());
}

TEST_F(Fonts, ThatAreLargeInAllAreOneListThatCanBeReplaced) {
  WriteFilm(Attachment("a.ttf", kFont));
  EXPECT_FALSE(LibOrvoQMX::FindLargeAttachments(film_));
  const std::string large = kFont + std::string(20 << 20, 'x');
  WriteFilm(Attachment("a.ttf", large) + Attachment("b.ttf", large));
  const auto list = LibOrvoQMX::FindLargeAttachments(film_);
  ASSERT_TRUE(list);
  EXPECT_EQ(LibOrvoQMX::BytesAt(film_, list->begin, 4), kAttachments);
  EXPECT_EQ(LibOrvoQMX::ElementAt(film_, list->end)->id, 0x1f43b675U);
  EXPECT_EQ(list->emptyStart[0], '\xec');
}

TEST_F(Fonts, AreLimitedInNumber) {
  std::string many;
  for (size_t n = 0; n < LibOrvoQMX::kMostFonts + 10; ++n) {
    many += Attachment("a.ttf", kFont);
  }
  WriteFilm(many);
  EXPECT_EQ(FindAttachedFonts().size(), LibOrvoQMX::kMostFonts);
}

TEST_F(Fonts, OfOtherFilesAreNone) {
  for (const std::string& content :
       {std::string(), kHeader, std::string(1000, '\0'), std::string(1000, '\xff'),
        Element(kHeader, "") + Element(kSegment, Element(kAttachments, std::string(99, '\x01')))}) {
    Write(content);
    EXPECT_TRUE(FindAttachedFonts().empty());
  }
}

}  // namespace
