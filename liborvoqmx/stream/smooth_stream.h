// One film as Smooth Streaming.
//
// Init predicts the manifest before anything has been transcoded: fragments of five seconds, and
// from tables the size, the rates and the parameter sets that the profile's encoder will make. The
// request for a fragment then calls Transcoding, which leaves a transcoder alone that will be there
// soon and otherwise replaces it by one that starts at that fragment, and ReadFragment, which waits
// for the fragment. The transcoder is watched by a process of its own, the monitor, that outlives
// the request.
//
// A fragment's id is "QualityLevels(RATE)/Fragments(TYPE=START)": the type is "video" or "audio",
// the start in units of 100 ns. Requests meet in files of the stream directory: "seek_time" (where
// the transcoder began, in seconds), "monitor.pid", and the fragments, "smooth/" and the id.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/export.h"
#include "stream/adapt_stream.h"

namespace orvo {
struct FragmentId;
}

namespace LibOrvoQMX {

class StreamLock;
struct FetchedPiece;
struct FragmentPlace;

class ORVO_API SmoothStream : public AdaptStream {
 public:
  explicit SmoothStream(const std::string& streamId);
  // A stream that has not been opened.
  explicit SmoothStream(const QMXMetaData& plan);
  ~SmoothStream() override;

  // Writes the manifest. A failure leaves no stream directory. `options` and `audioFormat` are not
  // read.
  bool Init(const Json::Value& request, const Json::Value& options, const std::string& audioId,
            const std::string& audioFormat) override;

  // Sees to it that the transcoder, or a new one, will produce this fragment soon. Only video moves
  // the transcoder: an audio fragment is true at once.
  bool Transcoding(const std::string& fragment) override;

  // Waits, up to 60 seconds, until the fragment is complete, and answers its path; "" when it is
  // not. Where nothing runs that could produce it, its path too: there may be no file then.
  std::string ReadFragment(const std::string& fragment) override;

  // All that the request for a fragment takes, in one step (stream/fetched_piece.h). Where no
  // transcoder will come by, one is started at the picture of that time; a request for sound first
  // leaves the picture's request a second to do so. When nothing is left that could make the
  // fragment, a transcoder is started and waited for once more, unless the viewer has gone
  // elsewhere: the piece that was asked for last is more than ten away.
  FetchedPiece Fetch(const orvo::FragmentId& id);

  int GetSeekTimeInMillisecond() const override;

  // --- The manifest ---

  std::string GetMainfest();  // its path

  // The picture's size for a requested height ("240" to "1080") and the film's shape. False for any
  // other.
  bool GetTransResolution(const std::string& requestedHeight, std::string& width,
                          std::string& height, std::string& size) const;

  // What is known ahead of the stream's profile when the hardware encodes, or FFmpeg does. The
  // rates are in bit/s, the codec's private data is hexadecimal.
  bool ParseHWTransParameter(std::string& width, std::string& height, std::string& videoBitrate,
                             std::string& audioBitrate, std::string& samplingRate,
                             std::string& codecPrivateData) const;
  bool ParseTransParameter(std::string& width, std::string& height, std::string& videoBitrate,
                           std::string& audioBitrate, std::string& samplingRate,
                           std::string& codecPrivateData) const;

  bool Predict_Manifest(const Json::Value& request) const;

  // --- Fragments ---

  // Takes an id apart: `quality` "QualityLevels(RATE)", `type` "video=" or "audio=", `start` in
  // digits; the latter two are "" where the id has none. False unless it has exactly two parts.
  bool ParseFragId(const std::string& fragment, std::string& start, std::string& type,
                   std::string& quality) const;

  // Will the running transcoder not come to this fragment soon?
  bool IsNeedToSeek(const std::string& fragment) const;

  // The fragment's start in whole seconds, which also becomes the content of "seek_time".
  long CalculateSeekTime(const std::string& fragment) const;

  // Is the fragment complete, with the `lookAhead`-th behind its successor there? True also for a
  // start that no fragment has, and when nothing runs.
  bool VerifyFragmentIsReady(const std::string& fragment, unsigned lookAhead) const;

  // --- The transcoder ---

  // Starts a transcoder at this fragment, whatever there is: for a fragment that has not come and a
  // transcoder that has ended.
  bool Restart(const std::string& fragment);

  // The transcoder's arguments; empty when this film cannot be transcoded.
  std::vector<std::string> CalculateFFmpegArgument() const;
  // The whole command line of a transcoder that writes below `folder`; empty where there are no
  // arguments.
  std::vector<std::string> CommandLine(const std::string& folder) const;

  // What a monitor does: runs a transcoder until it ends, a signal comes or the client stays away.
  void ExecuteMointer(const std::string& fragment);
  static void MointerSignalHandler(int signal);

  // Stops this process's transcoder: SIGINT, and SIGKILL four seconds later.
  static void WaitAllChild();

 private:
  bool ParseParameters(bool hardware, std::string& width, std::string& height,
                       std::string& videoBitrate, std::string& audioBitrate,
                       std::string& samplingRate, std::string& codecPrivateData) const;

  bool IsPlayable() const;
  bool StartUnless(const FragmentPlace& place, const std::function<bool()>& isNeedless);
  bool StartAt(const FragmentPlace& place, StreamLock& lock);
  long SaveSeekTime(const FragmentPlace& place) const;
  void RunTranscoder();
  std::string OutputDirectory() const;

  FetchedPiece Await(const FragmentPlace& place) const;
  bool MakeSureOfTranscoder(const orvo::FragmentId& id);
  bool NeedsStart(const FragmentPlace& place, const FragmentPlace& video) const;
  void LetVideoComeFirst(const std::function<bool()>& isNeedless) const;
  bool HasGoneElsewhere(const orvo::FragmentId& id) const;

  std::string m_profileKey;
  int m_seekSeconds = 0;
};

}  // namespace LibOrvoQMX
