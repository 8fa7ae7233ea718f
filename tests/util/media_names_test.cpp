#include "util/media_names.h"

#include <gtest/gtest.h>

TEST(MediaNames, AFilmIsRecognisedByItsEndingInAnyCase) {
  for (const char* name : {"a.mkv", "A.MKV", "a b.m2ts", "a.tar.mp4", "@home.mp4"}) {
    EXPECT_TRUE(orvo::IsFilmName(name)) << name;
  }
  for (const char* name : {"", "mkv", ".mkv", ".a.mkv", "a.mkv.part", "a.srt", "a."}) {
    EXPECT_FALSE(orvo::IsFilmName(name)) << name;
  }
}

TEST(MediaNames, MusicIsPlayableAndNoFilm) {
  for (const char* name : {"a.flac", "A.MP3", "a.m4a", "a.opus", "a.ogg", "a.mka"}) {
    EXPECT_TRUE(orvo::IsMusicName(name) && orvo::IsPlayableName(name)) << name;
    EXPECT_FALSE(orvo::IsFilmName(name)) << name;
  }
  EXPECT_TRUE(orvo::IsPlayableName("a.mkv"));
  EXPECT_FALSE(orvo::IsMusicName("a.mkv"));
  EXPECT_FALSE(orvo::IsPlayableName(".a.mp3"));
  EXPECT_FALSE(orvo::IsPlayableName("mp3"));
}

TEST(MediaNames, SystemFoldersAndHiddenFoldersAreNoLibrary) {
  for (const char* name : {"@ea", "@eaDir", "@tmp", ".git", ".", "#recycle", "#Recycle",
                           "$RECYCLE.BIN", "lost+found", "System Volume Information", ""}) {
    EXPECT_TRUE(orvo::IsSystemFolderName(name)) << name;
  }
  for (const char* name : {"films", "ea", "a@b", "lost", "recycle", "#1 hits", "$"}) {
    EXPECT_FALSE(orvo::IsSystemFolderName(name)) << name;
  }
}
