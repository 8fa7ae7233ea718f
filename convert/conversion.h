// One film in work.
#pragma once

#include <string>

#include "convert/queue.h"
#include "convert/recipe.h"
#include "convert/work_folder.h"
#include "convert/work_process.h"
#include "metadata/video_metadata.h"
#include "platform/media_file.h"

namespace convert {

class Conversion {
 public:
  enum class Step {
    kOn,      // call Run() next
    kReady,   // the result is in its place
    kFailed,  // the item's reason tells why
    kLater,   // the same, but it may succeed later; the work that is done is kept
  };

  explicit Conversion(Item item);
  // Ends its processes and removes them from the register. The pieces stay.
  ~Conversion();
  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  const Item& Entry() const { return item_; }

  // Opens and probes the film, and chooses the folder. To be called once, first. kOn, kFailed or
  // kLater.
  Step Prepare();

  // Starts or continues the next part of the work. Returns false if the register has no room for
  // it, or no process can be started.
  bool Run();
  bool IsRunning() const { return process_ && !isPaused_; }
  // Stops the work at its place and removes it from the register.
  void Pause();

  // Becomes readable when Finish() is due; -1 for none.
  int Descriptor() const { return process_.Descriptor(); }
  bool HasEnded() const { return process_ && process_.HasEnded(); }
  // Takes the result of the process that has ended.
  Step Finish();

 private:
  Step Fail(const std::string& reason);
  Step Wait(const std::string& reason);
  bool Open(std::string& problem);
  Step ChooseFolder();
  bool IsOfThisFilm() const;
  std::string FilmState() const;
  int StartConverting();
  void Leave();
  Step FinishConverting(int status);
  Step FinishJoining(int status);
  Step TryAgain(int status);

  Item item_;
  Profile profile_{};
  orvo::MediaFile film_;
  LibOrvoQMX::VideoMetaData known_;
  WorkFolder folder_;
  WorkProcess process_;
  bool isJoining_ = false;
  bool isPaused_ = false;
  bool isEntered_ = false;       // in the register
  bool hasOlderPieces_ = false;  // made before this object
  int first_ = 0;                // the piece that the run began with
  int failures_ = 0;             // since the last complete piece
};

}  // namespace convert
