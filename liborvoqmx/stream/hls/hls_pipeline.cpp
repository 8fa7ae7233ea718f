// These functions log under the source file of the stream class.
#define ORVO_LOG_SOURCE "http_live_stream.cpp"

#include "stream/hls/hls_pipeline.h"

#include <unistd.h>

#include <csignal>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/process.h"
#include "platform/unique_fd.h"
#include "stream/pipeline/pipeline.h"
#include "stream/pipeline/transcoder_launch.h"

namespace LibOrvoQMX {

volatile sig_atomic_t gHLSSignal = 0;
orvo::Process gPidHLSTransBin;
orvo::Process gPidHLSSegBin;

namespace {

constexpr int kGraceMilliseconds = 1000;

Pipeline PipelineOf(bool isRegistered) {
  return Pipeline(gPidHLSTransBin, {isRegistered, kGraceMilliseconds, true, [](pid_t pid) {
                                      ORVO_LOG("Force Kill Transcoding Process %d", pid);
                                    }});
}

// Starts the transcoder and, behind it, the segmenter, which sees the end of its input when
// `writeEnd` is closed, too.
bool StartPrograms(Pipeline& pipeline, const HlsPrograms& programs, orvo::UniqueFd& writeEnd) {
  if (!programs.becomeSegmenter) {
    return pipeline.Start([&] { programs.becomeTranscoder(-1); });
  }
  orvo::UniqueFd readEnd;
  if (!orvo::OpenPipe(readEnd, writeEnd) || !pipeline.Start([&] {
        KeepAcrossExec(writeEnd);
        programs.becomeTranscoder(writeEnd.Get());
      })) {
    return false;
  }
  gPidHLSSegBin = StartUnderMonitor([&] {
    KeepAcrossExec(readEnd);
    programs.becomeSegmenter(readEnd.Get());
  });
  if (!gPidHLSSegBin) {
    gPidHLSTransBin.Signal(SIGKILL);
  }
  return static_cast<bool>(gPidHLSSegBin);
}

void StopSegmenter() {
  if (gPidHLSSegBin) {
    gPidHLSSegBin.End(SIGINT, kTranscoderGraceMilliseconds);
    gPidHLSSegBin = orvo::Process();
  }
}

}  // namespace

bool BecomeMonitor(const StreamDirectory& directory, const Segment& segment,
                   const std::string& own) {
  const StateFile seekTime = directory.SeekTime();
  const StreamLock lock = seekTime.Lock();
  if (!IsLatestSequence(directory, own) || !BecomeMonitor(directory)) {
    return false;
  }
  // An older request may have written its own number in the meantime.
  return seekTime.Read() == segment.text || seekTime.Write(segment.text);
}

void ResetHlsPipeline() {
  gPidHLSTransBin = orvo::Process();
  gPidHLSSegBin = orvo::Process();
  gHLSSignal = 0;
}

void RunHlsPipeline(const HlsPrograms& programs) {
  Pipeline pipeline = PipelineOf(programs.isRegistered);
  orvo::UniqueFd writeEnd;
  if (gHLSSignal != 0 || !StartPrograms(pipeline, programs, writeEnd) ||
      !pipeline.Watch(gHLSSignal, programs.isAbandoned)) {
    return;
  }
  if (pipeline.Status() == 0) {
    // The segmenter still has to write the end of the film.
    writeEnd.Reset();
    gPidHLSSegBin.HasEndedWithin(kGraceMilliseconds);
  } else {
    // Before it sees an end: the segment in work would look complete.
    StopSegmenter();
  }
}

void StopHlsPipeline(bool isRegistered) {
  PipelineOf(isRegistered).End();
  StopSegmenter();
}

void OnHlsStopSignal(int /*signal*/) {
  gHLSSignal = 1;
}

}  // namespace LibOrvoQMX
