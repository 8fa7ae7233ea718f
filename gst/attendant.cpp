#include "gst/attendant.h"

#include <unistd.h>

#include <array>
#include <csignal>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/process_launch.h"
#include "transcoder/engines.h"
#include "transcoder/software_seat.h"

namespace orvo::gst {
namespace {

constexpr char kSeat = 's';
constexpr char kFailure = 'f';
constexpr char kDone = 'y';
constexpr char kRefused = 'n';

bool RecordFailure() {
  using transcoder::EngineRecord;
  EngineRecord record = EngineRecord::Load();
  const auto engine = record.Proved(transcoder::kWrapper);
  if (!engine) {
    return true;
  }
  record.Set({.encoder = engine->encoder,
              .node = engine->node,
              .reason = "It has failed in the middle of a film."});
  return record.Save();
}

bool Answer(char question, pid_t wrapper) {
  return question == kSeat ? transcoder::TakeSoftwareSeatOf(wrapper)
                           : question == kFailure && RecordFailure();
}

// Until the wrapper has closed its end, with its own.
int Attend(pid_t wrapper, int questions, int answers) {
  std::array<char, 1> question{};
  while (read(questions, question.data(), question.size()) == 1) {
    const char answer = Answer(question[0], wrapper) ? kDone : kRefused;
    if (!orvo::WriteAll(answers, {&answer, 1})) {
      return 1;
    }
  }
  return 0;
}

}  // namespace

Attendant Attendant::Start() {
  Attendant attendant;
  attendant.isNeeded_ = true;
  orvo::UniqueFd asked;
  orvo::UniqueFd answer;
  if (!orvo::OpenPipe(asked, attendant.questions_) || !orvo::OpenPipe(attendant.answers_, answer)) {
    ORVO_LOG("no pipe for the register");
    return attendant;
  }
  const pid_t wrapper = getpid();
  orvo::LaunchOptions options;
  options.parentDeath.signal = SIGKILL;
  attendant.process_ = orvo::Fork(
      [&] {
        orvo::CloseAllBut({asked.Get(), answer.Get()});
        return Attend(wrapper, asked.Get(), answer.Get());
      },
      options);
  return attendant;
}

bool Attendant::Ask(char question) {
  std::array<char, 1> answer{};
  return orvo::WriteAll(questions_.Get(), {&question, 1}) &&
         read(answers_.Get(), answer.data(), answer.size()) == 1 && answer[0] == kDone;
}

bool Attendant::TakeSoftwareSeat() {
  return !isNeeded_ || (process_ && Ask(kSeat));
}

void Attendant::ReportFailure() {
  if (process_) {
    Ask(kFailure);
  }
}

}  // namespace orvo::gst
