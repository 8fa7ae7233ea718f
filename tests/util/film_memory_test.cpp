#include "util/film_memory.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/sysroot.h"

namespace {

using orvo::FilmMemory;
using orvo::Job;
using orvo::LimitsOf;

class MemoryOfFilms : public test::Sysroot {
 protected:
  orvo::MediaFile Film(const std::string& name) {
    Write(name, "a film");
    return orvo::MediaFile::Open(Path(name));
  }
};

TEST_F(MemoryOfFilms, IsAtMostOneGibibyteForEach) {
  const auto own = [](Job job) {
    const auto limits = LimitsOf(job);
    return (limits.writable != 0 ? limits.writable : limits.memory) + limits.file;
  };
  const uint64_t first = std::max(LimitsOf(Job::kProbe).memory, own(Job::kPicture));
  const uint64_t analysis = LimitsOf(Job::kAnalysis).memory;
  EXPECT_LE(first + own(Job::kSubtitles) + analysis, 1024U);
}

TEST_F(MemoryOfFilms, HasOnePlaceForAProbeOrAPicture) {
  const auto film = Film("/film");
  auto probe = FilmMemory::Take(film, Job::kProbe, 0);
  EXPECT_TRUE(probe);
  EXPECT_FALSE(FilmMemory::Take(film, Job::kPicture, 0));
  probe.reset();
  EXPECT_TRUE(FilmMemory::Take(film, Job::kPicture, 0));
}

TEST_F(MemoryOfFilms, HasOnePlaceForEachLongJob) {
  const auto film = Film("/film");
  const auto probe = FilmMemory::Take(film, Job::kProbe, 0);
  const auto subtitles = FilmMemory::Take(film, Job::kSubtitles, 0);
  const auto analysis = FilmMemory::Take(film, Job::kAnalysis, 0);
  EXPECT_TRUE(probe && subtitles && analysis);
  EXPECT_FALSE(FilmMemory::Take(film, Job::kSubtitles, 0));
  EXPECT_FALSE(FilmMemory::Take(film, Job::kAnalysis, 0));
}

TEST_F(MemoryOfFilms, DoesNotConcernOtherFilms) {
  const auto film = Film("/film");
  const auto probe = FilmMemory::Take(film, Job::kProbe, 0);
  EXPECT_TRUE(FilmMemory::Take(Film("/other"), Job::kProbe, 0));
}

TEST_F(MemoryOfFilms, IsNotCountedForAProgramThatMayNotUseTheFolder) {
  Write("/tmp/Mirevo/work", "no folder");
  const auto film = Film("/film");
  const auto probe = FilmMemory::Take(film, Job::kProbe, 0);
  EXPECT_TRUE(FilmMemory::Take(film, Job::kProbe, 0));
}

}  // namespace
