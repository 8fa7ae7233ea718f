// The transcoder arguments that suit one media file on this appliance.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "metadata/video_metadata.h"
#include "platform/export.h"

namespace LibOrvoQMX {

// Answers to the hardware questions below. 0 means yes; each other value is a reason for no.
enum HardwareCapability : unsigned {
  kHardwareAble = 0,
  kHardwareNone = 1,
  kHardwareCodec = 2,
  kHardwareResolution = 3,
  kHardwareProfile = 4,
  kHardwareFramerate = 5,
};

class ORVO_API ArgumentHelper {
 public:
  // Keeps the reference: `metaData` must outlive the object.
  explicit ArgumentHelper(const VideoMetaData& metaData);

  static std::string GetAACEncoder();
  static std::string GetMP3Encoder();

  // The audio track with this "id", or the first one for an empty id. `index` is its position among
  // the audio tracks. Returns null and leaves `index` unchanged if there is no such track.
  Json::Value GetAudioTrackInfoByID(const std::string& id, unsigned& index) const;
  Json::Value GetAudioTrackInfoByID(const std::string& id) const;

  // Does that track have this codec? False if there is no such track.
  bool DoesAudioCodecMatch(const std::string& id, const std::string& codec) const;

  bool AbleToDecodeAudioById(const std::string& id) const;
  bool AbleToDecodeAudio(const std::string& id) const;
  static bool AbleToDecodeAudioByCodec(const std::string& codec);

  // The file has no audio track.
  bool ZeroAudioTrack() const;

  // Both sides above 1080, or one above 1920.
  static bool Is4kVideo(unsigned width, unsigned height);

  // Can this platform's hardware transcode such a video? Answers a HardwareCapability.
  static unsigned AbleToHWTranscodeTheVideo(const std::string& codec, unsigned width,
                                            unsigned height, float framerate,
                                            const std::string& codecTag,
                                            const std::string& profile);
  static unsigned EvansportAbleToHWTranscodeTheVideo(const std::string& codec, unsigned width,
                                                     unsigned height, float framerate,
                                                     const std::string& codecTag,
                                                     const std::string& profile);
  static unsigned MonacoAbleToHWTranscodeTheVideo(const std::string& codec, unsigned width,
                                                  unsigned height, float framerate,
                                                  const std::string& codecTag,
                                                  const std::string& profile);
  static unsigned BraswellAbleToHWTranscodeTheVideo(const std::string& codec, unsigned width,
                                                    unsigned height, float framerate,
                                                    const std::string& codecTag,
                                                    const std::string& profile);
  static unsigned ApolloLakeAbleToHWTranscodeTheVideo(const std::string& codec, unsigned width,
                                                      unsigned height, float framerate,
                                                      const std::string& codecTag,
                                                      const std::string& profile);

  // The same for this file's first video track. Without `hardware` the answer is always yes.
  unsigned AbleToTranscodeTheVideo(bool hardware) const;

  // The error word that a client gets for an answer other than kHardwareAble.
  static std::string RefusalWord(unsigned capability);

  // The box that a size name stands for. Returns false and changes neither value for any other
  // name.
  static bool MapVideoSize(const std::string& name, unsigned& width, unsigned& height);

  // The size to ask for. With `exact` it is the box itself; otherwise it is the source fitted into
  // the box, and the derived side is even. Width and height are exchanged for a `rotate` of 90 or
  // 270. Changes neither value if the size cannot be determined.
  void GetTransVideoSize(const std::string& name, bool exact, unsigned rotate, unsigned& width,
                         unsigned& height) const;

  // The bit rate (bit/s) to ask for if the client wants `requested`: at least 500000, and no more
  // than the source can use.
  unsigned GetTransVideoBitrate(unsigned requested) const;

  // "--aidx" and the track's position among the audio tracks, for the GStreamer wrapper. Empty if
  // there is no such track.
  std::vector<std::string> GetGstreamAudioMap(const std::string& id) const;

  // FFmpeg's "-map" arguments for the first video and that audio track, by container index. Empty
  // if one of them is missing; FFmpeg then chooses.
  std::vector<std::string> GetVideoAudioMap(const std::string& id) const;

 private:
  const VideoMetaData& m_metaData;
};

}  // namespace LibOrvoQMX
