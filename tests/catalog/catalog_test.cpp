#include "catalog/catalog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/processes.h"
#include "support/sysroot.h"

namespace {

namespace fs = std::filesystem;
using catalog::CatalogReader;
using catalog::CatalogWriter;
using catalog::Entry;
using Names = std::vector<std::string>;
using Result = CatalogWriter::Result;
using Trust = CatalogWriter::Trust;

constexpr char kDatabase[] = "/var/packages/Mirevo/cache/catalog/films.db";
constexpr uid_t kStranger = 65534;

class Catalog : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    for (const char* name : {"film 10.mkv", "film 2.mkv", "Film 1.mkv", ".hidden.mkv", "a.txt"}) {
      Write(std::string("/films/") + name, "film");
    }
    MakeDirectory("/films/zoo");
    MakeDirectory("/films/@ea");
    Settle("/films");
  }
  // Remembers the folder with an old time, which every change replaces.
  void Settle(const std::string& folder) const {
    const timespec old[2] = {{100, 0}, {100, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Path(folder).c_str(), old, 0), 0);
    ASSERT_EQ(CatalogWriter().Remember(Path(folder), Trust::kAnyState), Result::kDone);
  }
  Names List(int64_t offset = 0, int64_t limit = 1000) const {
    Names names;
    if (const auto page = CatalogReader().Read(Path("/films"), offset, limit)) {
      for (const Entry& entry : page->entries) {
        names.push_back(entry.name);
      }
    }
    return names;
  }
  bool IsRemembered() const { return CatalogWriter().IsCurrent(Path("/films")); }
  // Changes the remembered name of a film behind the folder's back, so that a test can tell where a
  // reader has looked.
  void Rename(const std::string& from, const std::string& to) const {
    const catalog::Database database(Path(kDatabase), catalog::Database::Use::kWrite);
    ASSERT_TRUE(
        database.Prepare("UPDATE entries SET name = ? WHERE name = ?").With(to).With(from).Run());
  }

  const Names all_ = {"zoo", "Film 1.mkv", "film 2.mkv", "film 10.mkv"};
};

TEST_F(Catalog, AnswersForAFolderThatHasNotChanged) {
  ASSERT_TRUE(IsRemembered());
  EXPECT_EQ(List(), all_);
  Rename("film 2.mkv", "marked.mkv");
  EXPECT_EQ(List()[2], "marked.mkv") << "the answer comes from the database";
}

TEST_F(Catalog, AFolderThatHasChangedIsReadFromTheDisk) {
  Rename("film 2.mkv", "marked.mkv");
  Write("/films/film 3.mkv", "film");
  EXPECT_EQ(List(), (Names{"zoo", "Film 1.mkv", "film 2.mkv", "film 3.mkv", "film 10.mkv"}));
  fs::remove(Path("/films/film 3.mkv"));
  EXPECT_EQ(List(), all_) << "the time of the folder has changed";
}

TEST_F(Catalog, PagesAreTheSameWithAndWithoutTheDatabase) {
  for (const bool isRemembered : {true, false}) {
    SCOPED_TRACE(isRemembered);
    EXPECT_EQ(IsRemembered(), isRemembered);
    EXPECT_EQ(List(0, 2), (Names{"zoo", "Film 1.mkv"}));
    EXPECT_EQ(List(2, 2), (Names{"film 2.mkv", "film 10.mkv"}));
    EXPECT_EQ(List(4, 2), Names());
    EXPECT_FALSE(CatalogReader().Read(Path("/films"), 0, 3)->isLast);
    EXPECT_TRUE(CatalogReader().Read(Path("/films"), 2, 2)->isLast);
    EXPECT_TRUE(CatalogReader().Read(Path("/films"), 9, 2)->isLast);
    fs::remove(Path(kDatabase));
    Write("/films/film 2.mkv.part", "");  // changes the folder, but no entry
  }
}

TEST_F(Catalog, AFolderThatChangesNowIsNotRemembered) {
  Write("/films/film 3.mkv", "film");
  CatalogWriter writer;
  EXPECT_EQ(writer.Remember(Path("/films")), Result::kNotYet);
  EXPECT_FALSE(writer.IsCurrent(Path("/films")));
}

TEST_F(Catalog, AFolderThatIsGoneIsForgotten) {
  fs::remove_all(Path("/films"));
  EXPECT_FALSE(CatalogReader().Read(Path("/films"), 0, 10));
  CatalogWriter writer;
  EXPECT_EQ(writer.Remember(Path("/films"), Trust::kAnyState), Result::kDone);
  const catalog::Database database(Path(kDatabase), catalog::Database::Use::kRead);
  EXPECT_FALSE(database.Prepare("SELECT 1 FROM folders").Step());
  EXPECT_FALSE(database.Prepare("SELECT 1 FROM entries").Step());
}

TEST_F(Catalog, ForgetsFoldersOutsideTheRoots) {
  CatalogWriter().ForgetOthers({Path("/film"), Path("/films/zoo")});
  EXPECT_FALSE(IsRemembered());
  Settle("/films");
  CatalogWriter().ForgetOthers({Path("/films")});
  EXPECT_TRUE(IsRemembered());
}

TEST_F(Catalog, ADamagedDatabaseIsMadeAnew) {
  const std::string content = Read(kDatabase);
  for (const std::string& damaged :
       {std::string("no database"), content.substr(0, content.size() / 2),
        content.substr(0, 4096) + std::string(100, 'x') + content.substr(4196)}) {
    for (const char* ending : {"-wal", "-shm"}) {
      fs::remove(Path(kDatabase) + ending);
    }
    Write(kDatabase, damaged);
    EXPECT_EQ(List(), all_) << "readers look at the disk";
    CatalogWriter writer;
    EXPECT_TRUE(writer.TakeLoss());
    EXPECT_EQ(writer.Remember(Path("/films"), Trust::kAnyState), Result::kDone);
    EXPECT_TRUE(writer.IsCurrent(Path("/films")));
  }
}

TEST_F(Catalog, ADatabaseOfAnotherVersionIsMadeAnew) {
  Rename("film 2.mkv", "marked.mkv");
  catalog::Database(Path(kDatabase), catalog::Database::Use::kWrite)
      .Run("PRAGMA user_version = 99");
  EXPECT_EQ(List(), all_) << "readers look at the disk";
  CatalogWriter writer;
  EXPECT_TRUE(writer.TakeLoss());
  EXPECT_FALSE(writer.IsCurrent(Path("/films")));
}

TEST_F(Catalog, ADatabaseThatIsDeletedIsMadeAnew) {
  CatalogWriter writer;
  EXPECT_FALSE(writer.TakeLoss());
  fs::remove_all(Path("/var/packages/Mirevo/cache/catalog"));
  EXPECT_EQ(List(), all_);
  EXPECT_EQ(writer.Remember(Path("/films"), Trust::kAnyState), Result::kDone);
  EXPECT_TRUE(writer.TakeLoss());
  EXPECT_TRUE(IsRemembered());
}

TEST_F(Catalog, AReaderSeesTheOldStateOrTheNewOneWhileAnotherProcessWrites) {
  const pid_t parent = getpid();
  test::Child writing([&] {
    CatalogWriter writer;
    while (getppid() == parent) {
      writer.Remember(Path("/films"), Trust::kAnyState);
    }
  });
  for (int round = 0; round < 200; ++round) {
    EXPECT_EQ(List(), all_);
  }
  writing.Kill(SIGKILL);
  writing.Wait();
  CatalogWriter writer;
  EXPECT_FALSE(writer.TakeLoss()) << "a kill damages nothing";
  EXPECT_EQ(List(), all_);
}

TEST_F(Catalog, ARememberedNameCannotLeadElsewhere) {
  for (const char* name : {"../secret.mkv", "zoo/a.mkv", "..", "", ".hidden.mkv"}) {
    Rename("film 2.mkv", name);
    EXPECT_EQ(List(), (Names{"zoo", "Film 1.mkv", "film 10.mkv"})) << name;
    Rename(name, "film 2.mkv");
  }
}

TEST_F(Catalog, OtherUsersCannotReadIt) {
  struct stat status {};
  ASSERT_EQ(stat(fs::path(Path(kDatabase)).parent_path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
}

TEST_F(Catalog, AReaderWithoutTheRightToReadAFolderGetsNothing) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can act for two users";
  }
  ASSERT_EQ(chmod(Path("/films").c_str(), 0700), 0);
  Settle("/films");
  ASSERT_EQ(chown(fs::path(Path(kDatabase)).parent_path().c_str(), kStranger, 0), 0);
  ASSERT_EQ(chown(Path(kDatabase).c_str(), kStranger, 0), 0);
  test::InChild([&] {
    ASSERT_EQ(setuid(kStranger), 0);
    EXPECT_FALSE(CatalogReader().Read(Path("/films"), 0, 10));
  });
}

}  // namespace
