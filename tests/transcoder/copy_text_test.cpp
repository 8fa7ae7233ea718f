#include "transcoder/copy_text.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using orvo::transcoder::CmafRequest;
using orvo::transcoder::FilmCopy;
using orvo::transcoder::ParseCopyWork;
using orvo::transcoder::SoundRecipe;
using orvo::transcoder::TextOf;
using orvo::transcoder::Treatment;

std::optional<FilmCopy> ParseFilmCopy(const std::string& text) {
  const auto work = ParseCopyWork(text);
  const auto* const copy = work ? std::get_if<FilmCopy>(&*work) : nullptr;
  return copy != nullptr ? std::optional(*copy) : std::nullopt;
}

FilmCopy Whole() {
  FilmCopy copy{"/films/a \n\"b\".mkv",
                103.28,
                "h264_mp4toannexb",
                {true, 0, false},
                {true, 2, true},
                SoundRecipe{"aac", "fast", 128000, 48000, "aresample=48000", -512},
                {"mp4", "movflags=frag_keyframe"}};
  return copy;
}

TEST(CopyText, IsReadBackUnchanged) {
  const auto read = ParseFilmCopy(TextOf(Whole()));
  ASSERT_TRUE(read && read->recipe);
  EXPECT_EQ(read->film, Whole().film);
  EXPECT_EQ(read->seek, 103.28);
  EXPECT_EQ(read->pictureFilters, "h264_mp4toannexb");
  EXPECT_EQ(read->format.name, "mp4");
  EXPECT_EQ(read->format.options, "movflags=frag_keyframe");
  EXPECT_TRUE(read->pictures.isWanted && !read->pictures.isOptional);
  EXPECT_EQ(read->sound.number, 2);
  EXPECT_TRUE(read->sound.isOptional);
  EXPECT_EQ(read->recipe->encoder, "aac");
  EXPECT_EQ(read->recipe->coder, "fast");
  EXPECT_EQ(read->recipe->bitRate, 128000);
  EXPECT_EQ(read->recipe->rate, 48000);
  EXPECT_EQ(read->recipe->filters, "aresample=48000");
  EXPECT_EQ(read->recipe->first, -512);
}

TEST(CopyText, HasNoRecipeForCopiedSoundAndNoFirstSampleForSoundThatIsNotCounted) {
  FilmCopy copy = Whole();
  copy.recipe->first.reset();
  const auto uncounted = ParseFilmCopy(TextOf(copy));
  ASSERT_TRUE(uncounted && uncounted->recipe);
  EXPECT_FALSE(uncounted->recipe->first);
  copy.recipe.reset();
  const auto copied = ParseFilmCopy(TextOf(copy));
  ASSERT_TRUE(copied);
  EXPECT_FALSE(copied->recipe);
}

TEST(CopyText, WithoutAnyOfItsBytesIsNoCopy) {
  const std::string text = TextOf(Whole());
  for (size_t length = 0; length < text.size(); ++length) {
    EXPECT_FALSE(ParseFilmCopy(text.substr(0, length))) << length;
  }
  EXPECT_FALSE(ParseFilmCopy(text + "more"));
}

std::string Text(const std::vector<std::string>& values) {
  std::string text;
  for (const std::string& value : values) {
    text.append(value).push_back('\0');
  }
  return text;
}

std::vector<std::string> Values() {
  return {"0", "a.mkv", "1", "", "mpegts", "", "1", "0", "0", "1", "0", "0", "0"};
}

TEST(CopyText, WithAValueOfAnotherKindIsNoCopy) {
  EXPECT_TRUE(ParseFilmCopy(Text(Values())));
  for (const auto& [place, value] : {std::pair(2, "1s"), {6, "7"}, {7, ""}}) {
    auto values = Values();
    values[static_cast<size_t>(place)] = value;
    EXPECT_FALSE(ParseFilmCopy(Text(values))) << place;
  }
}

TEST(CopyText, NamesNoContainerThatWritesFilesOfItsOwn) {
  for (const char* const name : {"hls", "tee", "segment", ""}) {
    auto values = Values();
    values[4] = name;
    EXPECT_FALSE(ParseFilmCopy(Text(values))) << name;
  }
}

TEST(CopyText, NamesTheTrackAndThePlaceOfPackets) {
  CmafRequest packets;
  packets.track = 2;
  packets.from = 61.44;
  const auto work = ParseCopyWork(TextOf(packets));
  const auto* const read = work ? std::get_if<CmafRequest>(&*work) : nullptr;
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->treatment, Treatment::kPackets);
  EXPECT_EQ(read->track, 2);
  EXPECT_EQ(read->from, 61.44);
  EXPECT_FALSE(ParseCopyWork(Text({"1", "2"})));
  EXPECT_FALSE(ParseCopyWork(Text({"2", "2", "61.44"})));
  EXPECT_FALSE(ParseCopyWork(Text({"-1", "2", "61.44"})));
}

}  // namespace
