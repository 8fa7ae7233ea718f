// A library to preload: lets one call of a program or of the processes below it fail.
//
// FAILING_CALL is "KIND NUMBER ERRNO": the call with this number, from 1, among all calls of the
// kind fails with that error. For the number 0, the calls are counted only. FAILING_BELOW is a
// folder: of the calls that name or use a file, only those count whose file is below it, or is a
// pipe. FAILING_COUNT is a file with one counter for all processes. CLOCK_JUMP is a number of
// seconds by which the calendar clock has jumped. CLOCK_FILE is a file with two such numbers of 64
// bits that may change at any time: the seconds, and when the clock jumped. Files that are written
// after that get times of the clock that has jumped.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

using Counter = std::atomic<unsigned>;

struct Plan {
  std::array<char, 16> kind{};
  unsigned number = 0;
  int error = 0;
  const char* below = "";
  Counter* count = nullptr;
};

Counter* MapCounter(const char* path) {
  const int file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0));
  void* const memory =
      file < 0 ? MAP_FAILED
               : mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  syscall(SYS_close, file);
  return memory == MAP_FAILED ? nullptr : static_cast<Counter*>(memory);
}

// "KIND NUMBER ERRNO".
bool ReadCall(const char* text, Plan& plan) {
  const char* const blank = strchr(text, ' ');
  if (blank == nullptr || blank - text >= static_cast<ptrdiff_t>(plan.kind.size())) {
    return false;
  }
  std::copy(text, blank, plan.kind.begin());
  char* end = nullptr;
  plan.number = static_cast<unsigned>(strtoul(blank, &end, 10));
  plan.error = static_cast<int>(strtol(end, &end, 10));
  return *end == '\0' && plan.error >= 0;
}

Plan ReadPlan() {
  Plan plan;
  const char* const call = getenv("FAILING_CALL");
  const char* const below = getenv("FAILING_BELOW");
  const char* const count = getenv("FAILING_COUNT");
  if (call != nullptr && below != nullptr && count != nullptr && ReadCall(call, plan)) {
    plan.below = below;
    plan.count = MapCounter(count);
  }
  return plan;
}

// Does this call of the kind fail? Sets errno if so.
bool Fails(std::string_view kind) {
  static const Plan plan = ReadPlan();
  if (plan.count == nullptr || kind != plan.kind.data() ||
      plan.count->fetch_add(1) + 1 != plan.number) {
    return false;
  }
  errno = plan.error;
  return true;
}

bool IsBelow(const char* path) {
  static const char* const below = getenv("FAILING_BELOW");
  return below != nullptr && path != nullptr && strncmp(path, below, strlen(below)) == 0;
}

bool FailsAt(std::string_view kind, const char* path) {
  return IsBelow(path) && Fails(kind);
}

bool FailsOn(std::string_view kind, int descriptor) {
  std::array<char, 64> name{};
  std::array<char, 4096> target{};
  snprintf(name.data(), name.size(), "/proc/self/fd/%d", descriptor);
  const int saved = errno;
  const ssize_t length = readlink(name.data(), target.data(), target.size() - 1);
  errno = saved;
  const bool counts = length > 0 && (IsBelow(target.data()) ||
                                     strncmp(target.data(), "pipe:", strlen("pipe:")) == 0);
  return counts && Fails(kind);
}

template <typename Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

struct Jump {
  int64_t seconds;
  int64_t since;  // by the kernel's clock
};

const Jump* MapJump() {
  const char* const path = getenv("CLOCK_FILE");
  const int file =
      path == nullptr
          ? -1
          : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC, 0));
  void* const memory =
      file < 0 ? MAP_FAILED : mmap(nullptr, sizeof(Jump), PROT_READ, MAP_SHARED, file, 0);
  syscall(SYS_close, file);
  return memory == MAP_FAILED ? nullptr : static_cast<const Jump*>(memory);
}

// Null without a file. Mapped before a process confines itself.
const Jump* const theJump = MapJump();

time_t ClockJump() {
  static const char* const jump = getenv("CLOCK_JUMP");
  static const time_t seconds = jump != nullptr ? strtoll(jump, nullptr, 10) : 0;
  return seconds + (theJump != nullptr ? theJump->seconds : 0);
}

// The kernel's clock has not jumped, but the one that a program reads has.
void Shift(timespec& time) {
  timespec now{};
  syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
  if (time.tv_sec >= theJump->since && time.tv_sec <= now.tv_sec) {
    time.tv_sec += theJump->seconds;
  }
}

int Shifted(int result, struct stat* status) {
  if (result == 0 && theJump != nullptr && theJump->seconds != 0) {
    Shift(status->st_mtim);
    Shift(status->st_ctim);
    Shift(status->st_atim);
  }
  return result;
}

bool TakesMode(int flags) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0;
}

}  // namespace

#define REAL(name) static const auto real = Real<decltype(&(name))>(#name)

extern "C" {

#define OPEN(name)                                                   \
  int name(const char* path, int flags, ...) {                       \
    va_list rest;                                                    \
    va_start(rest, flags);                                           \
    const mode_t mode = TakesMode(flags) ? va_arg(rest, mode_t) : 0; \
    va_end(rest);                                                    \
    REAL(name);                                                      \
    return FailsAt("open", path) ? -1 : real(path, flags, mode);     \
  }
#define OPENAT(name)                                                                   \
  int name(int folder, const char* path, int flags, ...) {                             \
    va_list rest;                                                                      \
    va_start(rest, flags);                                                             \
    const mode_t mode = TakesMode(flags) ? va_arg(rest, mode_t) : 0;                   \
    va_end(rest);                                                                      \
    REAL(name);                                                                        \
    const bool fails = *path == '/' ? FailsAt("open", path) : FailsOn("open", folder); \
    return fails ? -1 : real(folder, path, flags, mode);                               \
  }
#define FOPEN(name)                                            \
  FILE* name(const char* path, const char* mode) {             \
    REAL(name);                                                \
    return FailsAt("open", path) ? nullptr : real(path, mode); \
  }
OPEN(open)
OPEN(open64)
OPENAT(openat)
OPENAT(openat64)
FOPEN(fopen)
FOPEN(fopen64)

ssize_t write(int descriptor, const void* data, size_t size) {
  REAL(write);
  return FailsOn("write", descriptor) ? -1 : real(descriptor, data, size);
}
ssize_t writev(int descriptor, const iovec* parts, int count) {
  REAL(writev);
  return FailsOn("write", descriptor) ? -1 : real(descriptor, parts, count);
}
ssize_t read(int descriptor, void* data, size_t size) {
  REAL(read);
  return FailsOn("read", descriptor) ? -1 : real(descriptor, data, size);
}
int close(int descriptor) {
  REAL(close);
  // Linux closes the descriptor even when it reports an error.
  const bool fails = FailsOn("close", descriptor);
  const int error = errno;
  const int result = real(descriptor);
  errno = fails ? error : errno;
  return fails ? -1 : result;
}
int rename(const char* from, const char* to) noexcept {
  REAL(rename);
  return FailsAt("rename", to) ? -1 : real(from, to);
}
int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
  REAL(renameat);
  return FailsOn("rename", toFolder) ? -1 : real(fromFolder, from, toFolder, to);
}
int mkdir(const char* path, mode_t mode) noexcept {
  REAL(mkdir);
  return FailsAt("mkdir", path) ? -1 : real(path, mode);
}
int mkdirat(int folder, const char* path, mode_t mode) noexcept {
  REAL(mkdirat);
  return FailsOn("mkdir", folder) ? -1 : real(folder, path, mode);
}
int symlink(const char* target, const char* path) noexcept {
  REAL(symlink);
  return FailsAt("symlink", path) ? -1 : real(target, path);
}
int flock(int descriptor, int operation) noexcept {
  REAL(flock);
  return FailsOn("flock", descriptor) ? -1 : real(descriptor, operation);
}
pid_t fork() noexcept {
  REAL(fork);
  return Fails("fork") ? -1 : real();
}
int pipe2(int* ends, int flags) noexcept {
  REAL(pipe2);
  return Fails("pipe") ? -1 : real(ends, flags);
}
int execve(const char* path, char* const* arguments, char* const* environment) noexcept {
  REAL(execve);
  return Fails("exec") ? -1 : real(path, arguments, environment);
}
int execvpe(const char* path, char* const* arguments, char* const* environment) noexcept {
  REAL(execvpe);
  return Fails("exec") ? -1 : real(path, arguments, environment);
}
int clock_gettime(clockid_t clock, timespec* now) noexcept {
  REAL(clock_gettime);
  const int result = real(clock, now);
  if (result == 0 && clock == CLOCK_REALTIME) {
    now->tv_sec += ClockJump();
  }
  return result;
}
int stat(const char* path, struct stat* status) noexcept {
  REAL(stat);
  return Shifted(real(path, status), status);
}
int lstat(const char* path, struct stat* status) noexcept {
  REAL(lstat);
  return Shifted(real(path, status), status);
}
int fstat(int descriptor, struct stat* status) noexcept {
  REAL(fstat);
  return Shifted(real(descriptor, status), status);
}
int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
  REAL(fstatat);
  return Shifted(real(folder, path, status, flags), status);
}
time_t time(time_t* result) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != nullptr) {
    *result = now.tv_sec;
  }
  return now.tv_sec;
}

}  // extern "C"
