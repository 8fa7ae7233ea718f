// A film that libavformat reads from a descriptor, and from nothing else.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/unique_fd.h"
#include "transcoder/av_functions.h"

namespace orvo::transcoder {

struct FreePacket {
  void operator()(AVPacket* packet) const;
};
using AvPacket = std::unique_ptr<AVPacket, FreePacket>;

struct FreeParameters {
  void operator()(AVCodecParameters* parameters) const;
};
using AvParameters = std::unique_ptr<AVCodecParameters, FreeParameters>;

// What must be known of a film's tracks.
enum class Detail {
  kStated,      // what the header of an MP4 or Matroska file states
  kPixelShape,  // the shape of pixels as well, which may stand in the pictures alone
};

class FilmInput {
 public:
  // Takes the film. Null when it is no film in a self-contained format, or when libavformat is
  // missing, which is in the log. What MP4 and Matroska state in their headers is taken from there,
  // if it is enough; the beginning of other films is read until their tracks are known.
  static std::unique_ptr<FilmInput> Open(UniqueFd film, Detail detail = Detail::kStated);
  ~FilmInput();
  FilmInput(const FilmInput&) = delete;
  FilmInput& operator=(const FilmInput&) = delete;

  const AVFormatContext& Get() const { return *context_; }
  const AVStream& Track(int number) const { return *context_->streams[number]; }
  bool IsMatroska() const;
  bool IsMp4() const;

  // The packets of this track are left out.
  void LeaveOut(int track) { context_->streams[track]->discard = AVDISCARD_ALL; }

  // Goes to a key frame of the track at or before this time, in its ticks. False where there is
  // none.
  bool Seek(int track, int64_t time);

  // Null at the film's end and where it cannot be read on.
  AvPacket Read();

 private:
  FilmInput(const AvFunctions& av, UniqueFd film);
  bool OpenContext(Detail detail);
  bool StatesItsTracks(Detail detail) const;
  static int ReadBytes(void* self, uint8_t* buffer, int size);
  static int64_t SeekByte(void* self, int64_t offset, int whence);

  const AvFunctions& av_;
  UniqueFd film_;
  int64_t position_ = 0;
  int64_t size_ = 0;
  AVIOContext* io_ = nullptr;
  AVFormatContext* context_ = nullptr;
};

}  // namespace orvo::transcoder
