// Processes that parse media: what each kind may use of the machine, and what it may reach.
//
// A film is made by strangers, and the libraries that read it have defects. Such a process is a
// child with limits (memory, time, files) that reaches the film and the system's libraries and
// nothing else: Landlock hides all other files, and a filter refuses the system calls that no
// decoder needs, among them sockets, other processes and new rights.
#pragma once

#include <linux/filter.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/process_launch.h"

namespace orvo {

class LandlockRules;

enum class Job { kProbe, kPicture, kSubtitles, kAnalysis, kTranscoder };

// 0 stands for no limit. "/var/packages/Mirevo/etc/confinement.conf" may change each one by the
// key job_limit, such as "probe_memory".
struct JobLimits {
  const char* name;
  uint64_t memory;     // MiB of addresses; a forked function has them beside what is mapped already
  uint64_t writable;   // MiB of memory that it may write, the same
  uint64_t processor;  // seconds
  uint64_t wall;       // seconds, kept by the owner
  uint64_t file;       // MiB that one file may grow to
  uint64_t files;      // that are open
  uint64_t processes;  // of the user, threads included; root has no such limit
};

// The limits of a job on this machine.
ORVO_API JobLimits LimitsOf(Job job);

// The key "sandbox" of the same file. Without one it is `kRequired` where the kernel can.
enum class Sandbox {
  kRequired,   // what cannot be confined does not run
  kPreferred,  // it runs with what this kernel has
  kOff,        // limits only
};
ORVO_API Sandbox SandboxMode();

// What this kernel lacks to confine a process, for people; "" for nothing.
ORVO_API std::string MissingConfinement();

// What a job needs beside the system's libraries.
struct Reach {
  std::string program = {};             // what it executes; "" for a function of this program
  std::vector<int> files = {};          // open files that it gets and may open anew, and no others
                                        // of the same names; borrowed
  std::vector<std::string> read = {};   // files, and folders with all below
  std::vector<std::string> write = {};  // the same
  bool hardware = false;                // devices for pictures
  bool socketPairs = false;             // pairs of local sockets, by which threads wake each other
};

// The confinement of one process. Made before the launch, which it has to outlive.
class ORVO_API Confinement {
 public:
  // Logs why when the job must not run; its launch fails with EOPNOTSUPP then.
  Confinement(Job job, const Reach& reach);
  ~Confinement();
  Confinement(const Confinement&) = delete;
  Confinement& operator=(const Confinement&) = delete;

  // Adds the limits and the confinement.
  void AddTo(LaunchOptions& options);

  // Puts the limits and the confinement on the calling process, which has one thread. Returns 0 or
  // an errno; the process should end after a failure.
  int Enter();

  // For a process that starts others and confines them: puts only the files on it, and a filter
  // that lets it do so. The results are the same. Use a confinement of its own for that.
  int EnterAsParent();

  // The same for a process whose children need other files than it knows yet: only the filter.
  int EnterAsStarter();

  // How long its owner lets it run, in milliseconds; -1 for any time.
  int WallMilliseconds() const;

 private:
  static int Apply(void* self);

  JobLimits limits_;
  bool isFunction_;
  bool isRefused_ = false;
  std::unique_ptr<LandlockRules> files_;
  std::vector<sock_filter> calls_;
};

// As RunWithin of plat.h, but confined, in a process group of its own, and not longer than the job
// may take. -1 when it cannot be started, also because it must not run.
ORVO_API int RunConfined(Job job, const Reach& reach, const std::vector<std::string>& argv,
                         int milliseconds, std::string* output = nullptr);

}  // namespace orvo
