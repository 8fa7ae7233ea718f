// What an owner can set: media folders, limits, hardware.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "settings/hardware.h"
#include "settings/limits.h"
#include "settings/media_folders.h"
#include "support/sysroot.h"

namespace {

using settings::FolderOutcome;
using settings::Outcome;

constexpr char kAddedFile[] = "/var/packages/Mirevo/etc/added_folders";
constexpr char kLimitsFile[] = "/var/packages/Mirevo/etc/limits";
constexpr char kAdvancedFile[] = "/var/packages/Mirevo/etc/advanced.conf";
constexpr char kVaapiFile[] = "/var/packages/Mirevo/etc/vaapi_ffmpeg";

class Settings : public test::Sysroot {
 protected:
  void SetUp() override {
    test::Sysroot::SetUp();
    MakeDirectory("/var/packages/Mirevo/etc");
  }

  std::string Folder(const std::string& path) const {
    MakeDirectory(path);
    return Path(path);
  }

  // The shown folders, those that were added marked with "+".
  static std::vector<std::string> Shown() {
    std::vector<std::string> paths;
    for (const settings::MediaFolder& folder : settings::MediaFolders()) {
      paths.push_back((folder.isAdded ? "+" : "") + folder.path);
    }
    return paths;
  }
};

TEST_F(Settings, AnAddedFolderStaysWhenOthersAreNamedAtTheStart) {
  const std::string films = Folder("/films");
  const std::string music = Folder("/music");
  ASSERT_EQ(settings::NameFolders({films}), FolderOutcome::kDone);
  ASSERT_EQ(settings::AddFolder(music), FolderOutcome::kDone);
  EXPECT_EQ(Shown(), (std::vector<std::string>{films, "+" + music}));
  ASSERT_EQ(settings::NameFolders({Path("/other")}), FolderOutcome::kDone);
  EXPECT_EQ(Shown(), (std::vector<std::string>{Path("/other"), "+" + music}));
}

TEST_F(Settings, AnAddedFolderThatIsNamedAtTheStartCountsAsNamed) {
  const std::string films = Folder("/films");
  settings::AddFolder(films);
  ASSERT_EQ(settings::NameFolders({films}), FolderOutcome::kDone);
  EXPECT_EQ(Shown(), std::vector<std::string>{films});
  EXPECT_EQ(settings::RemoveFolder(films), FolderOutcome::kNamed);
}

TEST_F(Settings, OnlyAddedFoldersCanBeRemovedEvenWhenTheyAreGone) {
  const std::string films = Folder("/films");
  const std::string music = Folder("/music");
  settings::NameFolders({films});
  settings::AddFolder(music);
  rmdir(music.c_str());
  EXPECT_EQ(settings::RemoveFolder(films), FolderOutcome::kNamed);
  EXPECT_EQ(settings::RemoveFolder(music), FolderOutcome::kDone);
  EXPECT_EQ(settings::RemoveFolder(music), FolderOutcome::kDone);
  EXPECT_EQ(Shown(), std::vector<std::string>{films});
}

TEST_F(Settings, AFolderIsAddedOnceAndWithoutLinks) {
  const std::string films = Folder("/films");
  const std::string inside = Folder("/films/inside");
  ASSERT_EQ(symlink(films.c_str(), Path("/link").c_str()), 0);
  EXPECT_EQ(settings::AddFolder(Path("/link")), FolderOutcome::kDone);
  EXPECT_EQ(settings::AddFolder(films + "/"), FolderOutcome::kDone);
  EXPECT_EQ(settings::AddFolder(inside), FolderOutcome::kInside);
  EXPECT_EQ(Shown(), std::vector<std::string>{"+" + films});
}

TEST_F(Settings, FoldersThatAreNoPlaceForFilmsAreRefused) {
  Write("/file", "");
  ASSERT_EQ(symlink(Path("/var/packages/Mirevo").c_str(), Path("/hidden").c_str()), 0);
  const std::pair<std::string, FolderOutcome> cases[] = {
      {"", FolderOutcome::kBadText},
      {"films", FolderOutcome::kBadText},
      {"../films", FolderOutcome::kBadText},
      {"/films\n", FolderOutcome::kBadText},
      {"/films\x7f", FolderOutcome::kBadText},
      {"/films\xff", FolderOutcome::kBadText},
      {"/" + std::string(5000, 'a'), FolderOutcome::kBadText},
      {"/", FolderOutcome::kWholeDisk},
      {"//usr/..", FolderOutcome::kWholeDisk},
      {"/proc/self", FolderOutcome::kSystem},
      {"/etc", FolderOutcome::kSystem},
      {Path("/nothing"), FolderOutcome::kNoFolder},
      {Path("/file"), FolderOutcome::kNoFolder},
      {Path("/var/packages/Mirevo/etc"), FolderOutcome::kState},
      {Path("/var/packages"), FolderOutcome::kState},
      {Path("/hidden"), FolderOutcome::kState},
      {Path(""), FolderOutcome::kState},
  };
  for (const auto& [path, outcome] : cases) {
    EXPECT_EQ(settings::AddFolder(path), outcome) << path;
  }
  EXPECT_EQ(Shown(), std::vector<std::string>{});
}

TEST_F(Settings, AFolderThatTheServiceCannotReadIsRefused) {
  if (geteuid() == 0) {
    GTEST_SKIP() << "root can read everything";
  }
  const std::string films = Folder("/films");
  chmod(films.c_str(), 0);
  EXPECT_EQ(settings::AddFolder(films), FolderOutcome::kUnreadable);
}

TEST_F(Settings, ADamagedListStaysAsItIs) {
  const std::string films = Folder("/films");
  for (const char* content : {"{", "{}", "[1]", "\"text\""}) {
    Write(kAddedFile, content);
    EXPECT_EQ(settings::AddFolder(films), FolderOutcome::kDamaged) << content;
    EXPECT_EQ(settings::NameFolders({films}), FolderOutcome::kDamaged) << content;
    EXPECT_EQ(Read(kAddedFile), content);
    EXPECT_EQ(Shown(), std::vector<std::string>{films});
  }
}

TEST_F(Settings, FoldersThatAreAddedAtTheSameTimeAreAllKept) {
  constexpr int kOwners = 8;
  std::vector<std::string> folders;
  std::vector<std::string> expected;
  for (int owner = 0; owner < kOwners; ++owner) {
    folders.push_back(Folder("/films" + std::to_string(owner)));
    expected.push_back("+" + folders.back());
  }
  std::vector<std::thread> owners;
  for (const std::string& folder : folders) {
    owners.emplace_back([folder] { settings::AddFolder(folder); });
  }
  for (std::thread& owner : owners) {
    owner.join();
  }
  std::vector<std::string> shown = Shown();
  std::sort(shown.begin(), shown.end());
  EXPECT_EQ(shown, expected);
}

TEST_F(Settings, ALimitIsTheUsualOneUntilAGoodOneIsSet) {
  using settings::kStreamsPerViewer;
  EXPECT_EQ(settings::ValueOf(kStreamsPerViewer), 200);
  ASSERT_EQ(settings::Set(kStreamsPerViewer, 3), Outcome::kDone);
  ASSERT_EQ(settings::Set(settings::kCacheMegabytes, 16), Outcome::kDone);
  EXPECT_EQ(settings::ValueOf(kStreamsPerViewer), 3);
  EXPECT_EQ(settings::ValueOf(settings::kCacheMegabytes), 16);
  for (const char* content :
       {"", "[]", R"({"streams_per_viewer": 0})", R"({"streams_per_viewer": 1001})",
        R"({"streams_per_viewer": "3"})", R"({"streams_per_viewer": 99999999999})"}) {
    Write(kLimitsFile, content);
    EXPECT_EQ(settings::ValueOf(kStreamsPerViewer), 200) << content;
  }
}

TEST_F(Settings, TheWishForHardwareKeepsOtherSettings) {
  EXPECT_TRUE(settings::IsHardwareWanted());
  Write(kAdvancedFile, R"({"other": 1})");
  Write(kVaapiFile, R"({"another": 2, "enable": true, "detected": true})");
  ASSERT_EQ(settings::WantHardware(false), Outcome::kDone);
  EXPECT_FALSE(settings::IsHardwareWanted());
  EXPECT_EQ(Read(kAdvancedFile), "{\"hardware_transcode\":false,\"other\":1}\n");
  EXPECT_EQ(Read(kVaapiFile), "{\"another\":2,\"enable\":false}\n");
  ASSERT_EQ(settings::WantHardware(true), Outcome::kDone);
  EXPECT_TRUE(settings::IsHardwareWanted());
}

TEST_F(Settings, NothingReplacesAFileThatIsDamaged) {
  for (const char* content : {"", "{\"streams_per_viewer\": 3", "[]", "3"}) {
    for (const char* file : {kLimitsFile, kAdvancedFile, kVaapiFile}) {
      Write(file, content);
    }
    EXPECT_EQ(settings::Set(settings::kStreamsPerViewer, 5), Outcome::kDamaged) << content;
    EXPECT_EQ(settings::WantHardware(true), Outcome::kDamaged) << content;
    EXPECT_EQ(settings::DetectVaapi(true), Outcome::kDamaged) << content;
    for (const char* file : {kLimitsFile, kAdvancedFile, kVaapiFile}) {
      EXPECT_EQ(Read(file), content);
    }
  }
}

TEST_F(Settings, NothingReplacesAFileThatCannotBeReadNow) {
  // Root may read every file, so a link to itself stands for one that cannot be opened.
  ASSERT_EQ(symlink(Path(kLimitsFile).c_str(), Path(kLimitsFile).c_str()), 0);
  EXPECT_EQ(settings::Set(settings::kStreamsPerViewer, 5), Outcome::kDamaged);
  EXPECT_TRUE(std::filesystem::is_symlink(Path(kLimitsFile)));
}

TEST_F(Settings, WhatTheMachineOffersCountsUntilAnOwnerDecides) {
  ASSERT_EQ(settings::DetectVaapi(false), Outcome::kDone);
  EXPECT_FALSE(Exists(kVaapiFile)) << "nothing is there to be switched off";
  ASSERT_EQ(settings::DetectVaapi(true), Outcome::kDone);
  EXPECT_EQ(Read(kVaapiFile), "{\"detected\":true,\"enable\":true}\n");
  ASSERT_EQ(settings::DetectVaapi(false), Outcome::kDone);
  EXPECT_EQ(Read(kVaapiFile), "{\"detected\":true,\"enable\":false}\n");
  ASSERT_EQ(settings::WantHardware(true), Outcome::kDone);
  ASSERT_EQ(settings::DetectVaapi(false), Outcome::kDone);
  EXPECT_EQ(Read(kVaapiFile), "{\"enable\":true}\n");
}

}  // namespace
