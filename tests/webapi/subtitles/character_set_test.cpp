#include "webapi/subtitles/character_set.h"

#include <gtest/gtest.h>
#include <iconv.h>

namespace {

using webapi::IsCharacterSet;
using webapi::ToUtf8;

std::string In(const char* set, std::string text) {
  const iconv_t converter = iconv_open(set, "UTF-8");
  std::string converted(text.size() * 4 + 8, '\0');
  char* in = text.data();
  char* out = converted.data();
  size_t left = text.size();
  size_t room = converted.size();
  EXPECT_EQ(iconv(converter, &in, &left, &out, &room), 0u) << set;
  iconv_close(converter);
  converted.resize(converted.size() - room);
  return converted;
}

constexpr char kFrench[] =
    "1\n00:00:01,000 --> 00:00:02,000\nO\xc3\xb9 est pass\xc3\xa9 le gar\xc3\xa7on "
    "tr\xc3\xa8s \xc3\xa2g\xc3\xa9 de la for\xc3\xaat ? Il \xc3\xa9tait d\xc3\xa9j\xc3\xa0 "
    "l\xc3\xa0.\n";
constexpr char kJapanese[] =
    "1\n00:00:01,000 --> 00:00:02,000\n\xe3\x81\x93\xe3\x82\x93\xe3\x81\xab\xe3\x81\xa1\xe3\x81\xaf"
    "\xe4\xb8\x96\xe7\x95\x8c\xe3\x80\x82\xe4\xbb\x8a\xe6\x97\xa5\xe3\x81\xaf\xe3\x81\xa8\xe3\x81"
    "\xa6"
    "\xe3\x82\x82\xe3\x81\x84\xe3\x81\x84\xe5\xa4\xa9\xe6\xb0\x97\xe3\x81\xa7\xe3\x81\x99\xe3\x81"
    "\xad\n";
constexpr char kChinese[] =
    "1\n00:00:01,000 --> 00:00:02,000\n\xe4\xbb\x8a\xe5\xa4\xa9\xe5\xa4\xa9\xe6\xb0\x94\xe5\xbe\x88"
    "\xe5\xa5\xbd\xef\xbc\x8c\xe6\x88\x91\xe4\xbb\xac\xe5\x8e\xbb\xe5\x85\xac\xe5\x9b\xad\xe5\x90"
    "\xa7"
    "\xe3\x80\x82\xe4\xbd\xa0\xe8\xa7\x89\xe5\xbe\x97\xe6\x80\x8e\xe4\xb9\x88\xe6\xa0\xb7\xef\xbc"
    "\x9f\n";
constexpr char kRussian[] =
    "1\n00:00:01,000 --> 00:00:02,000\n\xd0\x9f\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82, \xd0\xba"
    "\xd0\xb0\xd0\xba \xd0\xb4\xd0\xb5\xd0\xbb\xd0\xb0? \xd0\x9c\xd0\xbd\xd0\xb5 \xd0\xbd\xd1\x83"
    "\xd0\xb6\xd0\xbd\xd0\xbe \xd0\xb8\xd0\xb4\xd1\x82\xd0\xb8 "
    "\xd0\xb4\xd0\xbe\xd0\xbc\xd0\xbe\xd0\xb9.\n";

TEST(CharacterSet, TextsOfCommonSetsAreRecognised) {
  struct Row {
    const char* set;
    const char* text;
  };
  for (const Row& row : {
           Row{"WINDOWS-1252", kFrench},
           Row{"UTF-8", kFrench},
           Row{"UTF-16LE", kFrench},
           Row{"UTF-16BE", kFrench},
           Row{"SHIFT_JIS", kJapanese},
           Row{"EUC-JP", kJapanese},
           Row{"GB18030", kChinese},
           Row{"WINDOWS-1251", kRussian},
           Row{"KOI8-R", kRussian},
       }) {
    EXPECT_EQ(ToUtf8(In(row.set, row.text), ""), row.text) << row.set;
  }
}

TEST(CharacterSet, AByteOrderMarkDecidesAndIsLeftOut) {
  EXPECT_EQ(ToUtf8("\xef\xbb\xbf\xc3\xa9", "WINDOWS-1252"), "\xc3\xa9");
  EXPECT_EQ(ToUtf8("\xff\xfe" + In("UTF-16LE", kJapanese), ""), kJapanese);
  EXPECT_EQ(ToUtf8("\xfe\xff" + In("UTF-16BE", kJapanese), "GBK"), kJapanese);
}

TEST(CharacterSet, ANamedSetIsUsed) {
  EXPECT_EQ(ToUtf8("\xe9", "ISO-8859-5"), "\xd1\x89");
}

TEST(CharacterSet, InvalidBytesAreReplaced) {
  EXPECT_EQ(ToUtf8("a\xff"
                   "b",
                   "UTF-8"),
            "a\xef\xbf\xbd"
            "b");
  EXPECT_EQ(ToUtf8("a\xc3", "UTF-8"), "a\xef\xbf\xbd");
  EXPECT_EQ(ToUtf8("", ""), "");
}

TEST(CharacterSet, CharactersBeyondUnicodeAreReplaced) {
  // Each of these bytes is replaced, because they make no character.
  const auto replaced = [](size_t bytes) {
    std::string text = "a";
    for (size_t i = 0; i < bytes; ++i) {
      text += "\xef\xbf\xbd";
    }
    return text;
  };
  for (const std::string bytes :
       {"\xfa\x8d\xa1\x93\x82", "\xf4\x90\x80\x80", "\xed\xa0\x80", "\xc0\xaf"}) {
    EXPECT_EQ(ToUtf8("a" + bytes, "UTF-8"), replaced(bytes.size())) << bytes;
  }
  for (const std::string text : {"\xf4\x8f\xbf\xbf", "\xed\x9f\xbf", "\xef\xbf\xbf", "\xc2\x80"}) {
    EXPECT_EQ(ToUtf8(text, "UTF-8"), text);
  }
}

TEST(CharacterSet, OnlyNamesOfKnownSetsAreAccepted) {
  for (const char* name :
       {"UTF-8", "GBK", "windows-1252", "Big5-HKSCS", "SHIFT_JIS", "ISO_8859-1:1987"}) {
    EXPECT_TRUE(IsCharacterSet(name)) << name;
  }
  for (const char* name :
       {"", "klingon", "UTF-8//TRANSLIT", "../etc/passwd", "UTF-8 ", "a\nb", "/tmp/x"}) {
    EXPECT_FALSE(IsCharacterSet(name)) << name;
  }
  EXPECT_FALSE(IsCharacterSet(std::string(100000, 'a')));
}

}  // namespace
