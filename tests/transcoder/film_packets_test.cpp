#include "transcoder/film_packets.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "support.h"

namespace orvo::transcoder {
namespace {

std::unique_ptr<FilmPackets> Open(const std::string& path) {
  return FilmPackets::Open(UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
}

std::unique_ptr<FilmPackets> OpenMedia(const std::string& name) {
  auto film = Open(test::MediaPath(name));
  EXPECT_NE(film, nullptr) << name;
  return film;
}

// What FFmpeg finds after a long look.
int64_t StartByProbe(const std::string& name) {
  const AvFunctions& av = *AvFunctions::Get();
  AVFormatContext* context = nullptr;
  if (av.avformat_open_input(&context, test::MediaPath(name).c_str(), nullptr, nullptr) < 0 ||
      av.avformat_find_stream_info(context, nullptr) < 0) {
    return -1;
  }
  const int64_t start = context->start_time;
  av.avformat_close_input(&context);
  return start;
}

double Seconds(const FilmPackets& film, const FilmPacket& packet) {
  return static_cast<double>(packet.packet->pts) * av_q2d(film.Track(packet.Track()).time_base);
}

constexpr const char* kFilms[] = {"h264_aac.mp4",  "h264_ac3.mkv", "hevc10_aac.mov",
                                  "mpeg4_mp3.avi", "mpeg2_mp2.ts", "vp9_opus.webm"};
constexpr const char* kIndexedFilms[] = {"h264_aac.mp4", "h264_ac3.mkv", "hevc10_aac.mov",
                                         "vp9_opus.webm"};

TEST(FilmPackets, CountFromWhereFFmpegSaysThatTheFilmStarts) {
  for (const char* name : kFilms) {
    EXPECT_NEAR(OpenMedia(name)->FilmStart(), StartByProbe(name), 1) << name;
  }
}

TEST(FilmPackets, HaveDecodingTimesThatGrowAndAreNotAfterTheirPicture) {
  for (const char* name : kFilms) {
    const auto film = OpenMedia(name);
    std::map<int, int64_t> last;
    int count = 0;
    while (const auto packet = film->Next()) {
      ASSERT_NE(packet->packet->dts, AV_NOPTS_VALUE) << name;
      EXPECT_LE(packet->packet->dts, packet->packet->pts) << name;
      const auto before = last.find(packet->Track());
      EXPECT_TRUE(before == last.end() || before->second < packet->packet->dts) << name;
      last[packet->Track()] = packet->packet->dts;
      ++count;
    }
    EXPECT_GT(count, 20) << name;
  }
}

TEST(FilmPackets, BeginWithAKeyFrameThatIsShownNoLaterThanTheSeek) {
  for (const char* name : kIndexedFilms) {
    for (const double seconds : {0.0, 0.7, 1.9}) {
      const auto film = OpenMedia(name);
      const int pictures = film->FirstOf(AVMEDIA_TYPE_VIDEO);
      film->Choose({pictures});
      ASSERT_TRUE(film->Seek(pictures, seconds)) << name << " at " << seconds;
      const auto packet = film->Next();
      ASSERT_TRUE(packet) << name;
      EXPECT_TRUE(packet->IsKey()) << name;
      const double firstPicture = 0.05;
      EXPECT_LE(Seconds(*film, *packet), std::max(seconds, firstPicture) + 0.001) << name;
    }
  }
}

TEST(FilmPackets, HaveTheSameTimesAfterASeek) {
  for (const char* name : kIndexedFilms) {
    const auto film = OpenMedia(name);
    const int pictures = film->FirstOf(AVMEDIA_TYPE_VIDEO);
    film->Choose({pictures});
    std::map<int64_t, int64_t> decoded;
    while (const auto packet = film->Next()) {
      decoded[packet->packet->pts] = packet->packet->dts;
    }
    ASSERT_TRUE(film->Seek(pictures, 1.5)) << name;
    const int settled = 5;  // the first ones can only be guessed
    for (int i = 0; const auto packet = film->Next(); ++i) {
      if (i >= settled) {
        EXPECT_EQ(decoded[packet->packet->pts], packet->packet->dts) << name;
      }
    }
  }
}

TEST(FilmPackets, OfTracksThatWereNotChosenStayAway) {
  const auto film = OpenMedia("h264_ac3.mkv");
  const int sound = film->FirstOf(AVMEDIA_TYPE_AUDIO);
  film->Choose({sound});
  while (const auto packet = film->Next()) {
    EXPECT_EQ(packet->Track(), sound);
  }
}

TEST(FilmPackets, SayWhichKeyFrameNothingLooksBackFrom) {
  for (const char* name : {"h264_aac.mp4", "h264_ac3.mkv"}) {
    const auto film = OpenMedia(name);
    const int pictures = film->FirstOf(AVMEDIA_TYPE_VIDEO);
    film->Choose({pictures});
    const auto first = film->Next();
    ASSERT_TRUE(first);
    EXPECT_TRUE(first->isIdr) << name;
    const auto second = film->Next();
    ASSERT_TRUE(second);
    EXPECT_FALSE(second->isIdr) << name;
  }
}

TEST(FilmPackets, DoNotComeFromWhatIsNoFilm) {
  const test::TempDir folder;
  test::WriteText(folder.Path("text.mkv"), "#EXTM3U\nhttp://example.org/a.ts\n");
  test::WriteText(folder.Path("empty.mp4"), "");
  EXPECT_EQ(Open(folder.Path("text.mkv")), nullptr);
  EXPECT_EQ(Open(folder.Path("empty.mp4")), nullptr);
  EXPECT_EQ(Open("/dev/zero"), nullptr);
  EXPECT_EQ(FilmPackets::Open(UniqueFd()), nullptr);
}

TEST(FilmPackets, EndWhereAFilmIsCutOff) {
  for (const char* name : kFilms) {
    const std::string whole = test::ReadText(test::MediaPath(name));
    const test::TempDir folder;
    test::WriteText(folder.Path(name), whole.substr(0, whole.size() * 2 / 3));
    const auto film = Open(folder.Path(name));
    while (film != nullptr && film->Next()) {
    }
  }
}

}  // namespace
}  // namespace orvo::transcoder
