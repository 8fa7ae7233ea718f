#include "gst/arguments.h"

#include <gtest/gtest.h>

#include "gst/picture_filters.h"

namespace orvo::gst {
namespace {

using List = std::vector<std::string>;

List With(const List& more) {
  List all{"-s", "83", "-i", "/film.mkv", "-o", "fd:7"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

TEST(GstArguments, NeedAFilmAndAnOutputOnly) {
  const Reading reading = ReadArguments({"-i", "/film.mkv", "-o", "fd:7"});
  EXPECT_EQ(reading.error, "");
  EXPECT_EQ(reading.request.film, "/film.mkv");
  EXPECT_EQ(reading.request.output, 7);
  EXPECT_EQ(reading.request.start, 0);
  EXPECT_EQ(reading.request.container, Container::kTransportStream);
  EXPECT_FALSE(reading.request.copiesSound || reading.request.keepsFilmClock);
}

TEST(GstArguments, SayWhatBecomesOfTheFilm) {
  const Request request =
      ReadArguments(With({"--vcodec", "h264", "--vb", "2000k", "--ab", "96000", "--size", "640x480",
                          "--fps", "23.976", "--mux", "mp4", "--shiftpts", "--aidx", "2"}))
          .request;
  EXPECT_EQ(request.start, 83);
  EXPECT_EQ(request.pictureBits, 2'000'000);
  EXPECT_EQ(request.soundBits, 96'000);
  EXPECT_EQ(request.width, 640);
  EXPECT_EQ(request.height, 480);
  EXPECT_DOUBLE_EQ(request.frameRate, 23.976);
  EXPECT_EQ(request.container, Container::kMp4);
  EXPECT_TRUE(request.keepsFilmClock);
  EXPECT_EQ(request.soundTrack, 2);
}

TEST(GstArguments, CountTheLastOfAnOptionThatIsGivenTwice) {
  EXPECT_TRUE(ReadArguments(With({"--acodec", "aac", "--acodec", "copy"})).request.copiesSound);
  EXPECT_FALSE(ReadArguments(With({"--acodec", "copy", "--acodec", "aac"})).request.copiesSound);
}

TEST(GstArguments, AreRefusedWithAReason) {
  const std::vector<std::pair<List, std::string>> refused = {
      {{"--what"}, "unknown option \"--what\""},
      {{"--vb"}, "no value for --vb"},
      {{"--vb", "much"}, "--vb takes bits a second, not \"much\""},
      {{"-s", "-1"}, "-s takes a number of seconds, not \"-1\""},
      {{"-s", "5s"}, "-s takes a number of seconds, not \"5s\""},
      {{"-o", "/file"}, "-o takes fd:NUMBER, not \"/file\""},
      {{"-o", "fd:-1"}, "-o takes fd:NUMBER, not \"fd:-1\""},
      {{"--aidx", "1.5"}, "--aidx takes the number of a sound track, not \"1.5\""},
      {{"--fps", "0"}, "--fps takes pictures a second, not \"0\""},
      {{"--fps", "nan"}, "--fps takes pictures a second, not \"nan\""},
      {{"--size", "640"}, "--size takes WIDTHxHEIGHT, not \"640\""},
      {{"--mux", "avi"}, "--mux takes mpegts or mp4, not \"avi\""},
      {{"--vcodec", "vp9"}, "--vcodec takes h264, not \"vp9\""},
      {{"--acodec", "mp3"}, "--acodec takes aac or copy, not \"mp3\""},
      {{"-i", ""}, "-i takes the path of a film, not \"\""},
  };
  for (const auto& [arguments, reason] : refused) {
    EXPECT_EQ(ReadArguments(With(arguments)).error, reason);
  }
  EXPECT_EQ(ReadArguments({"-o", "fd:1"}).error, "no film: -i is missing");
  EXPECT_EQ(ReadArguments({"-i", "/film.mkv"}).error, "no output: -o is missing");
}

TEST(GstPictures, KeepTheirShapeInSquarePixelsWithinTheBox) {
  struct Row {
    PictureShape picture;
    int pixelWidth, pixelHeight;
    PictureShape box, fitted;
  };
  const Row rows[] = {
      {{1920, 1080}, 1, 1, {1280, 720}, {1280, 720}}, {{1920, 800}, 1, 1, {1280, 720}, {1280, 534}},
      {{720, 576}, 16, 11, {640, 480}, {640, 352}},   {{360, 640}, 1, 1, {640, 480}, {270, 480}},
      {{320, 240}, 1, 1, {1280, 720}, {320, 240}},  // never enlarged
      {{721, 405}, 1, 1, {0, 0}, {722, 406}},       // even sides
      {{640, 360}, 0, 1, {0, 0}, {640, 360}},       // no shape told
  };
  for (const Row& row : rows) {
    const PictureShape fitted = FitPicture(row.picture, row.pixelWidth, row.pixelHeight, row.box);
    EXPECT_EQ(fitted.width, row.fitted.width) << row.picture.width;
    EXPECT_EQ(fitted.height, row.fitted.height) << row.picture.width;
  }
}

}  // namespace
}  // namespace orvo::gst
