#include "cmaf/presentation.h"

#include <gtest/gtest.h>

#include <string>

#include "cmaf/renditions.h"
#include "contract/cmaf.h"

namespace LibOrvoQMX {
namespace {

// A film that no file stands behind.
class KnownFilm : public VideoMetaData {
 public:
  explicit KnownFilm(const Json::Value& document) {
    m_document = document;
    m_loaded = true;
  }
};

Json::Value Track(const char* codec, int number) {
  Json::Value track(Json::objectValue);
  track["track"] = std::to_string(number);
  track["id"] = std::to_string(number);
  track["codec"] = codec;
  return track;
}

Json::Value FilmOf(const char* videoCodec, unsigned width, unsigned height) {
  Json::Value video = Track(videoCodec, 0);
  video["profile"] = "High";
  video["level"] = 40;
  video["pix_fmt"] = "yuv420p";
  video["resolutionx"] = width;
  video["resolutiony"] = height;
  video["display_x"] = width;
  video["display_y"] = height;
  Json::Value sound = Track("aac", 1);
  sound["profile"] = "LC";
  sound["language"] = "eng";
  sound["channel"] = 2;
  Json::Value document(Json::objectValue);
  document["container_type"] = "matroska,webm";
  document["bitrate"] = 5'000'000;
  document["track_info"]["video"].append(video);
  document["track_info"]["audio"].append(sound);
  document["track_info"]["subtitle"] = Json::Value(Json::arrayValue);
  return document;
}

CmafWishes Copied() {
  CmafWishes wishes;
  wishes.copying = orvo::kCmafCopied;
  wishes.dynamicRange = orvo::kCmafStandardRange;
  return wishes;
}

std::vector<std::string> Names(const std::vector<CmafRendition>& renditions) {
  std::vector<std::string> names;
  names.reserve(renditions.size());
  for (const CmafRendition& rendition : renditions) {
    names.push_back(rendition.name);
  }
  return names;
}

TEST(CmafRenditions, ListTheCopyThenTheLadderThenTheSound) {
  const KnownFilm film(FilmOf("h264", 1920, 1080));
  EXPECT_EQ(Names(ListCmafRenditions(film, Copied())),
            (std::vector<std::string>{"copy-video", "h264-720", "h264-480", "h264-360",
                                      "copy-audio-0", "stereo-0", "night-0"}));
}

TEST(CmafRenditions, TellTheTranscoderThatCopiedSoundIsAac) {
  CmafRendition sound;
  sound.treatment = "sound";
  sound.track = 1;
  sound.codec = "mp4a.40.2";
  EXPECT_EQ(CmafArguments(sound), (std::vector<std::string>{"sound", "-track", "1", "-aac", "1"}));
  sound.codec = "ac-3";
  EXPECT_EQ(CmafArguments(sound), (std::vector<std::string>{"sound", "-track", "1"}));
  sound.codec = "mp4a.6b";  // MP3
  EXPECT_EQ(CmafArguments(sound), (std::vector<std::string>{"sound", "-track", "1"}));
}

TEST(CmafRenditions, AreNeverLargerThanTheFilm) {
  const KnownFilm film(FilmOf("mpeg2", 640, 360));
  for (const CmafRendition& rendition : ListCmafRenditions(film, Copied())) {
    EXPECT_LE(rendition.height, 360U) << rendition.name;
  }
}

TEST(CmafRenditions, KeepToTheClientsBounds) {
  CmafWishes wishes = Copied();
  wishes.maxHeight = 480;
  wishes.maxBitrate = 1000;
  const KnownFilm film(FilmOf("h264", 1920, 1080));
  EXPECT_EQ(Names(ListCmafRenditions(film, wishes)).front(), "h264-360");
}

TEST(CmafRenditions, AreEncodedOnlyAsLargeAsTheMachineDoesInTime) {
  const KnownFilm film(FilmOf("hevc", 1920, 1080));
  CmafWishes wishes = Copied();
  wishes.maxEncoded = 480;
  EXPECT_EQ(Names(ListCmafRenditions(film, wishes)).front(), "h264-480");
  wishes.maxEncoded = 100;
  EXPECT_EQ(Names(ListCmafRenditions(film, wishes)).front(), "h264-240") << "one row stays";
}

TEST(CmafRenditions, CopyOnlyWhatTheClientPlays) {
  const KnownFilm film(FilmOf("h264", 1920, 1080));
  CmafWishes wishes = Copied();
  EXPECT_EQ(WhyNotCopied(film, wishes), "");
  for (const char* const fitting : {"avc1", "avc1.640028,mp4a.40.2", "hvc1,avc1.640033"}) {
    wishes.codecs = fitting;
    EXPECT_EQ(WhyNotCopied(film, wishes), "") << fitting;
  }
  for (const char* const lacking : {"hvc1", "avc1.64001f", "avc1.4d0028", "vp09"}) {
    wishes.codecs = lacking;
    EXPECT_NE(WhyNotCopied(film, wishes), "") << lacking;
  }
}

TEST(CmafRenditions, CopyNoPicturesThatAPlayerCannotStartAt) {
  const KnownFilm film(FilmOf("h264", 1920, 1080));
  for (const char* const reason :
       {orvo::kCmafOpenGroups, orvo::kCmafNoIndex, orvo::kCmafChanging}) {
    CmafWishes wishes = Copied();
    wishes.copying = reason;
    EXPECT_NE(WhyNotCopied(film, wishes), "") << reason;
    EXPECT_EQ(Names(ListCmafRenditions(film, wishes)).front(), "h264-720") << reason;
  }
}

TEST(CmafRenditions, CopyAHighRangeOnlyForAClientThatShowsIt) {
  const KnownFilm film(FilmOf("h264", 1920, 1080));
  CmafWishes wishes = Copied();
  wishes.dynamicRange = orvo::kCmafPq;
  EXPECT_NE(WhyNotCopied(film, wishes), "");
  wishes.showsHdr = true;
  EXPECT_EQ(WhyNotCopied(film, wishes), "");
}

CmafPresentation Presentation() {
  CmafPresentation presentation;
  presentation.plan = {25, 1, 0, {0, 90'000, 180'000, 360'000, 720'000}};
  presentation.renditions = ListCmafRenditions(KnownFilm(FilmOf("h264", 1920, 1080)), Copied());
  presentation.dynamicRange = orvo::kCmafStandardRange;
  presentation.path = "/entry.cgi";
  presentation.parameters = "a=1&stream_id=x";
  presentation.subtitleParameters = "a=2&id=x";
  presentation.subtitles = {{"/films/a \"b\".srt", "eng"}};
  return presentation;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(CmafPlaylists, NameEachRenditionAndItsSound) {
  const std::string playlist = MultivariantPlaylist(Presentation());
  EXPECT_TRUE(Contains(playlist, "CODECS=\"avc1.640028,mp4a.40.2\",RESOLUTION=1920x1080"));
  EXPECT_TRUE(Contains(playlist, "\n/entry.cgi/media.m3u8?a=1&stream_id=x&rendition=copy-video\n"));
  EXPECT_TRUE(Contains(playlist, "NAME=\"eng, stereo\",LANGUAGE=\"eng\",DEFAULT=YES"));
  EXPECT_TRUE(Contains(playlist, "subtitle_id=%2Ffilms%2Fa%20%22b%22.srt"));
}

TEST(CmafPlaylists, OfOneRenditionListTheSpansOfThePlan) {
  const CmafPresentation presentation = Presentation();
  const std::string playlist = MediaPlaylist(presentation, presentation.renditions.front());
  EXPECT_TRUE(Contains(playlist, "#EXT-X-TARGETDURATION:4\n"));
  EXPECT_TRUE(Contains(playlist,
                       "#EXTINF:2.00000,\n/entry.cgi/segment.m4s?a=1&stream_id=x&"
                       "rendition=copy-video&segment=2\n"));
  EXPECT_TRUE(Contains(playlist,
                       "#EXT-X-MAP:URI=\"/entry.cgi/init.mp4?a=1&stream_id=x&"
                       "rendition=copy-video&segment=init\"\n"));
}

TEST(CmafManifest, HasTheSameSegments) {
  const std::string manifest = DashManifest(Presentation());
  EXPECT_TRUE(Contains(manifest, "<S t=\"0\" d=\"90000\" r=\"1\"/><S t=\"180000\" d=\"180000\"/>"));
  EXPECT_TRUE(Contains(manifest,
                       "media=\"/entry.cgi/segment.m4s?a=1&amp;stream_id=x&amp;"
                       "rendition=$RepresentationID$&amp;segment=$Number$\""));
  EXPECT_TRUE(Contains(manifest, "<Representation id=\"h264-720\""));
}

// --- Chapters and titles ---

Json::Value DocumentWithChapters() {
  Json::Value document = FilmOf("h264", 1920, 1080);
  const auto add = [&](double start, double end, const char* title) {
    Json::Value chapter(Json::objectValue);
    chapter["start"] = start;
    chapter["end"] = end;
    chapter["title"] = title;
    document["chapters"].append(chapter);
  };
  add(2, 100, "The \"end\" <&>\n#EXT");
  add(-1, 2, "Beginning");
  add(200, 300, "Behind the film");
  return document;
}

TEST(CmafChapters, LieWithinTheFilmInTheirOrder) {
  const auto chapters = ChaptersOf(DocumentWithChapters(), Presentation().plan);
  ASSERT_EQ(chapters.size(), 2U);
  EXPECT_EQ(chapters[0].title, "Beginning");
  EXPECT_EQ(chapters[0].start, 0);
  EXPECT_EQ(chapters[1].start, 180'000);
  EXPECT_EQ(chapters[1].end, 720'000);
  EXPECT_EQ(chapters[1].title, "The end <&>#EXT");
}

TEST(CmafChapters, AreInTheManifestAndInTheListThatThePlaylistNames) {
  CmafPresentation presentation = Presentation();
  EXPECT_FALSE(Contains(MultivariantPlaylist(presentation), "chapters"));
  EXPECT_FALSE(Contains(DashManifest(presentation), "EventStream"));
  presentation.chapters = ChaptersOf(DocumentWithChapters(), presentation.plan);
  EXPECT_TRUE(Contains(MultivariantPlaylist(presentation),
                       "#EXT-X-SESSION-DATA:DATA-ID=\"com.apple.hls.chapters\",FORMAT=JSON,URI=\""
                       "/entry.cgi/chapters.json?a=1&stream_id=x&playlist_type=chapters\"\n"));
  EXPECT_TRUE(Contains(DashManifest(presentation),
                       "<Event id=\"1\" presentationTime=\"180000\" duration=\"540000\">"
                       "The end &lt;&amp;&gt;#EXT</Event>"));
  EXPECT_TRUE(Contains(ChapterList(presentation), "\"duration\":6.0"));
}

TEST(CmafSubtitles, HaveTheTitleAndTheMarkOfTheirTrack) {
  Json::Value document = FilmOf("h264", 1920, 1080);
  Json::Value track = Track("subrip", 2);
  track["title"] = "Signs";
  track["is_forced"] = true;
  document["track_info"]["subtitle"].append(track);
  CmafPresentation presentation = Presentation();
  presentation.subtitles = {{"2", "eng"}, {"/films/a.srt", "eng"}};
  DescribeSubtitles(KnownFilm(document), presentation.subtitles);
  const std::string playlist = MultivariantPlaylist(presentation);
  EXPECT_TRUE(Contains(playlist, "NAME=\"Signs\",LANGUAGE=\"eng\",FORCED=YES"));
  EXPECT_TRUE(Contains(playlist, "NAME=\"eng\",LANGUAGE=\"eng\",FORCED=NO"));
  EXPECT_TRUE(Contains(DashManifest(presentation), "value=\"forced-subtitle\"/><Label>Signs<"));
}

TEST(CmafRenditions, CopyARotatedFilmWithTheSizeThatIsShown) {
  Json::Value document = FilmOf("h264", 1920, 1080);
  document["track_info"]["video"][0]["rotate"] = 270;
  const CmafRendition copy = ListCmafRenditions(KnownFilm(document), Copied()).front();
  EXPECT_EQ(copy.name, "copy-video");
  EXPECT_EQ(copy.width, 1080U);
  EXPECT_EQ(copy.height, 1920U);
}

TEST(CmafPlan, IsReadAsItWasWritten) {
  const orvo::CmafPlan plan{24'000, 1001, 7508, {0, 90'090, 180'180}};
  const auto read = orvo::CmafPlan::Parse(plan.Text());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->Text(), plan.Text());
  EXPECT_EQ(read->Frame(), 3754);
  EXPECT_EQ(read->At(90'089), 0);
  EXPECT_EQ(read->At(90'090), 1);
  EXPECT_EQ(read->At(999'999), 1);
}

TEST(CmafPlan, IsNotReadFromADamagedFile) {
  for (const char* const text :
       {"", "25\n", "25\n1\n0\n0\n", "25\n1\n0\n0\n-5\n", "25\n1\n0\n9\n5\n", "0\n1\n0\n0\n5\n",
        "25\n1\n0\n0\n5", "25\n1\n0\n0\nx\n"}) {
    EXPECT_FALSE(orvo::CmafPlan::Parse(text)) << text;
  }
}

}  // namespace
}  // namespace LibOrvoQMX
