// What a transcoder reports of its work to the request that has started it.
#pragma once

#include "platform/unique_fd.h"

namespace webapi {

// A transcoder that is started while this object exists reports into its file, and says at the end
// whether the film was made to its end. Only one object exists at a time.
class FilmReport {
 public:
  FilmReport();
  ~FilmReport();
  FilmReport(const FilmReport&) = delete;
  FilmReport& operator=(const FilmReport&) = delete;

  // Was the film made to its end? Asked after the end of the transcoder's output.
  bool IsWhole() const;

 private:
  orvo::UniqueFd file_;
};

}  // namespace webapi
