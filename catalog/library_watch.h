// Finds the films in the media folders and reports changes there.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/unique_fd.h"

struct inotify_event;

namespace catalog {

enum class FilmChange {
  kFound,    // a scan of its folder found it
  kChanged,  // it is new, or a process writes it
  kGone,
};

class LibraryWatch {
 public:
  using OnFilm = std::function<void(const std::string& film, FilmChange change)>;
  // Reports a folder that a scan found, or whose entries have changed.
  using OnFolder = std::function<void(const std::string& folder, FilmChange change)>;

  // `roots` are real paths of folders and films. Links are not followed; a linked film is found at
  // its real place.
  LibraryWatch(std::vector<std::string> roots, OnFilm onFilm, OnFolder onFolder);

  // Scans all roots and then watches their folders. If the kernel allows no more watches, writes
  // one line to standard error; films that are added to the other folders are found at the next
  // scan.
  void Scan();

  // Becomes readable when ReadEvents() has something to report.
  int Descriptor() const { return events_.Get(); }
  // Reports the changes so far, without waiting.
  void ReadEvents();

 private:
  void ScanFolder(const std::string& folder);
  void Look(const std::string& path);
  bool Watch(const std::string& folder);
  void ForgetBelow(const std::string& folder);
  void Take(const inotify_event& event);
  void TakeRights(const std::string& folder, const inotify_event& event);
  void TakeFolder(const std::string& folder, const inotify_event& event);
  void TakeFile(const std::string& file, const inotify_event& event);
  bool IsInRoots(const std::string& path) const;

  std::vector<std::string> roots_;
  OnFilm onFilm_;
  OnFolder onFolder_;
  orvo::UniqueFd events_;
  std::unordered_map<int, std::string> folders_;  // by watch descriptor
  bool isFull_ = false;                           // the kernel allows no more watches
};

}  // namespace catalog
