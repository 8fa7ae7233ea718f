// The part of the ready FFmpeg that is loaded into FFmpeg's program.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "contract/ready_ffmpeg.h"
#include "platform/confinement.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "transcoder/command_reach.h"
#include "transcoder/fork_server.h"
#include "transcoder/ready_text.h"

namespace orvo::transcoder {
namespace {

using Main = int (*)(int count, char** arguments, char** environment);

constexpr std::string_view kOwnFile = "/proc/self/fd/";

Main theProgram = nullptr;  // FFmpeg's own

// Where the kernel reads the command line of this process.
class Title {
 public:
  Title(int count, char** arguments)
      : begin_(arguments[0]),
        size_(static_cast<size_t>(arguments[count - 1] - begin_) + strlen(arguments[count - 1])) {}

  // Lists of processes show this command from now on, or its beginning.
  void Set(const std::vector<std::string>& command) const {
    std::string text;
    for (const std::string& argument : command) {
      text += argument + '\0';
    }
    text.resize(size_);  // what is left of the old one disappears
    std::copy(text.begin(), text.end(), begin_);
  }

 private:
  char* begin_;
  size_t size_;  // without the last zero, which has to stay
};

class Run : public ForkWork {
 public:
  Run(ReadyRun run, std::vector<UniqueFd> files, Title title)
      : run_(std::move(run)),
        files_(std::move(files)),
        title_(title),
        confinement_(Job::kTranscoder, OwnReach()) {}

  LaunchOptions Options() override {
    LaunchOptions options;
    confinement_.AddTo(options);
    return options;
  }

  int Do() override {
    if (!TakeFiles()) {
      return EXIT_FAILURE;
    }
    title_.Set(run_.command);
    std::vector<char*> arguments;
    for (std::string& argument : run_.command) {
      arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    // FFmpeg ends by exit().
    exit(theProgram(static_cast<int>(run_.command.size()), arguments.data(), environ));
  }

 private:
  // A film that the client has opened is known by the client's number for it.
  Reach OwnReach() const {
    Reach reach = ReachOf(run_.command);
    reach.program.clear();
    for (size_t i = 0; i < files_.size(); ++i) {
      const std::string name = std::string(kOwnFile) + std::to_string(run_.numbers[i]);
      if (std::erase(reach.read, name) != 0) {
        reach.files.push_back(files_[i].Get());
      }
    }
    return reach;
  }

  // Gives the files their numbers. They move out of the way of these first.
  bool TakeFiles() const {
    const auto most = std::max_element(run_.numbers.begin(), run_.numbers.end());
    const int floor = std::max(STDERR_FILENO, most != run_.numbers.end() ? *most : 0) + 1;
    bool isDone = true;
    std::vector<int> moved;
    for (const UniqueFd& file : files_) {
      moved.push_back(fcntl(file.Get(), F_DUPFD, floor));
    }
    for (size_t i = 0; i < moved.size(); ++i) {
      isDone = isDone && dup2(moved[i], run_.numbers[i]) >= 0;
    }
    CloseAllBut(run_.numbers);
    return isDone;
  }

  ReadyRun run_;
  std::vector<UniqueFd> files_;
  Title title_;
  Confinement confinement_;
};

std::unique_ptr<ForkWork> Read(LocalMessage message, const Title& title) {
  auto run = ParseReadyRun(message.text);
  const bool isWhole = run && run->numbers.size() == message.files.size();
  return isWhole ? std::make_unique<Run>(*std::move(run), std::move(message.files), title)
                 : nullptr;
}

int Serve(int count, char** arguments, char** /*environment*/) {
  unsetenv("LD_PRELOAD");
  unsetenv("LD_BIND_NOW");
  const Title title(count, arguments);
  UniqueFd listener = ListenLocally(SystemPath(kReadySocket));
  Confinement own(Job::kTranscoder, {});
  const int error = listener.IsOpen() ? own.EnterAsStarter() : errno;
  if (error != 0) {
    ORVO_LOG("FFmpeg is not kept ready: %s", strerror(error));
    return EXIT_FAILURE;
  }
  ServeForks(std::move(listener),
             [&](LocalMessage message) { return Read(std::move(message), title); });
}

}  // namespace
}  // namespace orvo::transcoder

// The C library's entry, which calls the program's main function.
extern "C" __attribute__((visibility("default"))) int __libc_start_main(
    orvo::transcoder::Main program, int count, char** arguments, void (*initialize)(),
    void (*finish)(), void (*finishLoader)(), void* stackEnd) {
  using Entry =
      int (*)(orvo::transcoder::Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
  const auto entry = reinterpret_cast<Entry>(dlsym(RTLD_NEXT, "__libc_start_main"));
  orvo::transcoder::theProgram = program;
  return entry(orvo::transcoder::Serve, count, arguments, initialize, finish, finishLoader,
               stackEnd);
}
