// What a transcoder has to be asked for, for one media file on this appliance.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "metadata/video_metadata.h"
#include "platform/export.h"

namespace LibOrvoQMX {

// Codes of the hardware questions below. 0 is yes, anything else a reason for no.
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

  // The audio track with this "id" (the first one for an empty id) and its position among the audio
  // tracks. Null, and `index` unchanged, when there is none.
  Json::Value GetAudioTrackInfoByID(const std::string& id, unsigned& index) const;
  Json::Value GetAudioTrackInfoByID(const std::string& id) const;

  // Does that track have this codec? False when there is no such track.
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

  // The same for this file's first video track; always able without hardware.
  unsigned AbleToTranscodeTheVideo(bool hardware) const;

  // The error word that tells a client of such an answer, for any but kHardwareAble.
  static std::string RefusalWord(unsigned capability);

  // The box that a size name stands for. False, and both untouched, for any other name.
  static bool MapVideoSize(const std::string& name, unsigned& width, unsigned& height);

  // The size to ask for: the box itself when `exact`, else the source fitted into it with an even
  // derived side; turned for a `rotate` of 90 or 270. Untouched when it cannot be told.
  void GetTransVideoSize(const std::string& name, bool exact, unsigned rotate, unsigned& width,
                         unsigned& height) const;

  // The bit rate (bit/s) to ask for where `requested` is wanted: never below 500000, and no more
  // than the source can use.
  unsigned GetTransVideoBitrate(unsigned requested) const;

  // "--aidx" and the track's position among the audio tracks, which is how the GStreamer wrapper
  // counts; empty when there is no such track.
  std::vector<std::string> GetGstreamAudioMap(const std::string& id) const;

  // FFmpeg's "-map" arguments for the first video and that audio track, by container index; empty
  // unless both are there, so that FFmpeg's own choice applies.
  std::vector<std::string> GetVideoAudioMap(const std::string& id) const;

 private:
  const VideoMetaData& m_metaData;
};

}  // namespace LibOrvoQMX
