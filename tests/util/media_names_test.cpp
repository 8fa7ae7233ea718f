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

TEST(MediaNames, SystemFoldersAndHiddenFoldersAreNoLibrary) {
  for (const char* name : {"@ea", "@eaDir", "@tmp", ".git", ".", "#recycle", "#Recycle",
                           "$RECYCLE.BIN", "lost+found", "System Volume Information", ""}) {
    EXPECT_TRUE(orvo::IsSystemFolderName(name)) << name;
  }
  for (const char* name : {"films", "ea", "a@b", "lost", "recycle", "#1 hits", "$"}) {
    EXPECT_FALSE(orvo::IsSystemFolderName(name)) << name;
  }
}
