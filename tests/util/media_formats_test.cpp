#include "util/media_formats.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/plat.h"

namespace {

using Names = std::set<std::string>;

struct Refused {
  std::string_view demuxer;
  std::string_view reason;
};
// What FFmpeg can read and a film must not be.
constexpr std::array kRefused = {
    Refused{"alsa", "a device"},
    Refused{"avisynth", "a script that opens files"},
    Refused{"concat", "a playlist"},
    Refused{"dash", "a playlist"},
    Refused{"fbdev", "a device"},
    Refused{"ffmetadata", "a script: tags and chapters for another film"},
    Refused{"hls", "a playlist"},
    Refused{"iec61883", "a device"},
    Refused{"image2", "a pattern that names many files"},
    Refused{"imf", "a composition that names many files"},
    Refused{"jack", "a device"},
    Refused{"kmsgrab", "a device"},
    Refused{"lavfi", "a filter graph, which can open files"},
    Refused{"libcdio", "a device"},
    Refused{"libdc1394", "a device"},
    Refused{"mlv", "goes on in the files .M00, .M01 and so on beside it"},
    Refused{"openal", "a device"},
    Refused{"oss", "a device"},
    Refused{"pulse", "a device"},
    Refused{"rtp", "a network address"},
    Refused{"rtsp", "a network address"},
    Refused{"sap", "a network address"},
    Refused{"sbg", "a script that makes sound without end"},
    Refused{"sdp", "a description that names network addresses"},
    Refused{"vapoursynth", "a script that opens files"},
    Refused{"video4linux2", "a device"},
    Refused{"vobsub", "an index that opens the .sub file beside it"},
    Refused{"webm_dash_manifest", "describes a film for a playlist and gives none of its content"},
    Refused{"x11grab", "a device"},
};

Names Split(const std::string& list) {
  Names names;
  std::istringstream stream(list);
  for (std::string name; std::getline(stream, name, ',');) {
    EXPECT_TRUE(names.insert(name).second) << name << " twice";
  }
  return names;
}

// The first name of each demuxer of the installed FFmpeg.
Names InstalledDemuxers() {
  std::string listing;
  EXPECT_EQ(orvo::RunWithin("/usr/bin/ffmpeg", {"ffmpeg", "-loglevel", "quiet", "-demuxers"}, 30000,
                            &listing),
            0);
  Names names;
  std::istringstream lines(listing.substr(std::min(listing.find("--\n"), listing.size())));
  for (std::string line, flags, name; std::getline(lines, line);) {
    if (std::istringstream(line) >> flags >> name) {
      names.insert(name.substr(0, name.find(',')));
    }
  }
  return names;
}

bool IsRefused(const std::string& demuxer) {
  return std::any_of(kRefused.begin(), kRefused.end(),
                     [&](const Refused& row) { return row.demuxer == demuxer; });
}

TEST(MediaFormats, EveryDemuxerIsEitherAFilmOrRefusedForAReason) {
  const Names films = Split(orvo::kSelfContainedFormats);
  const Names installed = InstalledDemuxers();
  EXPECT_GT(installed.size(), 200U);
  for (const std::string& demuxer : installed) {
    EXPECT_NE(films.count(demuxer) != 0, IsRefused(demuxer)) << demuxer;
  }
}

TEST(MediaFormats, TheRefusedAreNotAmongTheFilms) {
  const Names films = Split(orvo::kSelfContainedFormats);
  for (const Refused& row : kRefused) {
    EXPECT_EQ(films.count(std::string(row.demuxer)), 0U) << row.demuxer << ": " << row.reason;
  }
}

TEST(MediaFormats, RecordingsAndOldCodecsAreFilms) {
  const Names films = Split(orvo::kSelfContainedFormats);
  for (const char* demuxer :
       {"live_flv", "daud", "adx", "matroska", "mov", "mpegts", "avi", "asf"}) {
    EXPECT_EQ(films.count(demuxer), 1U) << demuxer;
  }
}

}  // namespace
