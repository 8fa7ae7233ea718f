#include "transcoder/encoder_inventory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "platform/confinement.h"
#include "support.h"

namespace orvo::transcoder {
namespace {

constexpr char kListing[] =
    "Encoders:\n V..... = Video\n .....D = Supports direct rendering method 1\n ------\n"
    " V....D libx264              libx264 H.264 (codec h264)\n"
    " V....D h264_vaapi           H.264/AVC (VAAPI) (codec h264)\n"
    " A..... aac                  AAC (Advanced Audio Coding)\n";

bool NoEngine(std::string_view) {
  return false;
}
bool AnyEngine(std::string_view) {
  return true;
}

// A sanitized copy of this program reserves terabytes of addresses.
constexpr char kAnyMemory[] = "picture_memory=0\npicture_writable=0\n";

// A copy of this program plays the FFmpeg that is asked.
class EncoderInventoryTest : public testing::Test {
 protected:
  EncoderInventoryTest() {
    std::filesystem::copy_file("/proc/self/exe", executable_);
    SetListing(kListing);
    setenv("TRANSCODER_TEST_ASKED", dir_.Path("asked").c_str(), 1);
    // The copy writes down that it was asked.
    std::filesystem::create_directories(system_.Path("var/packages/Mirevo/etc"));
    test::WriteText(system_.Path("var/packages/Mirevo/etc/confinement.conf"),
                    std::string("sandbox=off\n") + kAnyMemory);
    setenv("ORVO_SYSROOT", system_.Path("").c_str(), 1);
  }
  ~EncoderInventoryTest() override {
    unsetenv("TRANSCODER_TEST_LISTING");
    unsetenv("TRANSCODER_TEST_ASKED");
    unsetenv("ORVO_SYSROOT");
  }

  static void SetListing(const char* listing) { setenv("TRANSCODER_TEST_LISTING", listing, 1); }
  EncoderInventory Inventory(bool (*isProved)(std::string_view) = NoEngine) const {
    return {executable_, cache_, isProved};
  }
  bool CanEncode(const char* encoder) const { return Inventory().CanEncode(encoder); }
  ptrdiff_t TimesAsked() const {
    const std::string asked = test::ReadText(dir_.Path("asked"));
    return std::count(asked.begin(), asked.end(), '\n');
  }

  test::TempDir dir_;
  test::TempDir system_;
  std::string executable_ = dir_.Path("ffmpeg");
  std::string cache_ = dir_.Path("cache");
};

TEST_F(EncoderInventoryTest, KnowsWhatTheExecutableLists) {
  EXPECT_TRUE(CanEncode("libx264"));
  EXPECT_TRUE(CanEncode("aac"));
  EXPECT_FALSE(CanEncode("libfdk_aac"));
}

TEST_F(EncoderInventoryTest, AsksInAConfinedProcess) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer in the stand-in needs more than a confined process may do";
#endif
  test::WriteText(system_.Path("var/packages/Mirevo/etc/confinement.conf"), kAnyMemory);
  if (!MissingConfinement().empty()) {
    GTEST_SKIP() << "this kernel lacks " << MissingConfinement();
  }
  EXPECT_TRUE(CanEncode("libx264"));
  EXPECT_EQ(TimesAsked(), 0) << "it cannot write that down";
}

TEST_F(EncoderInventoryTest, TakesTheLegendForNoEncoder) {
  EXPECT_FALSE(CanEncode("="));
}

TEST_F(EncoderInventoryTest, AsksOnlyOnce) {
  CanEncode("aac");
  CanEncode("libx264");
  EXPECT_EQ(TimesAsked(), 1);
}

TEST_F(EncoderInventoryTest, AsksNothingBeforeTheFirstQuestion) {
  Inventory();
  EXPECT_EQ(TimesAsked(), 0);
}

TEST_F(EncoderInventoryTest, AsksAgainWhenTheExecutableHasChanged) {
  CanEncode("aac");
  const timespec times[2] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, executable_.c_str(), times, 0), 0);
  SetListing(" ------\n A..... libfdk_aac  AAC\n");
  EXPECT_TRUE(CanEncode("libfdk_aac"));
  EXPECT_EQ(TimesAsked(), 2);
}

TEST_F(EncoderInventoryTest, AsksAgainWhenTheCacheIsDamaged) {
  CanEncode("aac");
  const std::string good = test::ReadText(cache_);
  std::string bent = good;
  bent[bent.size() - 2] = '?';
  for (const std::string& damaged : {std::string(), std::string("x"), good.substr(0, 50), bent}) {
    test::WriteText(cache_, damaged);
    EXPECT_TRUE(CanEncode("libx264"));
    EXPECT_EQ(test::ReadText(cache_), good);
  }
  EXPECT_EQ(TimesAsked(), 5);
}

TEST_F(EncoderInventoryTest, BelievesNoCacheBehindALink) {
  CanEncode("aac");
  std::filesystem::rename(cache_, dir_.Path("elsewhere"));
  std::filesystem::create_symlink(dir_.Path("elsewhere"), cache_);
  EXPECT_TRUE(CanEncode("aac"));
  EXPECT_EQ(TimesAsked(), 2);
}

TEST_F(EncoderInventoryTest, LeavesNothingButTheCacheBehind) {
  CanEncode("aac");
  size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(dir_.Path(""))) {
    ++files;
  }
  EXPECT_EQ(files, 3u);  // the executable, what it was asked, and the cache
}

TEST_F(EncoderInventoryTest, AnswersWithoutAPlaceForTheCache) {
  EncoderInventory inventory(executable_, "/nonexistent/cache", NoEngine);
  EXPECT_TRUE(inventory.CanEncode("aac"));
}

TEST_F(EncoderInventoryTest, HasAHardwareEncoderOnlyWithAProof) {
  EXPECT_FALSE(Inventory(NoEngine).CanEncode("h264_vaapi"));
  EXPECT_TRUE(Inventory(AnyEngine).CanEncode("h264_vaapi"));
}

TEST_F(EncoderInventoryTest, HasNoHardwareEncoderThatTheExecutableLacks) {
  EXPECT_FALSE(Inventory(AnyEngine).CanEncode("h264_nvenc"));
}

TEST_F(EncoderInventoryTest, HasNothingWithoutAnExecutable) {
  std::filesystem::remove(executable_);
  EXPECT_FALSE(CanEncode("aac"));
}

TEST_F(EncoderInventoryTest, KeepsNoAnswerOfAnExecutableThatFails) {
  unsetenv("TRANSCODER_TEST_LISTING");
  EXPECT_FALSE(CanEncode("aac"));
  SetListing(kListing);
  EXPECT_TRUE(CanEncode("aac"));
}

}  // namespace
}  // namespace orvo::transcoder
