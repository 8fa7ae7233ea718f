#include "util/json_utils.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using namespace LibMirevo;
using List = std::vector<std::string>;

class JsonFiles : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    file_ = Path("/file.json");
  }
  std::string file_;
};

TEST_F(JsonFiles, ReturnTheWrittenValue) {
  const Json::Value value = test::ParseText(R"({"b":[1,2.5,null,true],"a":"\u00e4\"\n"})");
  EXPECT_TRUE(WriteJsonToFile(file_, value));
  Json::Value again;
  EXPECT_TRUE(ReadJsonFromFile(file_, again));
  EXPECT_EQ(again, value);
  EXPECT_TRUE(test::TakeLog().empty());
}

TEST_F(JsonFiles, HoldOneCompactLine) {
  EXPECT_TRUE(WriteJsonToFile(file_, test::ParseText(R"({"b": [1, 2], "a": true})")));
  EXPECT_EQ(Read("/file.json"), "{\"a\":true,\"b\":[1,2]}\n");
  EXPECT_TRUE(WriteJsonToFileWithoutLock(file_, Json::Value(Json::arrayValue)));
  EXPECT_EQ(Read("/file.json"), "[]\n") << "nothing of the longer content is left";
}

TEST_F(JsonFiles, ThatAreMissingAreNotReadAndNotLogged) {
  Json::Value value;
  EXPECT_FALSE(ReadJsonFromFile(file_, value));
  EXPECT_FALSE(ReadJsonFromFileWithoutLock(file_, value));
  EXPECT_TRUE(test::TakeLog().empty());
  EXPECT_FALSE(Exists("/file.json")) << "reading makes no file";
}

TEST_F(JsonFiles, WithoutANameAreLoggedAsABadParameter) {
  Json::Value value;
  EXPECT_FALSE(ReadJsonFromFile("", value));
  EXPECT_FALSE(ReadJsonFromFileWithoutLock("", value));
  EXPECT_FALSE(WriteJsonToFile("", value));
  EXPECT_FALSE(WriteJsonToFileWithoutLock("", value));
  EXPECT_EQ(test::TakeLogTexts(), List(4, "json_utils:N Bad parameter"));
}

TEST_F(JsonFiles, ThatAreDamagedAreLogged) {
  const List contents = {"",
                         "no json",
                         "[1,",
                         "{\"a\"",
                         std::string(20000, '['),
                         std::string(500000, '{'),
                         std::string("\0\0\0", 3),
                         "\xff\xfe",
                         "\"unended"};
  for (const std::string& content : contents) {
    Write("/file.json", content);
    Json::Value value;
    EXPECT_FALSE(ReadJsonFromFile(file_, value)) << content.substr(0, 20);
    EXPECT_EQ(test::TakeLogTexts(), List{"json_utils:N Failed to parse json file [" + file_ + "]"})
        << content.substr(0, 20);
  }
}

TEST_F(JsonFiles, WithEndlessNestingAreDamaged) {
  for (const char* piece : {"[", "{\"a\":", "[[],"}) {
    std::string text;
    while (text.size() < 1 << 20) {
      text += piece;
    }
    Write("/nested", text);
    Json::Value value;
    EXPECT_FALSE(LibMirevo::ReadJsonFromFile(Path("/nested"), value)) << piece;
  }
}

TEST_F(JsonFiles, WithoutAnEndAreNotRead) {
  Write("/endless", "");
  ASSERT_EQ(truncate(Path("/endless").c_str(), off_t{1} << 40), 0);
  Json::Value value;
  EXPECT_FALSE(LibMirevo::ReadJsonFromFile(Path("/endless"), value));
}

TEST_F(JsonFiles, MayHoldComments) {
  Write("/file.json", "// first\n{\"a\": /* here */ 1}\n");
  Json::Value value;
  EXPECT_TRUE(ReadJsonFromFile(file_, value));
  EXPECT_EQ(value["a"], 1);
}

TEST_F(JsonFiles, ThatCannotBeWrittenAreLogged) {
  const std::string path = Path("/missing/file.json");
  EXPECT_FALSE(WriteJsonToFile(path, Json::Value(1)));
  EXPECT_FALSE(WriteJsonToFileWithoutLock(path, Json::Value(1)));
  EXPECT_EQ(test::TakeLogTexts(), List(2, "json_utils:N failed to write json file [" + path + "]"));
  EXPECT_FALSE(WriteJsonToFile("/dev/full", Json::Value(1))) << "a full disk";
  EXPECT_EQ(test::TakeLogTexts(), List{"json_utils:N failed to write json file [/dev/full]"});
}

TEST_F(JsonFiles, GetTheModeThatTheUmaskAllows) {
  const mode_t old = umask(0);
  EXPECT_TRUE(WriteJsonToFile(file_, Json::Value(1)));
  umask(old);
  struct stat status {};
  ASSERT_EQ(stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0664U);
}

TEST_F(JsonFiles, KeepTheirIdentityWhenWritten) {
  Write("/file.json", "[]");
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(stat(file_.c_str(), &before), 0);
  EXPECT_TRUE(WriteJsonToFile(file_, Json::Value(1)));
  ASSERT_EQ(stat(file_.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino) << "whoever holds its lock holds the lock of this file";
}

// Runs `operation` in a child while this process holds a lock of this kind on the file. "blocked"
// when it had to wait.
std::string OutcomeUnderLock(const std::string& path, int kind,
                             const std::function<void()>& operation) {
  const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_EQ(flock(file, kind), 0);
  test::Pipe done;
  test::Child child([&] {
    // A lock that has to be waited for is interrupted by nobody: /proc tells that the child waits.
    close(file);
    operation();
    done.Write("x");
  });
  done.CloseWrite();
  std::string outcome;
  const std::string state = "/proc/" + std::to_string(child.Pid()) + "/syscall";
  const std::string kFlock = std::to_string(SYS_flock) + " ";
  // Ends with one of two events: the operation is done, or the kernel shows the child inside flock.
  for (;;) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(child.Pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        info.si_pid != 0) {
      outcome = "done";
      break;
    }
    if (test::ReadWhole(state).rfind(kFlock, 0) == 0) {
      outcome = "blocked";
      break;
    }
    sched_yield();
  }
  flock(file, LOCK_UN);
  close(file);
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(done.ReadToEnd(), "x");
  return outcome;
}

TEST_F(JsonFiles, AreReadTogetherAndWrittenAlone) {
  Write("/file.json", "[1]");
  const auto read = [this] {
    Json::Value value;
    EXPECT_TRUE(ReadJsonFromFile(file_, value));
  };
  const auto write = [this] { EXPECT_TRUE(WriteJsonToFile(file_, Json::Value(2))); };
  const auto readUnlocked = [this] {
    Json::Value value;
    EXPECT_TRUE(ReadJsonFromFileWithoutLock(file_, value));
  };
  const auto writeUnlocked = [this] {
    EXPECT_TRUE(WriteJsonToFileWithoutLock(file_, Json::Value(2)));
  };
  EXPECT_EQ(OutcomeUnderLock(file_, LOCK_SH, read), "done");
  EXPECT_EQ(OutcomeUnderLock(file_, LOCK_EX, read), "blocked");
  EXPECT_EQ(OutcomeUnderLock(file_, LOCK_SH, write), "blocked");
  EXPECT_EQ(OutcomeUnderLock(file_, LOCK_EX, write), "blocked");
  EXPECT_EQ(OutcomeUnderLock(file_, LOCK_EX, readUnlocked), "done");
  EXPECT_EQ(OutcomeUnderLock(file_, LOCK_EX, writeUnlocked), "done");
}

TEST_F(JsonFiles, AreNeverSeenHalfWrittenByALockedReader) {
  // Two values of different lengths, larger than one page.
  Json::Value longer(Json::arrayValue);
  for (int i = 0; i < 3000; ++i) {
    longer.append("element " + std::to_string(i));
  }
  Json::Value shorter(Json::arrayValue);
  shorter.append("alone");
  ASSERT_TRUE(WriteJsonToFile(file_, shorter));
  test::Child writer([&] {
    for (int i = 0; i < 200; ++i) {
      WriteJsonToFile(file_, i % 2 == 0 ? longer : shorter);
    }
  });
  for (int i = 0; i < 200; ++i) {
    Json::Value value;
    ASSERT_TRUE(ReadJsonFromFile(file_, value));
    ASSERT_TRUE(value == longer || value == shorter) << value.size();
  }
  EXPECT_EQ(writer.Wait(), 0);
}

}  // namespace
