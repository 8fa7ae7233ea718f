// One film as HTTP Live Streaming.
//
// Init writes complete playlists before any segment exists. A request for a segment then calls
// Transcoding and ReadFragment. Transcoding keeps a transcoder that will reach the segment soon,
// and otherwise replaces it by one that starts at that segment. ReadFragment waits for the segment.
// The monitor, a separate process that outlives the request, watches the transcoder.
//
// Requests share files in the stream directory: "seek_time" (the transcoder's first segment),
// "request_sequence" (the time of the latest restart request), "monitor.pid" and the segments,
// slice-00000.ts and so on.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/export.h"
#include "preprocess/preprocess_helper.h"
#include "stream/adapt_stream.h"
#include "stream/hls_helper.h"

namespace LibOrvoQMX {

class ExpectedViewer;
struct AwaitedSegment;
struct FetchedPiece;
struct Segment;

class ORVO_API HttpLiveStream : public AdaptStream {
 public:
  // Subtitle id and language of each track.
  using SubtitleList = std::vector<std::pair<std::string, std::string>>;

  explicit HttpLiveStream(const std::string& streamId);
  // Makes a stream that is not open, for planning only.
  explicit HttpLiveStream(const QMXMetaData& plan);
  ~HttpLiveStream() override;

  // Writes the playlists. If the options have a "subtitle_id", it also writes those of the
  // subtitles. A failure after admission leaves no stream directory.
  bool Init(const Json::Value& request, const Json::Value& options, const std::string& audioId,
            const std::string& audioFormat) override;

  // Makes sure that the running transcoder or a new one will produce this segment soon. Returns
  // true also if a newer request has replaced this one in the meantime.
  bool Transcoding(const std::string& fragment) override;

  // Waits up to 60 seconds until the segment is complete, and returns its path, or "" if it is not
  // complete. Returns "" at once if a newer request has restarted the stream, and soon if no
  // process is left that could produce the segment.
  std::string ReadFragment(const std::string& fragment) override;

  // Does both for the segment with this number, in one step (stream/fetched_piece.h). Also starts a
  // transcoder if Transcoding relies on one that has died, and waits for one that a newer request
  // has started for the same segment.
  FetchedPiece Fetch(int number);

  // Starts a transcoder for a player that will begin at this second of the film. The transcoder
  // ends again if nobody has asked for a segment ten seconds later. Returns false on failure.
  bool StartAhead(double second);

  // Starts a transcoder at this segment without taking a run or a segment from a viewer: only if
  // the last one has ended and a viewer has asked for all that it made. Returns false otherwise.
  // Returns true also if the segment is there.
  bool StartWhenFinished(int number);

  int GetSeekTimeInMillisecond() const override;

  // --- Playlists ---

  // Writes one playlist, planned from stored key frames or with a fixed length. Returns false if
  // the address, the stream or the duration is missing.
  bool GenPlaylist(const Json::Value& request, ManifestType type);
  void WriteManifestByFixedSegmentTime(HLSHelper& manifest, int duration) const;  // seconds

  // Is there a plan from this film's key frames, and may this stream use it? Yes only if the video
  // is copied.
  bool IsPreAnalysisAvailable();

  // --- Subtitles ---

  // The address of the subtitle segments, with a placeholder for the track. "" if an option that it
  // needs is missing.
  std::string GetSubtitleURL(const Json::Value& options) const;
  // The playlist that lists the video and the subtitles.
  bool GenIndexPlaylist(const Json::Value& request, const Json::Value& options) const;
  // Writes the playlist of one track. Returns its path, or "" on failure.
  std::string GetSubtitleManifestPath(const std::string& subtitleId) const;
  // The path of a playlist. `type` is "video", "subtitle" (of that track) or another text (the
  // index).
  std::string GetMainfest(const std::string& type, const std::string& subtitleId);

  // The tracks that an id stands for: all tracks of the film for "all", else that one.
  SubtitleList GetSubtitleMap(const std::string& subtitleId) const;
  SubtitleList GetExternalSubtitle() const;
  SubtitleList GetInternalSubtitle() const;

  // --- The pipeline ---

  // Is the requested audio track low-complexity AAC? Every client plays it without conversion.
  bool IsAACLCAudioCodec() const;

  // The transcoder's arguments. Empty if this film cannot be transcoded.
  std::vector<std::string> CalculateFFmpegArgument(const std::string& fragment);
  std::vector<std::string> CalculateGstreamerArgument() const;

  // The whole command line of the transcoder that starts at that segment and writes into `folder`.
  // Empty if there are no arguments or the film ends before the segment.
  std::vector<std::string> CommandLine(const std::string& fragment, const std::string& folder);

  // Becomes the segmenter that reads the stream from `readEnd`. Returns only on failure.
  void ExecuteSegmenter(int readEnd, int fragment);

  // The monitor's work: runs a transcoder from that segment on, until it ends, a signal arrives or
  // the client has gone. Throws like std::stoi if `fragment` is not a number.
  void ExecuteMointer(const std::string& fragment);
  static void MointerSignalHandler(int signal);

  // Stops this process's transcoder and segmenter with SIGINT. Sends SIGKILL to a transcoder that
  // still runs one second later.
  void WaitAllChild() const;

  // --- Segments ---

  std::string GetSegmentTsPath(int fragment) const;

  // The start of the segment in milliseconds; -1 if there is no such segment.
  int CalculateSeekTime(int fragment);
  // The last segment that starts at or before this second of the film.
  int SegmentAt(double second);
  // The distance in seconds from the segment's nominal start to its real start.
  double GetSegmentTimeDelta(int fragment) const;

  // Makes this the stream's latest request. Returns its sequence, or "" on failure.
  std::string WriteSequence();
  // Returns false if a newer request has done so since.
  bool CheckSequence() const;

  bool IsTransAndSegNeedToRestart(const std::string& fragment) const;
  // Does the segment exist, and has its writer finished it?
  bool VerifyFragmentIsReady(const std::string& fragment) const;

 private:
  bool FailInit();  // removes the directory and returns false
  bool SaveAudioFormat(const std::string& audioFormat) const;
  bool GenSubtitlePlaylists(const Json::Value& request, const Json::Value& options);
  bool MarkAppleTv() const;
  std::string PlaylistPath(ManifestType type) const;

  std::vector<std::string> FfmpegArguments(const Segment& segment);
  std::vector<std::string> PrepareArguments(const Segment& segment);

  bool IsPlayable() const;
  // Null if somebody waits for the segment already.
  using Expected = std::shared_ptr<const ExpectedViewer>;

  bool Reach(const Segment& segment, const Expected& viewer = nullptr);
  bool Revive(const Segment& segment, const std::string& seen);
  bool Restart(const Segment& segment, const Expected& viewer = nullptr);
  bool StartPipeline(const Segment& segment, const Expected& viewer);
  bool IsResumeOnAppleTv(int number) const;
  bool StopPreviousPipeline() const;
  void Watch(const Segment& segment, const Expected& viewer = nullptr);
  void RunPipeline(const Segment& segment, const Expected& viewer);

  std::string SeenSequence() const;
  AwaitedSegment Await(int number, const std::string& seen) const;
  AwaitedSegment AwaitFromAny(int number, const std::string& seen);
  AwaitedSegment AwaitUnlessLost(int number, const std::string& seen) const;

  // Copies the playlist's plan into the stream's directory. All requests of the stream use this
  // copy, even if another result is stored beside the film later.
  bool KeepPlan(bool isPlanned) const;

  bool m_hasSubtitle = false;
  preprocess::PreprocessHelper m_planner;
  int m_seekTime = 0;  // milliseconds
  std::string m_sequence;
};

}  // namespace LibOrvoQMX
