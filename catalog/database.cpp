#include "catalog/database.h"

#include <sqlite3.h>

#include "util/lazy_library.h"

namespace catalog {
namespace {

constexpr char kSoname[] = "libsqlite3.so.0";
// A reader that meets a checkpoint waits for this time.
constexpr int kPatienceMilliseconds = 100;

// The functions of the library; all are null if it cannot be loaded.
struct Functions {
  decltype(&sqlite3_open_v2) open = nullptr;
  decltype(&sqlite3_close_v2) close = nullptr;
  decltype(&sqlite3_busy_timeout) setPatience = nullptr;
  decltype(&sqlite3_exec) exec = nullptr;
  decltype(&sqlite3_prepare_v2) prepare = nullptr;
  decltype(&sqlite3_finalize) finalize = nullptr;
  decltype(&sqlite3_step) step = nullptr;
  decltype(&sqlite3_reset) reset = nullptr;
  decltype(&sqlite3_bind_int64) bindNumber = nullptr;
  decltype(&sqlite3_bind_blob) bindBytes = nullptr;
  decltype(&sqlite3_column_int64) number = nullptr;
  decltype(&sqlite3_column_blob) bytes = nullptr;
  decltype(&sqlite3_column_bytes) size = nullptr;
  bool isComplete = false;

  Functions() {
    const orvo::LazyLibrary library(kSoname);
    isComplete =
        library.Find("sqlite3_open_v2", open) && library.Find("sqlite3_close_v2", close) &&
        library.Find("sqlite3_busy_timeout", setPatience) && library.Find("sqlite3_exec", exec) &&
        library.Find("sqlite3_prepare_v2", prepare) && library.Find("sqlite3_finalize", finalize) &&
        library.Find("sqlite3_step", step) && library.Find("sqlite3_reset", reset) &&
        library.Find("sqlite3_bind_int64", bindNumber) &&
        library.Find("sqlite3_bind_blob", bindBytes) &&
        library.Find("sqlite3_column_int64", number) &&
        library.Find("sqlite3_column_blob", bytes) && library.Find("sqlite3_column_bytes", size);
  }
};

const Functions& Sqlite() {
  static const Functions functions;
  return functions;
}

}  // namespace

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const {
  Sqlite().finalize(statement);
}

Statement& Statement::With(int64_t number) {
  if (statement_) {
    Sqlite().bindNumber(statement_.get(), ++parameter_, number);
  }
  return *this;
}

Statement& Statement::With(const std::string& text) {
  if (statement_) {
    // The pointer of an empty text is not null, which would mean NULL.
    Sqlite().bindBytes(statement_.get(), ++parameter_, text.data(), static_cast<int>(text.size()),
                       SQLITE_TRANSIENT);
  }
  return *this;
}

bool Statement::Step() {
  const int result = statement_ ? Sqlite().step(statement_.get()) : SQLITE_ERROR;
  hasFailed_ = result != SQLITE_ROW && result != SQLITE_DONE;
  return result == SQLITE_ROW;
}

bool Statement::Run() {
  Step();
  const bool isDone = !hasFailed_;
  Reset();
  return isDone;
}

void Statement::Reset() {
  if (statement_) {
    Sqlite().reset(statement_.get());
  }
  parameter_ = 0;
}

int64_t Statement::Number(int column) const {
  return Sqlite().number(statement_.get(), column);
}

std::string_view Statement::Bytes(int column) const {
  const void* const bytes = Sqlite().bytes(statement_.get(), column);
  const auto size = static_cast<size_t>(Sqlite().size(statement_.get(), column));
  return bytes == nullptr ? "" : std::string_view(static_cast<const char*>(bytes), size);
}

void Database::Closer::operator()(sqlite3* database) const {
  Sqlite().close(database);
}

Database::Database(const std::string& path, Use use) {
  const int flags =
      (use == Use::kWrite ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY) |
      SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW;
  sqlite3* opened = nullptr;
  if (!Sqlite().isComplete) {
    return;
  }
  const int result = Sqlite().open(path.c_str(), &opened, flags, nullptr);
  database_.reset(opened);
  if (result != SQLITE_OK) {
    database_.reset();
    return;
  }
  Sqlite().setPatience(opened, kPatienceMilliseconds);
}

bool Database::Run(const char* statements) const {
  return IsOpen() &&
         Sqlite().exec(database_.get(), statements, nullptr, nullptr, nullptr) == SQLITE_OK;
}

Statement Database::Prepare(const char* statement) const {
  sqlite3_stmt* prepared = nullptr;
  if (IsOpen()) {
    Sqlite().prepare(database_.get(), statement, -1, &prepared, nullptr);
  }
  return Statement(prepared);
}

}  // namespace catalog
