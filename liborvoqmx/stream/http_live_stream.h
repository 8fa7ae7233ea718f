// One film as HTTP Live Streaming.
//
// Init writes finished playlists before any segment exists. The request for a segment then calls
// Transcoding, which leaves a transcoder alone that will be there soon and otherwise replaces it by
// one that starts at that segment, and ReadFragment, which waits for the segment. The transcoder is
// watched by a process of its own, the monitor, that outlives the request.
//
// Requests meet in files of the stream directory: "seek_time" (the segment that the transcoder
// began with), "request_sequence" (when the latest restart was asked for), "monitor.pid" and the
// segments, slice-00000.ts and so on.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/export.h"
#include "preprocess/preprocess_helper.h"
#include "stream/adapt_stream.h"
#include "stream/hls_helper.h"

namespace LibOrvoQMX {

struct AwaitedSegment;
struct FetchedPiece;
struct Segment;

class ORVO_API HttpLiveStream : public AdaptStream {
 public:
  // Subtitle id and language of each track.
  using SubtitleList = std::vector<std::pair<std::string, std::string>>;

  explicit HttpLiveStream(const std::string& streamId);
  // A stream that has not been opened.
  explicit HttpLiveStream(const QMXMetaData& plan);
  ~HttpLiveStream() override;

  // Writes the playlists; with a "subtitle_id" among the options, also those of the subtitles. Once
  // the stream was admitted, a failure leaves no stream directory.
  bool Init(const Json::Value& request, const Json::Value& options, const std::string& audioId,
            const std::string& audioFormat) override;

  // Sees to it that the transcoder, or a new one, will produce this segment soon. True also for a
  // request that a newer one has overtaken meanwhile.
  bool Transcoding(const std::string& fragment) override;

  // Waits, up to 60 seconds, until the segment is complete, and answers its path. "" when it is
  // not, at once when a newer request has restarted the stream, and soon when nothing is left that
  // could produce the segment.
  std::string ReadFragment(const std::string& fragment) override;

  // Both for the segment of that number, in one step (stream/fetched_piece.h). Also starts a
  // transcoder where Transcoding counts on one that has died.
  FetchedPiece Fetch(int number);

  int GetSeekTimeInMillisecond() const override;

  // --- Playlists ---

  // Writes one playlist, planned from stored key frames or at a fixed length. False without an
  // address, a stream or a duration.
  bool GenPlaylist(const Json::Value& request, ManifestType type);
  void WriteManifestByFixedSegmentTime(HLSHelper& manifest, int duration) const;  // seconds

  // Is there a plan of this film's key frames, and is it to be used? Only where video is copied.
  bool IsPreAnalysisAvailable();

  // --- Subtitles ---

  // The address of the subtitle segments with a placeholder for the track; "" when the options lack
  // what it needs.
  std::string GetSubtitleURL(const Json::Value& options) const;
  // The playlist that lists the video and the subtitles.
  bool GenIndexPlaylist(const Json::Value& request, const Json::Value& options) const;
  // Writes the playlist of one track: its path, or "".
  std::string GetSubtitleManifestPath(const std::string& subtitleId) const;
  // The path of the playlist "video", of that track's "subtitle", or of the index.
  std::string GetMainfest(const std::string& type, const std::string& subtitleId);

  // The tracks behind an id: every one of the film for "all", else that one.
  SubtitleList GetSubtitleMap(const std::string& subtitleId) const;
  SubtitleList GetExternalSubtitle() const;
  SubtitleList GetInternalSubtitle() const;

  // --- The pipeline ---

  // Is the wanted audio track low-complexity AAC, which every client plays as it is?
  bool IsAACLCAudioCodec() const;

  // The transcoder's arguments; empty when this film cannot be transcoded.
  std::vector<std::string> CalculateFFmpegArgument(const std::string& fragment);
  std::vector<std::string> CalculateGstreamerArgument() const;

  // The whole command line of the transcoder that starts at that segment and writes into `folder`;
  // empty where there are no arguments or the film ends before.
  std::vector<std::string> CommandLine(const std::string& fragment, const std::string& folder);

  // Becomes the segmenter that cuts what comes from `readEnd`. Returns only on failure.
  void ExecuteSegmenter(int readEnd, int fragment);

  // What a monitor does: runs a transcoder from that segment on, until it ends, a signal comes or
  // the client stays away. Throws as std::stoi does for what is no number.
  void ExecuteMointer(const std::string& fragment);
  static void MointerSignalHandler(int signal);

  // Stops this process's transcoder and segmenter: SIGINT, and SIGKILL for a transcoder that is
  // still there a second later.
  void WaitAllChild() const;

  // --- Segments ---

  std::string GetSegmentTsPath(int fragment) const;

  // Where the segment begins, in milliseconds; -1 for none such.
  int CalculateSeekTime(int fragment);
  // How far that is behind its nominal place, in seconds.
  double GetSegmentTimeDelta(int fragment) const;

  // Makes this the stream's latest request: its sequence, or "".
  std::string WriteSequence();
  // False when a newer request has done so since.
  bool CheckSequence() const;

  bool IsTransAndSegNeedToRestart(const std::string& fragment) const;
  // Is the segment there, with nobody writing it any more?
  bool VerifyFragmentIsReady(const std::string& fragment) const;

 private:
  bool FailInit();  // removes the directory; false
  bool SaveAudioFormat(const std::string& audioFormat) const;
  bool GenSubtitlePlaylists(const Json::Value& request, const Json::Value& options);
  bool MarkAppleTv() const;
  std::string PlaylistPath(ManifestType type) const;

  std::vector<std::string> FfmpegArguments(const Segment& segment);
  std::vector<std::string> PrepareArguments(const Segment& segment);

  bool IsPlayable() const;
  bool Reach(const Segment& segment);
  bool Revive(const Segment& segment, const std::string& seen);
  bool Restart(const Segment& segment);
  bool IsResumeOnAppleTv(int number) const;
  bool StopPreviousPipeline() const;
  void Watch(const Segment& segment);
  void RunPipeline(const Segment& segment);

  std::string SeenSequence() const;
  AwaitedSegment Await(int number, const std::string& seen) const;
  AwaitedSegment AwaitUnlessLost(int number, const std::string& seen) const;

  // The plan that the playlist was written from belongs to the stream: all its requests go by the
  // copy in its directory, whatever is stored beside the film meanwhile.
  bool KeepPlan(bool isPlanned) const;

  bool m_hasSubtitle = false;
  preprocess::PreprocessHelper m_planner;
  int m_seekTime = 0;  // milliseconds
  std::string m_sequence;
};

}  // namespace LibOrvoQMX
