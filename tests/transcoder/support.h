// What the transcoder's tests share.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/unique_fd.h"

namespace orvo::transcoder::test {

// A folder of the test's own, gone with its contents at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string MediaPath(const std::string& name);
void WriteText(const std::string& path, const std::string& text);
std::string ReadText(const std::string& path);

struct Pipe {
  Pipe();
  UniqueFd readEnd;
  UniqueFd writeEnd;
};

// Everything up to the end of the file.
std::string Drain(int fd);

struct StartOptions {
  int standardInput = -1;           // below 0: /dev/null
  int standardOutput = -1;          // the same
  int standardError = -1;           // the same
  std::vector<int> pass;            // further descriptors, under the numbers they have
  bool signalsIgnored = false;      // SIGPIPE, SIGINT and SIGTERM ignored and blocked
  bool withoutDescriptors = false;  // 0 to 2 closed
};

// A child process; killed and waited for at the latest with this object.
class Child {
 public:
  Child(const std::vector<std::string>& command, const StartOptions& options);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t Pid() const { return pid_; }
  int Wait();  // the exit status, or 128 + the signal that ended it

 private:
  pid_t pid_;
};

// Runs the transcoder to its end with `arguments`, of which "OUTPUT" stands for the output pipe.
struct Result {
  int status;
  std::string output;  // what came through the pipe
  std::string text;    // what came through standard output
  std::string error;   // what came through standard error
};
Result RunTranscoder(const std::vector<std::string>& arguments);

std::string PipeName(const UniqueFd& fd);

}  // namespace orvo::transcoder::test
