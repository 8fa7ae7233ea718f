#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

namespace {

// Asked for its encoders, this program plays an FFmpeg that says in a file that it was asked.
int PlayFFmpeg() {
  const char* asked = getenv("TRANSCODER_TEST_ASKED");
  const char* listing = getenv("TRANSCODER_TEST_LISTING");
  if (asked == nullptr || listing == nullptr) {
    return 1;
  }
  std::ofstream(asked, std::ios::app) << "asked\n";
  fputs(listing, stdout);
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc > 1 && std::string_view(argv[argc - 1]) == "-encoders") {
    return PlayFFmpeg();
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
