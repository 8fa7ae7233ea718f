#include <gtest/gtest.h>

#include "platform/plat.h"
#include "support/sysroot.h"

namespace {

class KeyValue : public test::Sysroot {
 protected:
  // The value of `key` in a file of this content; "(none)" for a result below 1.
  std::string ValueOf(const std::string& content, const std::string& key) const {
    Write("/conf", content);
    char buffer[64];
    const int length = PlatFileGetKeyValue(Path("/conf"), key, buffer, sizeof(buffer), 0);
    if (length < 1) {
      return "(none)";
    }
    EXPECT_EQ(std::string(buffer).size(), static_cast<size_t>(length));
    return buffer;
  }
};

TEST_F(KeyValue, ReadsValuesAsAShellWould) {
  const struct {
    const char* content;
    const char* value;
  } cases[] = {
      {"unique=a_b_c\n", "a_b_c"},
      {"unique=a_b_c", "a_b_c"},
      {"unique=\"a b\"\n", "a b"},
      {"unique='a \"b\"'\n", "a \"b\""},
      {"unique=\"a \\\"b\\\"\"\n", "a \"b\""},
      {"unique=a\"b c\"d\n", "ab cd"},
      {"unique=a # comment\n", "a"},
      {"unique=\"a # b\"\n", "a # b"},
      {"unique=a#b\n", "a#b"},
      {"unique=#b\n", "#b"},
      {"unique=a\\ b\n", "a b"},
      {"unique=a\\", "a\\"},
      {"unique=\"\\$a\\`b\\\\c\\d\"\n", "$a`b\\c\\d"},
      {"unique='a\\b'\n", "a\\b"},
      {"exported unique=a\n", "(none)"},
      {"unique= # nothing but a comment\n", "(none)"},
      {"  unique=a\n", "a"},
      {"export unique=a\n", "a"},
      {"unique=a\r\n", "a"},
      {"unique=a\nunique=b\n", "b"},
      {"unique=a=b\n", "a=b"},
      {"#unique=a\n", "(none)"},
      {"myunique=a\nunique2=b\n", "(none)"},
      {"unique=\n", "(none)"},
      {"unique=\"\"\n", "(none)"},
      {"unique\n", "(none)"},
      {"", "(none)"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(ValueOf(row.content, "unique"), row.value) << row.content;
  }
}

TEST_F(KeyValue, TellsAMissingFileFromAMissingKey) {
  char buffer[8];
  EXPECT_EQ(PlatFileGetKeyValue(Path("/nothing"), "a", buffer, sizeof(buffer), 0), -1);
  Write("/conf", "b=1\n");
  EXPECT_EQ(PlatFileGetKeyValue(Path("/conf"), "a", buffer, sizeof(buffer), 0), 0);
}

TEST_F(KeyValue, RefusesAValueThatDoesNotFitWithItsEnd) {
  char buffer[4] = "xyz";
  Write("/conf", "a=123\nb=1234\n");
  EXPECT_EQ(PlatFileGetKeyValue(Path("/conf"), "a", buffer, 4, 0), 3);
  EXPECT_STREQ(buffer, "123");
  EXPECT_EQ(PlatFileGetKeyValue(Path("/conf"), "b", buffer, 4, 0), -1);
  EXPECT_EQ(PlatFileGetKeyValue(Path("/conf"), "a", buffer, 0, 0), -1);
  EXPECT_EQ(PlatFileGetKeyValue(Path("/conf"), "a", nullptr, 4, 0), -1);
}

TEST_F(KeyValue, ChecksAValueExactlyOrWithoutCase) {
  Write("/conf", "run=Yes\n");
  EXPECT_TRUE(PlatFileCheckKeyValue(Path("/conf"), "run", "Yes"));
  EXPECT_FALSE(PlatFileCheckKeyValue(Path("/conf"), "run", "yes"));
  EXPECT_TRUE(PlatFileCheckKeyValue(Path("/conf"), "run", "yes", true));
  EXPECT_FALSE(PlatFileCheckKeyValue(Path("/conf"), "run", "ye", true));
  EXPECT_FALSE(PlatFileCheckKeyValue(Path("/conf"), "ran", ""));
  EXPECT_FALSE(PlatFileCheckKeyValue(Path("/nothing"), "run", "Yes"));
}

TEST(PlatformError, IsZeroUntilSetAndKeepsTheLastCode) {
  EXPECT_EQ(PlatErrGet(), 0);
  PlatErrSet(0x8300);
  EXPECT_EQ(PlatErrGet(), 0x8300);
  PlatErrSetEx(0xDD00, __FILE__, __LINE__);
  EXPECT_EQ(PlatErrGet(), 0xDD00);
  PlatErrSet(0);
}

TEST_F(KeyValue, AFileThatIsTooLongIsNotRead) {
  EXPECT_EQ(ValueOf("unique=a\n#" + std::string(1 << 10, 'x'), "unique"), "a");
  EXPECT_EQ(ValueOf("unique=a\n#" + std::string(1 << 20, 'x'), "unique"), "(none)");
}

}  // namespace
