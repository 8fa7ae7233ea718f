#include "webapi/library/media_library.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using webapi::Answer;
using webapi::ResolveFilm;
using webapi::ResolveMediaPath;

constexpr char kForbiddenText[] = "Status: 403";
constexpr char kNotFoundText[] = "Status: 404";
constexpr char kBadRequestText[] = "Status: 400";
constexpr uid_t kStranger = 65534;

class MediaLibrary : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    Write("/films/a.mkv", "film");
    Write("/films/.hidden.mkv", "film");
    Write("/films/notes.txt", "text");
    MakeDirectory("/films/more");
    Write("/secret/b.mkv", "film");
    SetRoots({Path("/films")});
  }
  void SetRoots(const std::vector<std::string>& roots) const {
    Json::Value list(Json::arrayValue);
    for (const std::string& root : roots) {
      list.append(root);
    }
    WriteJson("/var/packages/Mirevo/etc/media_roots", list);
  }
  void Link(const std::string& target, const std::string& path) const {
    std::filesystem::create_symlink(Path(target), Path(path));
  }
  // What an answer sends.
  static std::string TextOf(const Answer& answer) {
    testing::internal::CaptureStdout();
    answer.Send(false);
    return testing::internal::GetCapturedStdout();
  }
  static Answer List(const std::string& query) {
    webapi::Request request;
    EXPECT_TRUE(request.AddParameters(query));
    return webapi::ListFolder(request);
  }
  std::string RefusalOf(const std::string& path) const {
    Answer refusal = Answer::Failure(webapi::kInternal);
    return ResolveFilm(path, refusal) ? "" : TextOf(refusal).substr(0, sizeof(kForbiddenText) - 1);
  }
};

TEST_F(MediaLibrary, ServesFilesInARoot) {
  Answer refusal = Answer::Failure(webapi::kInternal);
  EXPECT_EQ(ResolveFilm(Path("/films/a.mkv"), refusal), Path("/films/a.mkv"));
  EXPECT_EQ(ResolveFilm(Path("/films/more/../a.mkv"), refusal), Path("/films/a.mkv"));
  EXPECT_EQ(ResolveMediaPath(Path("/films/more"), refusal), Path("/films/more"));
}

TEST_F(MediaLibrary, RefusesFilesOutsideTheRoots) {
  EXPECT_EQ(RefusalOf(Path("/secret/b.mkv")), kForbiddenText);
  EXPECT_EQ(RefusalOf(Path("/films/../secret/b.mkv")), kForbiddenText);
  // A name that only begins like the root's.
  Write("/films2/c.mkv", "film");
  EXPECT_EQ(RefusalOf(Path("/films2/c.mkv")), kForbiddenText);
}

TEST_F(MediaLibrary, ALinkOutOfARootIsNotFollowed) {
  Link("/secret/b.mkv", "/films/link.mkv");
  Link("/secret", "/films/folder");
  EXPECT_EQ(RefusalOf(Path("/films/link.mkv")), kForbiddenText);
  EXPECT_EQ(RefusalOf(Path("/films/folder/b.mkv")), kForbiddenText);
  const std::string listing = TextOf(List("path=" + Path("/films")));
  EXPECT_EQ(listing.find("link.mkv"), std::string::npos);
  EXPECT_NE(listing.find("a.mkv"), std::string::npos);
}

TEST_F(MediaLibrary, ALinkWithinTheRootsIsFollowed) {
  Link("/films/a.mkv", "/films/more/again.mkv");
  Answer refusal = Answer::Failure(webapi::kInternal);
  EXPECT_EQ(ResolveFilm(Path("/films/more/again.mkv"), refusal), Path("/films/a.mkv"));
}

TEST_F(MediaLibrary, ReportsMissingFilesOnlyInTheRoots) {
  EXPECT_EQ(RefusalOf(Path("/films/none.mkv")), kNotFoundText);
  EXPECT_EQ(RefusalOf(Path("/films/no/none.mkv")), kNotFoundText);
  EXPECT_EQ(RefusalOf(Path("/secret/none.mkv")), kForbiddenText);
  // Neither way around tells which folders there are.
  Link("/secret", "/films/folder");
  for (const char* path : {"/films/../secret/no/none.mkv", "/films/folder/no/none.mkv",
                           "/films/folder/../none.mkv", "/films/folder/none.mkv"}) {
    EXPECT_EQ(RefusalOf(Path(path)), kForbiddenText) << path;
  }
  EXPECT_EQ(RefusalOf("films/a.mkv"), kBadRequestText);
  EXPECT_EQ(RefusalOf(""), kBadRequestText);
  EXPECT_EQ(RefusalOf(Path("/films/more")), kBadRequestText);
}

TEST_F(MediaLibrary, DoesNotRevealTheContentOfAClosedFolder) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can act for two users";
  }
  MakeDirectory("/films/closed/inner");
  ASSERT_EQ(chmod(Path("/films/closed").c_str(), 0700), 0);
  test::InChild([&] {
    ASSERT_EQ(seteuid(kStranger), 0);
    EXPECT_EQ(RefusalOf(Path("/films/closed/none.mkv")), kForbiddenText);
    EXPECT_EQ(RefusalOf(Path("/films/none.mkv")), kNotFoundText);
  });
}

TEST_F(MediaLibrary, AListingLeavesOutHiddenFilesAndFilesThatAreNotFilms) {
  const std::string listing = TextOf(List("path=" + Path("/films")));
  EXPECT_EQ(listing.find("hidden"), std::string::npos);
  EXPECT_EQ(listing.find("notes"), std::string::npos);
  EXPECT_NE(listing.find("more"), std::string::npos);
}

TEST_F(MediaLibrary, ADamagedListOfRootsIsEmpty) {
  for (const char* content : {"", "{", "{}", "7", "[7, null, {}]", R"(["/no/such/folder"])"}) {
    Write("/var/packages/Mirevo/etc/media_roots", content);
    EXPECT_TRUE(webapi::MediaRoots().empty()) << content;
    EXPECT_EQ(RefusalOf(Path("/films/a.mkv")), kForbiddenText) << content;
  }
}

TEST_F(MediaLibrary, AnAccountSeesOnlyItsFolders) {
  test::InChild([&] {
    webapi::LimitMediaRoots({Path("/films/more"), Path("/secret")});
    EXPECT_EQ(webapi::MediaRoots(), std::vector<std::string>{Path("/films/more")});
    EXPECT_EQ(RefusalOf(Path("/films/a.mkv")), kForbiddenText);
    EXPECT_EQ(RefusalOf(Path("/secret/b.mkv")), kForbiddenText);
  });
}

}  // namespace
