#include "transcoder/command_reach.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using orvo::Reach;
using orvo::transcoder::ReachOf;
using List = std::vector<std::string>;

TEST(CommandReach, IsTheProgramItsFilmsAndNoFolderForAPipe) {
  const Reach reach =
      ReachOf({"/usr/bin/ffmpeg", "-i", "file:/films/a: b.mkv", "-f", "mpegts", "pipe:1"});
  EXPECT_EQ(reach.program, "/usr/bin/ffmpeg");
  EXPECT_EQ(reach.read, List{"/films/a: b.mkv"});
  EXPECT_TRUE(reach.write.empty());
  EXPECT_FALSE(reach.hardware);
}

TEST(CommandReach, IsTheFolderOfAnOutputFile) {
  EXPECT_EQ(ReachOf({"ffmpeg", "-i", "pipe:0", "/stream/slice-%05d.ts"}).write, List{"/stream/"});
  EXPECT_TRUE(ReachOf({"ffmpeg", "-i", "pipe:0", "out.ts"}).read.empty());
  EXPECT_EQ(ReachOf({"ffmpeg", "-i", "pipe:0", "out.ts"}).write, List{"."});
}

TEST(CommandReach, HasDevicesForCommandsThatUseThem) {
  for (const List& options :
       {List{"-vaapi_device", "/dev/dri/renderD128"}, List{"-hwaccel", "vaapi"},
        List{"-c:v", "h264_qsv"}, List{"-c:v", "h264_vaapi"}}) {
    List command = {"ffmpeg", "-i", "file:/film"};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back("pipe:1");
    EXPECT_TRUE(ReachOf(command).hardware) << options[1];
  }
}

}  // namespace
