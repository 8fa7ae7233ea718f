// A film that is copied by libavformat alone: its pictures as they are, its sound as it is or
// encoded. It starts in half the time that FFmpeg takes.
#pragma once

#include <optional>
#include <string>

#include "platform/unique_fd.h"

namespace orvo::transcoder {

// The containers that a copy can have, by FFmpeg's names.
inline constexpr char kTransportStream[] = "mpegts";
inline constexpr char kMp4[] = "mp4";

// One "-map" of a command line.
struct TrackChoice {
  bool isWanted = false;
  int number = -1;          // FFmpeg's number; below 0: the film's only one of its type
  bool isOptional = false;  // the film may lack it
};

// How sound is encoded.
struct SoundRecipe {
  std::string encoder;
  std::string coder;          // the encoder's way to work; "" for its usual one
  long bitRate = 0;           // bits a second
  long rate = 0;              // samples a second
  std::string filters;        // "" for none
  std::optional<long> first;  // the first sample that is wanted, from where the film is entered;
                              // all are counted from there, through gaps in the film
};

// What the copy is written as.
struct CopyFormat {
  std::string name;     // FFmpeg's
  std::string options;  // of the multiplexer: "NAME=VALUE", separated by colons
};

struct FilmCopy {
  std::string film;
  double seek = 0;             // where the film is entered, in seconds
  std::string pictureFilters;  // of the bit stream
  TrackChoice pictures;
  TrackChoice sound;
  std::optional<SoundRecipe> recipe;  // nothing: the sound is copied
  CopyFormat format;
};

// Nothing was written: the film needs FFmpeg.
inline constexpr int kExitNeedsFFmpeg = 125;

// Writes the film from there on as one stream, whose times are those of the film. Reports its
// progress like FFmpeg into `progress`, unless that is below 0. Returns the exit code: 0 at the
// film's end.
//
// The calling process is confined and does nothing else.
int CopyFilm(const FilmCopy& copy, UniqueFd film, int output, int progress);

}  // namespace orvo::transcoder
