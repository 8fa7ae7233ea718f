// A database file of SQLite. The library is loaded when a process opens its first database.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace catalog {

// A prepared statement. It must not outlive its database.
class Statement {
 public:
  // Sets the next parameter. Texts are stored as bytes, because names need not be valid text.
  Statement& With(int64_t number);
  Statement& With(const std::string& text);

  // Moves to the next row. Returns false after the last one and after a failure.
  bool Step();
  // Runs a statement without rows, and prepares it for the next parameters. Returns false after a
  // failure.
  bool Run();
  // Prepares it for the next parameters.
  void Reset();

  // Did the last step fail, rather than end?
  bool HasFailed() const { return hasFailed_; }

  // Columns of the current row, from 0.
  int64_t Number(int column) const;
  std::string Text(int column) const { return std::string(Bytes(column)); }
  std::string_view Bytes(int column) const;  // valid until the next step

 private:
  friend class Database;
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };
  explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}

  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
  int parameter_ = 0;
  bool hasFailed_ = false;
};

class Database {
 public:
  enum class Use { kRead, kWrite };

  // Opens a database file; kWrite creates it if it is missing. The file may still be damaged: each
  // statement then fails.
  Database(const std::string& path, Use use);

  bool IsOpen() const { return database_ != nullptr; }
  // Runs statements without parameters and rows. Returns false after a failure.
  bool Run(const char* statements) const;
  // A statement that cannot be prepared fails at its first step.
  Statement Prepare(const char* statement) const;

 private:
  struct Closer {
    void operator()(sqlite3* database) const;
  };

  std::unique_ptr<sqlite3, Closer> database_;
};

}  // namespace catalog
