// The messages of the process that reads: a letter and a number each. "p": the part that has been
// read. "t": the time of a key frame. "e": the end of the film, which is the last one. "x": there
// are none, and the rest is the reason.
#include "confined_reader.h"

#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string_view>

#include "platform/confined_call.h"
#include "platform/io.h"
#include "platform/media_file.h"
#include "util/film_memory.h"

namespace orvo::analyze {
namespace {

constexpr size_t kLongestReason = 1024;
constexpr size_t kMostKeyframes = 20'000'000;  // a day in which each picture is one
// Another process may analyse the same film for so long.
constexpr int kPatienceMilliseconds = 60000;
constexpr int kSignalled = 128;

std::string Message(char kind, double number) {
  return kind + std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

int Read(const std::string& path, int output) {
  FilmKeyframes found;
  std::string error;
  const auto progress = [&](double part) { WriteAll(output, Message('p', part)); };
  if (!FindKeyframes(path, progress, found, error)) {
    return WriteAll(output, 'x' + error.substr(0, kLongestReason)) ? 0 : 1;
  }
  std::string messages;
  for (const double time : found.times) {
    messages += Message('t', time);
  }
  return WriteAll(output, messages + Message('e', found.endTime)) ? 0 : 1;
}

// The other side. Whatever comes may come from the film.
class Listener {
 public:
  Listener(const Progress& progress, FilmKeyframes& found) : progress_(progress), found_(found) {}

  bool Take(std::string_view part) {
    bytes_ += part;
    size_t used = 0;
    while (!isOver_ && bytes_.size() - used > sizeof(double)) {
      if (bytes_[used] == 'x') {
        break;
      }
      TakeMessage(bytes_.data() + used);
      used += 1 + sizeof(double);
    }
    bytes_.erase(0, used);
    return found_.times.size() <= kMostKeyframes && bytes_.size() <= 1 + kLongestReason;
  }

  bool IsComplete() const { return isOver_; }
  std::string Reason() const { return !bytes_.empty() && bytes_[0] == 'x' ? bytes_.substr(1) : ""; }

 private:
  void TakeMessage(const char* message) {
    double number = 0;
    std::memcpy(&number, message + 1, sizeof(number));
    switch (*message) {
      case 'p':
        progress_(number);
        break;
      case 't':
        found_.times.push_back(number);
        break;
      default:
        found_.endTime = number;
        isOver_ = true;
    }
  }

  const Progress& progress_;
  FilmKeyframes& found_;
  std::string bytes_;
  bool isOver_ = false;
};

}  // namespace

bool FindKeyframesConfined(const std::string& path, const Progress& progress, FilmKeyframes& found,
                           std::string& error, int& signal) {
  const MediaFile film = MediaFile::Open(path);
  if (!film.IsOpen()) {
    error = strerror(errno);
    signal = 0;
    return false;
  }
  Listener listener(progress, found);
  const auto memory = FilmMemory::Take(film, Job::kAnalysis, kPatienceMilliseconds);
  if (!memory) {
    signal = SIGKILL;  // tried again later
    error = "another process analyses it";
    return false;
  }
  const int status = RunConfined(
      Job::kAnalysis, {.files = {film.Get()}},
      [&](int output) { return Read(film.Address(), output); },
      [&](std::string_view part) { return listener.Take(part); });
  const bool isTooLong = status < 0 && (errno == ETIMEDOUT || errno == EFBIG);
  signal = status > kSignalled ? status - kSignalled : 0;
  if (status < 0 && !isTooLong) {
    // It never ran. That is not the film's fault, so it is tried again.
    signal = SIGKILL;
    error = std::string("it cannot be read: ") + strerror(errno);
  } else if (signal != 0) {
    error = "its analysis was ended by signal " + std::to_string(signal);
  } else if (!listener.IsComplete()) {
    error =
        isTooLong || listener.Reason().empty() ? "its analysis takes too long" : listener.Reason();
  }
  return signal == 0 && status == 0 && listener.IsComplete();
}

}  // namespace orvo::analyze
