// One film as Smooth Streaming.
//
// Init predicts the manifest before any transcoding. Fragments are five seconds long; tables give
// the size, the bit rates and the parameter sets that the profile's encoder will produce. A request
// for a fragment then calls Transcoding and ReadFragment. Transcoding keeps a transcoder that will
// reach the fragment soon, and otherwise replaces it by one that starts at that fragment.
// ReadFragment waits for the fragment. The monitor, a separate process that outlives the request,
// watches the transcoder.
//
// A fragment's id is "QualityLevels(RATE)/Fragments(TYPE=START)". The type is "video" or "audio";
// the start is in units of 100 ns. Requests share files in the stream directory: "seek_time" (the
// transcoder's start in seconds), "monitor.pid", and the fragments, whose paths are "smooth/" and
// the id.
#pragma once

#include <json/value.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"
#include "stream/adapt_stream.h"

namespace orvo {
struct FragmentId;
}

namespace LibOrvoQMX {

class ExpectedViewer;
class StreamLock;
struct FetchedPiece;
struct FragmentPlace;

class ORVO_API SmoothStream : public AdaptStream {
 public:
  explicit SmoothStream(const std::string& streamId);
  // Makes a stream that is not open, for planning only.
  explicit SmoothStream(const QMXMetaData& plan);
  ~SmoothStream() override;

  // Writes the manifest. A failure leaves no stream directory. Ignores `options` and `audioFormat`.
  bool Init(const Json::Value& request, const Json::Value& options, const std::string& audioId,
            const std::string& audioFormat) override;

  // Makes sure that the running transcoder or a new one will produce this fragment soon. Only video
  // moves the transcoder; for an audio fragment it returns true at once.
  bool Transcoding(const std::string& fragment) override;

  // Waits up to 60 seconds until the fragment is complete, and returns the manifest's path, or ""
  // if it is not complete. Returns the path also if no process runs that could produce the
  // fragment; the file may then be missing.
  std::string ReadFragment(const std::string& fragment) override;

  // Does everything for one request for a fragment (stream/fetched_piece.h). If no transcoder will
  // reach the fragment, it starts one at the video fragment of that time. A request for sound first
  // waits one second, so that the request for the picture can start it. If no process is left that
  // could make the fragment, it starts a transcoder and waits once more. It does not if the viewer
  // has gone elsewhere: the last requested piece is more than ten pieces away.
  FetchedPiece Fetch(const orvo::FragmentId& id);

  // Starts a transcoder for a player that will begin at this second of the film. The transcoder
  // ends again if nobody has asked for a fragment ten seconds later. Returns false on failure.
  bool StartAhead(double second);

  int GetSeekTimeInMillisecond() const override;

  // --- The manifest ---

  std::string GetMainfest();  // its path

  // The picture's size for a requested height ("240" to "1080") and the film's shape. Returns false
  // for any other height.
  bool GetTransResolution(const std::string& requestedHeight, std::string& width,
                          std::string& height, std::string& size) const;

  // The predicted values for the stream's profile, if the hardware encodes or if FFmpeg does. The
  // rates are in bit/s; the codec's private data is hexadecimal.
  bool ParseHWTransParameter(std::string& width, std::string& height, std::string& videoBitrate,
                             std::string& audioBitrate, std::string& samplingRate,
                             std::string& codecPrivateData) const;
  bool ParseTransParameter(std::string& width, std::string& height, std::string& videoBitrate,
                           std::string& audioBitrate, std::string& samplingRate,
                           std::string& codecPrivateData) const;

  bool Predict_Manifest(const Json::Value& request) const;

  // --- Fragments ---

  // Splits an id into `quality` ("QualityLevels(RATE)"), `type` ("video=" or "audio=") and `start`
  // (digits). `type` and `start` are "" if the id lacks them. Returns false unless the id has
  // exactly two parts.
  bool ParseFragId(const std::string& fragment, std::string& start, std::string& type,
                   std::string& quality) const;

  // Is this fragment out of the running transcoder's reach?
  bool IsNeedToSeek(const std::string& fragment) const;

  // The fragment's start in whole seconds. Also writes it into "seek_time".
  long CalculateSeekTime(const std::string& fragment) const;

  // Is the fragment complete, and does the `lookAhead`-th fragment after the next one exist? True
  // also for a start that no fragment has, and if no transcoder runs.
  bool VerifyFragmentIsReady(const std::string& fragment, unsigned lookAhead) const;

  // --- The transcoder ---

  // Starts a transcoder at this fragment in any case. Callers use it if the fragment is missing and
  // the transcoder has ended.
  bool Restart(const std::string& fragment);

  // The transcoder's arguments. Empty if this film cannot be transcoded.
  std::vector<std::string> CalculateFFmpegArgument() const;
  // The whole command line of a transcoder that writes below `folder`. Empty if there are no
  // arguments.
  std::vector<std::string> CommandLine(const std::string& folder) const;

  // The monitor's work: runs a transcoder until it ends, a signal arrives or the client has gone.
  void ExecuteMointer(const std::string& fragment);
  static void MointerSignalHandler(int signal);

  // Stops this process's transcoder with SIGINT, and with SIGKILL four seconds later.
  static void WaitAllChild();

 private:
  bool ParseParameters(bool hardware, std::string& width, std::string& height,
                       std::string& videoBitrate, std::string& audioBitrate,
                       std::string& samplingRate, std::string& codecPrivateData) const;

  bool IsPlayable() const;
  // Null if somebody waits for the fragment already.
  using Expected = std::shared_ptr<const ExpectedViewer>;

  bool StartUnless(const FragmentPlace& place, const std::function<bool()>& isNeedless,
                   const Expected& viewer = nullptr);
  bool StartAt(const FragmentPlace& place, StreamLock& lock, const Expected& viewer);
  void Watch(const FragmentPlace& place, const Expected& viewer);
  long SaveSeekTime(const FragmentPlace& place) const;
  void RunTranscoder(const Expected& viewer);
  std::string OutputDirectory() const;

  FetchedPiece Await(const FragmentPlace& place) const;
  bool MakeSureOfTranscoder(const orvo::FragmentId& id);
  std::string VideoRate() const;
  bool NeedsStart(const FragmentPlace& place, const FragmentPlace& video) const;
  void LetVideoComeFirst(const std::function<bool()>& isNeedless) const;
  bool HasGoneElsewhere(const orvo::FragmentId& id) const;

  std::string m_profileKey;
  int m_seekSeconds = 0;
};

}  // namespace LibOrvoQMX
