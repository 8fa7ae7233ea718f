// The appliance's system calls, implemented for plain Linux. This header is the only interface
// between the streaming library and its system. An appliance maker replaces liborvoplat and keeps
// the rest. No function here throws; each returns its failures.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/export.h"

namespace orvo {

// The real place of a fixed absolute path of the system. If ORVO_SYSROOT is set and the process
// does not run set-uid, that directory is put before the path. A path under /proc that the
// directory lacks stays unchanged. In all other cases, and for a relative path, returns the path
// itself.
ORVO_API std::string SystemPath(const std::string& path);

// Waits until the process `pid` has ended (a zombie has ended) or `milliseconds` have passed.
// Returns true if it no longer runs. A pid below 1 names no process.
ORVO_API bool WaitForExit(pid_t pid, int milliseconds);

// Runs `program` like PlatExecv, with /dev/null as its standard streams. Kills it after
// `milliseconds`, and when the caller ends. Returns the result of PlatExecv, 128 + SIGKILL if the
// time was over, and 127 if the program cannot be executed. If `output` is set, appends the
// program's whole standard output to it, in memory.
ORVO_API int RunWithin(const std::string& program, const std::vector<std::string>& argv,
                       int milliseconds, std::string* output = nullptr);

// Waits for the end of a child and reaps it. Returns its exit status, 128 + the number of the
// signal that ended it, or -1 if `pid` is not a child.
ORVO_API int WaitForStatus(pid_t pid);

// A forked child of `parent` calls this to get SIGKILL when the parent ends. Returns false if the
// parent has already ended. A later change of the effective ids cancels the request.
// Async-signal-safe.
ORVO_API bool DieWithParent(pid_t parent);

}  // namespace orvo

// --- Processes ---------------------------------------------------------------------------------

// Runs `program` with the argument vector `argv` (argv[0] included) and waits for it, without a
// shell. Returns the exit status, 128 + signal if a signal ended it, and -1 if it could not be
// started.
ORVO_API int PlatExecv(const std::string& program, const std::vector<std::string>& argv);

// The same with separate arguments; argv[0] is `program`.
template <typename... Arguments>
int PlatExec(const std::string& program, const Arguments&... arguments) {
  return PlatExecv(program, {program, std::string(arguments)...});
}

// Forks a detached child. It belongs to init (or to the nearest subreaper) from the start, so the
// caller need not wait for it or reap it. Returns -1 on failure, 1 in the caller, 0 in the child.
ORVO_API int PlatProcForkChildNoWait();

// Does `pid` name a process that still runs? A zombie does not run.
ORVO_API bool PlatProcAlive(pid_t pid);

// The decimal pid in the first line of a pid file; -1 if there is no such file or no number in it.
ORVO_API pid_t PlatReadPidFile(const std::string& path);

// --- Configuration files and errors --------------------------------------------------------------

// Reads the value of `key` from a file of key=value lines. Reads the lines like a shell: blanks
// around the key, "export " before it, single or double quotes and backslashes in the value,
// comments after "#". The last assignment wins. Writes the value and a terminating zero into
// `buffer` of `size` bytes. Returns its length; 0 if the key is absent or its value is empty; -1 if
// the file cannot be read or the value does not fit. `flags` is reserved: pass 0.
ORVO_API int PlatFileGetKeyValue(const std::string& file, const std::string& key, char* buffer,
                                 int size, int flags);

// Does the file give `key` exactly this value? `ignoreCase` ignores the case of letters.
ORVO_API bool PlatFileCheckKeyValue(const std::string& file, const std::string& key,
                                    const std::string& value, bool ignoreCase = false);

// The calling thread's last platform error code; 0 at start.
ORVO_API int PlatErrGet();

// Sets the code. `file` and `line` tell a debugger the place; they are not stored.
ORVO_API void PlatErrSetEx(int code, const char* file, int line);
#define PlatErrSet(code) PlatErrSetEx((code), __FILE__, __LINE__)

// --- Storage -------------------------------------------------------------------------------------

// Creates the directory `path`. With `mustBeNew`, an existing directory is a failure. With
// `parents`, it also makes missing parents. New directories get `mode` (the umask applies) and, if
// the caller may give files away, `owner` and `group`. Returns 0, or -1 with errno set.
ORVO_API int PlatFSMkdirP(const std::string& path, int mustBeNew, int parents, uid_t owner,
                          gid_t group, mode_t mode);

// Flag bits of VolumeAvailGet.
inline constexpr unsigned kVolumeExists = 0x1;
inline constexpr unsigned kVolumeNoneWritable = 0x4;

// Chooses the data volume with the most free space among those with at least `space` bytes free for
// the caller. "/etc/orvo/volumes" lists the mount paths of the candidates, one in each line.
// Without that file, the candidates are the directories volume1, volume2, ... of the sysroot;
// without a sysroot, they are the mounted, writable, disk-backed file systems. Returns 1 and sets
// `mountPath`; 0 if no volume qualifies; -1 if the volumes cannot be determined. `flags`:
// kVolumeExists if there is any volume, kVolumeNoneWritable if there are volumes and none is
// writable.
ORVO_API int VolumeAvailGet(uint64_t space, std::string& mountPath, unsigned& flags);

// A volume that VolumeAvailGet can choose.
struct PlatVolume {
  std::string mountPath;
  uint64_t freeBytes;
  uint64_t totalBytes;
  bool writable;
};
// Lists all volumes in the order of their source. Returns false if they cannot be determined.
ORVO_API bool VolumeList(std::vector<PlatVolume>& volumes);

namespace libmrv {

// Runs `action` with root's effective ids if root is among the process's ids, and always restores
// the previous ids. A process without root runs the action with its own ids. Returns the action's
// result. If the switch fails, the action does not run; returns false and logs a line with `name`.
ORVO_API bool DoActionAsRoot(const std::string& name, const std::function<bool()>& action);

namespace critical {

namespace orvosdk {
// Creates `path` and its missing parents with `mode`. Returns true if the directory exists
// afterwards.
ORVO_API bool ORVOFSMkdirPMirevo(const std::string& path, mode_t mode);
}  // namespace orvosdk

namespace fileop {
// Sets `size` to the file's size in bytes. Returns false if `path` names no file whose size can be
// read.
ORVO_API bool CheckFileAndGetSize(const std::string& path, int64_t& size);
}  // namespace fileop

namespace orvoindex {
// The directory of the indexer's data about one media file: "@ea" beside the file, then the file's
// name. Returns false for an empty path and for a path that ends in a slash.
ORVO_API bool GetEADirPath(const std::string& path, std::string& directory);
}  // namespace orvoindex

}  // namespace critical
}  // namespace libmrv
