#include "util/md5.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/sysroot.h"

namespace {

using LibMirevo::GetFileMD5;
using LibMirevo::GetMD5;
using List = std::vector<std::string>;

class Md5 : public test::Sysroot {};

TEST_F(Md5, OfTextsMatchesKnownDigests) {
  EXPECT_EQ(GetMD5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(GetMD5("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(GetMD5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_NE(GetMD5(std::string("a\0b", 3)), GetMD5("a")) << "zero bytes count";
}

TEST_F(Md5, OfAFileCoversItsWholeContent) {
  const std::string content = std::string(300000, 'x') + std::string(1, '\0') + "end";
  Write("/file", content);
  EXPECT_EQ(GetFileMD5(Path("/file")), GetMD5(content));
  Write("/empty", "");
  EXPECT_EQ(GetFileMD5(Path("/empty")), GetMD5(""));
  EXPECT_TRUE(test::TakeLog().empty());
}

TEST_F(Md5, OfAnUnreadableFileIsEmptyAndLogged) {
  EXPECT_EQ(GetFileMD5(Path("/missing")), "");
  EXPECT_EQ(test::TakeLogTexts(), List{"md5:N failed to open file"});
  EXPECT_EQ(GetFileMD5(Root()), "");
  EXPECT_EQ(test::TakeLogTexts(), List{"md5:N failed to read content"});
}

}  // namespace
