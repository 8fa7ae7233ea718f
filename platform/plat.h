// The appliance's system calls, as plain Linux has them. This header is the one seam between the
// streaming library and the system it runs on: an appliance maker replaces liborvoplat and keeps
// the rest. Nothing here throws; failures are results.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/export.h"

namespace orvo {

// Where a fixed absolute path of the system really lies. With ORVO_SYSROOT set (and the process not
// running set-uid) that directory is put before it; a path under /proc that the directory lacks
// stays the real one. Otherwise, and for a path that is not absolute, the path itself.
ORVO_API std::string SystemPath(const std::string& path);

// Waits until the process `pid` has ended (a zombie has ended) or `milliseconds` have passed.
// True when it no longer runs. A pid below 1 names no process.
ORVO_API bool WaitForExit(pid_t pid, int milliseconds);

// Runs `program` as PlatExecv does, with its standard streams at /dev/null, for `milliseconds` at
// most; then, and when the caller ends, it is killed. Returns what PlatExecv returns, 128 + SIGKILL
// when the time was over, and 127 when the program cannot be executed. What it writes to its
// standard output is appended to `output` where there is one, all of it in memory.
ORVO_API int RunWithin(const std::string& program, const std::vector<std::string>& argv,
                       int milliseconds, std::string* output = nullptr);

// Waits for the end of a child and reaps it: its exit status, 128 + the number of the signal that
// ended it, or -1 when `pid` is no child.
ORVO_API int WaitForStatus(pid_t pid);

// In a forked child of `parent`: asks for SIGKILL when the parent ends. False when it is gone
// already. A later change of the effective ids takes the wish back. Async-signal-safe.
ORVO_API bool DieWithParent(pid_t parent);

}  // namespace orvo

// --- Processes ---------------------------------------------------------------------------------

// Runs `program` with the argument vector `argv` (argv[0] included) and waits for it. No shell is
// involved. Returns the exit status, 128 + signal when a signal ended it, and -1 when it could not
// be started.
ORVO_API int PlatExecv(const std::string& program, const std::vector<std::string>& argv);

// The same with the arguments written out; argv[0] is `program`.
template <typename... Arguments>
int PlatExec(const std::string& program, const Arguments&... arguments) {
  return PlatExecv(program, {program, std::string(arguments)...});
}

// Forks a detached child that the caller neither waits for nor has to reap: it belongs to init (or
// to the nearest subreaper) from the start. Returns -1 on failure, 1 in the caller, 0 in the child.
ORVO_API int PlatProcForkChildNoWait();

// True when `pid` names a process that still runs. A zombie does not run.
ORVO_API bool PlatProcAlive(pid_t pid);

// The decimal pid in the first line of a pid file; -1 when there is no such file or no such number.
ORVO_API pid_t PlatReadPidFile(const std::string& path);

// --- Configuration files and errors --------------------------------------------------------------

// Reads the value of `key` from a file of key=value lines as a shell would read them: blanks around
// the key, "export " before it, single or double quotes and backslashes in the value, comments
// after
// "#". The last assignment wins. Writes the value with its terminating zero into `buffer` of `size`
// bytes. Returns its length; 0 when the key is absent or its value empty; -1 when the file cannot
// be read or the value does not fit. `flags` is reserved: pass 0.
ORVO_API int PlatFileGetKeyValue(const std::string& file, const std::string& key, char* buffer,
                                 int size, int flags);

// True when the file gives `key` exactly this value (case ignored when `ignoreCase`).
ORVO_API bool PlatFileCheckKeyValue(const std::string& file, const std::string& key,
                                    const std::string& value, bool ignoreCase = false);

// The calling thread's last platform error code; 0 at start.
ORVO_API int PlatErrGet();

// Sets it. `file` and `line` say where, for a debugger; they are not kept.
ORVO_API void PlatErrSetEx(int code, const char* file, int line);
#define PlatErrSet(code) PlatErrSetEx((code), __FILE__, __LINE__)

// --- Storage -------------------------------------------------------------------------------------

// Creates the directory `path`. `mustBeNew`: an existing one is a failure. `parents`: missing
// parents are made as well. Directories that the call makes get `mode` (the umask applies) and,
// where the caller may give files away, `owner` and `group`. Returns 0, or -1 with errno set.
ORVO_API int PlatFSMkdirP(const std::string& path, int mustBeNew, int parents, uid_t owner,
                          gid_t group, mode_t mode);

// Flag bits of VolumeAvailGet.
inline constexpr unsigned kVolumeExists = 0x1;
inline constexpr unsigned kVolumeNoneWritable = 0x4;

// Chooses the data volume with the most free space among those with at least `space` bytes free for
// the caller. The candidates are the mount paths listed, one a line, in "/etc/orvo/volumes";
// without that file, the directories volume1, volume2, ... of the sysroot, or, with no sysroot, the
// mounted, writable, disk-backed file systems. Returns 1 and fills in `mountPath`; 0 when no volume
// qualifies; -1 when the volumes cannot be told. `flags`: kVolumeExists when there is any volume,
// kVolumeNoneWritable when there are some and none can be written.
ORVO_API int VolumeAvailGet(uint64_t space, std::string& mountPath, unsigned& flags);

// What VolumeAvailGet chooses from.
struct PlatVolume {
  std::string mountPath;
  uint64_t freeBytes;
  uint64_t totalBytes;
  bool writable;
};
// All of them, in the order of their source; false when they cannot be told.
ORVO_API bool VolumeList(std::vector<PlatVolume>& volumes);

namespace libmrv {

// Runs `action` with root's effective ids where the process has root among its ids, and restores
// the previous ids on every path out. A process without root has nothing to switch: the action runs
// with the ids it has. Returns what the action returns; false, with a log line that carries `name`,
// when switching failed and the action did not run.
ORVO_API bool DoActionAsRoot(const std::string& name, const std::function<bool()>& action);

namespace critical {

namespace orvosdk {
// Creates `path` and its missing parents with `mode`. True when the directory is there afterwards.
ORVO_API bool ORVOFSMkdirPMirevo(const std::string& path, mode_t mode);
}  // namespace orvosdk

namespace fileop {
// True, and the size in bytes, when `path` names a file that can be measured.
ORVO_API bool CheckFileAndGetSize(const std::string& path, int64_t& size);
}  // namespace fileop

namespace orvoindex {
// The directory that holds what the indexer knows of one media file: "@ea" beside the file, then
// the file's name. False for an empty path and for one that ends in a slash.
ORVO_API bool GetEADirPath(const std::string& path, std::string& directory);
}  // namespace orvoindex

}  // namespace critical
}  // namespace libmrv
