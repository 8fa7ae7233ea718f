// The films in the media folders, and what changes there.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/unique_fd.h"

struct inotify_event;

namespace orvo::analyze {

enum class FilmChange {
  kFound,    // it was there when its folder was looked through
  kChanged,  // it is new, or somebody writes it
  kGone,
};

class LibraryWatch {
 public:
  using OnFilm = std::function<void(const std::string& film, FilmChange change)>;

  // `roots`: real paths of folders and films. Links are not followed: what they lead to is found
  // where it is.
  LibraryWatch(std::vector<std::string> roots, OnFilm onFilm);

  // Looks through all roots, and from then on watches their folders. Where the kernel watches no
  // more folders, one line on standard error says so; films that are added to the others are found
  // at the next scan.
  void Scan();

  // Readable when there is something for ReadEvents().
  int Descriptor() const { return events_.Get(); }
  // Tells of the changes so far; does not wait.
  void ReadEvents();

 private:
  void ScanFolder(const std::string& folder);
  void Look(const std::string& path);
  bool Watch(const std::string& folder);
  void ForgetBelow(const std::string& folder);
  void Take(const inotify_event& event);
  void TakeFolder(const std::string& folder, const inotify_event& event);
  void TakeFile(const std::string& file, const inotify_event& event);
  bool IsInRoots(const std::string& path) const;

  std::vector<std::string> roots_;
  OnFilm onFilm_;
  UniqueFd events_;
  std::unordered_map<int, std::string> folders_;  // by watch descriptor
  bool isFull_ = false;                           // the kernel watches no more
};

}  // namespace orvo::analyze
