// The metadata document that a probe writes about a media file, with typed access to it.
//
// The document is a JSON object with "path", "filesize" (decimal text), "duration" (whole seconds),
// "container_type", "start_time" (whole seconds), "bitrate" (bit/s) and "track_info", an object of
// the arrays "video", "audio" and "subtitle" in container order. Each track has "track" (its index
// in the container) and "id" (a running number over the kept tracks), both texts. A video track
// that is the cover of a piece of music has "attached_pic" (true), one of a high dynamic range has
// "dynamic_range" ("hdr10", "hlg" or "dolby_vision") and "colors", as numbers of ISO/IEC 23091-2.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavformat/avformat.h>
}

#include "platform/export.h"

namespace orvo {
class MediaFile;
}

namespace LibOrvoQMX {

class ORVO_API VideoMetaData {
 public:
  // Probes `path` unless it is already loaded. Returns false, with no document loaded, if the path
  // is empty, the file is missing or it is not a media file.
  bool LoadFile(const std::string& path);
  // The same for a film that the caller has opened. The document's path is the film's.
  bool LoadFile(const orvo::MediaFile& film);

  // Fills `document` for `path`. Reads the file's size with the caller's rights and the content as
  // root. Uses the stored result if the film has not changed since its last probe. After a failure
  // the document has no "track_info".
  static bool ReadMetaDataFromFFMPEG(const std::string& path, Json::Value& document);
  // The same for an open film.
  static bool ReadMetaDataFromFFMPEG(const orvo::MediaFile& film, Json::Value& document);

  // Opens a film as root.
  static orvo::MediaFile OpenFilm(const std::string& path);

  // Runs ParseMetaDataFromFFMPEG_Impl as root.
  static bool ParserMetaDataFromFFMPEG(const std::string& path, Json::Value& document,
                                       Json::Value& videos, Json::Value& audios,
                                       Json::Value& subtitles);

  // The whole document; an empty object if nothing is loaded.
  const Json::Value& GetDocument() const;

  // Every reader below returns 0, "" or null if nothing is loaded, the key is absent or the value
  // has another type.
  unsigned GetMemberUI(const std::string& key) const;
  std::string GetMemberString(const std::string& key) const;

  // A copy of one track; null if no track has this index.
  Json::Value GetVideo(unsigned index) const;
  Json::Value GetAudio(unsigned index) const;

  unsigned GetFirstVideoMemberUI(const std::string& key) const;
  int GetFirstVideoMemberInt(const std::string& key) const;
  std::string GetFirstVideoMemberString(const std::string& key) const;
  unsigned GetFirstAudioMemberUI(const std::string& key) const;
  std::string GetFirstAudioMemberString(const std::string& key) const;

  // Copies the track arrays, `videos` first. Returns false if one of them is missing.
  bool GetTrackInfo(Json::Value& videos, Json::Value& audios) const;
  bool GetSubtitleTrackInfo(Json::Value& subtitles) const;

  std::string GetContainer() const;  // the demuxer's name, possibly a list of names
  std::string GetFilePath() const;
  unsigned GetStartTime() const;  // seconds
  unsigned GetDuration() const;   // seconds
  unsigned GetBitrate() const;    // bit/s, the whole container
  uint64_t GetFileSize() const;   // bytes

  unsigned GetAudioFreqency() const;  // Hz
  unsigned GetAudioChannel() const;
  unsigned GetAudioBitrate() const;  // bit/s
  std::string GetAudioCodecName() const;

  float GetVideoFramerate() const;  // frames per second, on average
  int GetVideoFramerateDen() const;
  int GetVideoFramerateNum() const;
  int GetVideoSampleAspectRatioDen() const;
  int GetVideoSampleAspectRatioNum() const;
  unsigned GetVideoLevel() const;
  unsigned GetVideoResolutionX() const;  // coded size, whatever the rotation
  unsigned GetVideoResolutionY() const;
  unsigned GetVideoDisplayX() const;  // display size, after aspect ratio and rotation
  unsigned GetVideoDisplayY() const;
  unsigned GetVideoRotate() const;   // degrees
  unsigned GetVideoBitrate() const;  // bit/s
  std::string GetVideoPixFmt() const;
  std::string GetVideoProfile() const;
  std::string GetVideoCodecTag() const;
  std::string GetVideoCodecName() const;
  float GetVideoRatio() const;  // coded width / height; 1.77 when unknown

 protected:
  bool m_loaded = false;
  Json::Value m_document{Json::objectValue};
};

// Opens `path`, writes the container's keys into `document` and one object for each track into the
// three arrays. Returns false if the file cannot be opened or analysed.
ORVO_API bool ParseMetaDataFromFFMPEG_Impl(const std::string& path, Json::Value& document,
                                           Json::Value& videos, Json::Value& audios,
                                           Json::Value& subtitles);

// One track's object, without "id" and "track".
ORVO_API Json::Value ParseVideoCodec(const AVStream* stream);
ORVO_API Json::Value ParseAudioCodec(const AVStream* stream);
ORVO_API Json::Value ParseSubtitleCodec(const AVStream* stream);

// The short name that all codec comparisons use: FFmpeg's name, except for "mpeg2". "" for a codec
// that has no short name.
ORVO_API std::string GetCodecName(AVCodecID id);

}  // namespace LibOrvoQMX
