// The folders depend on each other as the table in docs/architecture.md says, and never in a
// circle.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/sysroot.h"

namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;
// What each folder may include, or includes: folders by their path from the repository's root.
using Graph = std::map<std::string, Names>;

constexpr char kLibrary[] = "liborvoqmx";

// The texts between backticks, without a slash at their end.
std::vector<std::string> QuotedNames(const std::string& cell) {
  static const std::regex kQuoted("`([A-Za-z0-9_./-]+?)/?`");
  std::vector<std::string> names;
  for (std::sregex_iterator found(cell.begin(), cell.end(), kQuoted), end; found != end; ++found) {
    names.push_back((*found)[1]);
  }
  return names;
}

std::vector<std::string> Cells(const std::string& row) {
  std::vector<std::string> cells;
  std::istringstream text(row);
  for (std::string cell; std::getline(text, cell, '|');) {
    cells.push_back(cell);
  }
  return cells;
}

// The rows that the row of `folder` means by a name: a folder beside it or beside one that it lies
// in; where that has no row of its own, all rows below it.
Names Resolve(const Graph& rows, const std::string& folder, const std::string& name) {
  for (fs::path around = folder; !around.empty();) {
    around = around.parent_path();
    const std::string meant = (around / name).string();
    if (rows.count(meant) != 0) {
      return {meant};
    }
    Names below;
    for (const auto& [row, depends] : rows) {
      if (row.rfind(meant + "/", 0) == 0) {
        below.insert(row);
      }
    }
    if (!below.empty()) {
      return below;
    }
  }
  return {name};
}

// Reads the table whose header is "| folder | what may be put there | depends on |".
Graph ParseTable(const std::string& document) {
  Graph named;
  bool isInTable = false;
  std::istringstream lines(document);
  for (std::string line; std::getline(lines, line);) {
    const std::vector<std::string> cells = Cells(line);
    isInTable = cells.size() >= 4 && (isInTable || line.rfind("| folder |", 0) == 0);
    if (isInTable) {
      const std::vector<std::string> depends = QuotedNames(cells[3]);
      for (const std::string& folder : QuotedNames(cells[1])) {
        named[folder].insert(depends.begin(), depends.end());
      }
    }
  }
  Graph table;
  for (const auto& [folder, depends] : named) {
    for (const std::string& name : depends) {
      table[folder].merge(Resolve(named, folder, name));
    }
    table[folder];
  }
  return table;
}

// The row that a folder of sources belongs to; "" for none.
std::string RowOf(const Graph& table, std::string folder) {
  while (!folder.empty() && table.count(folder) == 0) {
    folder = fs::path(folder).parent_path().string();
  }
  return folder;
}

// May `from` include files of `to`, by the table or by what it may include itself?
bool IsAllowed(const Graph& table, const std::string& from, const std::string& to) {
  Names seen;
  std::function<bool(const std::string&)> reaches = [&](const std::string& row) {
    if (!seen.insert(row).second || table.count(row) == 0) {
      return false;
    }
    for (const std::string& name : table.at(row)) {
      if (name == to || reaches(name)) {
        return true;
      }
    }
    return false;
  };
  return from == to || reaches(from);
}

// "a -> b" for each pair of folders of which the table does not allow the first to include the
// second.
std::vector<std::string> Violations(const Graph& table, const Graph& includes) {
  std::vector<std::string> found;
  for (const auto& [from, targets] : includes) {
    for (const std::string& to : targets) {
      if (!IsAllowed(table, from, to)) {
        found.push_back(from + " -> " + to);
      }
    }
  }
  return found;
}

// A circle as "a -> b -> a"; "" where there is none.
std::string FindCircle(const Graph& includes) {
  Names done;
  std::vector<std::string> way;
  std::function<std::string(const std::string&)> visit = [&](const std::string& folder) {
    for (size_t i = 0; i < way.size(); ++i) {
      if (way[i] == folder) {
        std::string circle;
        for (; i < way.size(); ++i) {
          circle += way[i] + " -> ";
        }
        return circle + folder;
      }
    }
    std::string circle;
    if (done.insert(folder).second && includes.count(folder) != 0) {
      way.push_back(folder);
      for (const std::string& next : includes.at(folder)) {
        circle = circle.empty() ? visit(next) : circle;
      }
      way.pop_back();
    }
    return circle;
  };
  for (const auto& [folder, targets] : includes) {
    if (const std::string circle = visit(folder); !circle.empty()) {
      return circle;
    }
  }
  return "";
}

std::vector<std::string> IncludesOf(const std::string& source) {
  static const std::regex kInclude("^\\s*#\\s*include\\s+\"([^\"]+)\"");
  std::vector<std::string> names;
  std::istringstream lines(source);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_search(line, match, kInclude)) {
      names.push_back(match[1]);
    }
  }
  return names;
}

// The product's sources in a tree: all C++ files but those of tests and of measurements.
class Tree {
 public:
  Tree(fs::path root, Graph table) : root_(std::move(root)), table_(std::move(table)) {
    for (const auto& entry : fs::directory_iterator(root_)) {
      const std::string name = entry.path().filename().string();
      if (entry.is_directory() && name[0] != '.' && kOthers.count(name) == 0) {
        ReadBelow(entry.path());
      }
    }
  }

  const Graph& Includes() const { return includes_; }
  const Names& WithoutRow() const { return withoutRow_; }

 private:
  static inline const Names kOthers = {"tests", "bench", "build"};

  void ReadBelow(const fs::path& folder) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const std::string kind = entry.path().extension().string();
      if (entry.is_regular_file() && (kind == ".cpp" || kind == ".h")) {
        ReadSource(entry.path());
      }
    }
  }

  void ReadSource(const fs::path& file) {
    const std::string folder = file.parent_path().lexically_relative(root_).string();
    const std::string row = RowOf(table_, folder);
    if (row.empty()) {
      withoutRow_.insert(folder);
      return;
    }
    for (const std::string& name : IncludesOf(test::ReadWhole(file.string()))) {
      const std::string target = RowOf(table_, FolderOfHeader(name));
      if (!target.empty() && target != row) {
        includes_[row].insert(target);
      }
    }
  }

  // Headers of the library are named from its folder on. Generated ones are nowhere in the tree,
  // but their folder is.
  std::string FolderOfHeader(const std::string& name) const {
    const fs::path folder = fs::path(name).parent_path();
    return fs::is_directory(root_ / kLibrary / folder) ? (kLibrary / folder).string()
                                                       : folder.string();
  }

  fs::path root_;
  Graph table_;
  Graph includes_;
  Names withoutRow_;
};

std::string Document() {
  return test::ReadWhole(std::string(ORVO_SOURCE_DIR) + "/docs/architecture.md");
}

Tree Product() {
  return Tree(ORVO_SOURCE_DIR, ParseTable(Document()));
}

TEST(Folders, HaveARowInTheTable) {
  const Tree product = Product();
  EXPECT_GT(product.Includes().size(), 10U);
  EXPECT_EQ(product.WithoutRow(), Names{});
}

TEST(Folders, IncludeOnlyWhatTheTableAllows) {
  EXPECT_EQ(Violations(ParseTable(Document()), Product().Includes()), std::vector<std::string>{});
}

TEST(Folders, DependOnEachOtherInNoCircle) {
  EXPECT_EQ(FindCircle(Product().Includes()), "");
  EXPECT_EQ(FindCircle(ParseTable(Document())), "");
}

constexpr char kTable[] =
    "| folder | what may be put there | depends on |\n|---|---|---|\n"
    "| `base/` | all | nothing |\n"
    "| `lib/low/` | a `word` | `base` |\n"
    "| `lib/high/`, `lib/other/` | b | `low` |\n"
    "| `program/` | c | `lib` |\n\n| not | this | `table` |\n";

TEST(Folders, ReadTheirTable) {
  const Graph expected = {{"base", {}},
                          {"lib/low", {"base"}},
                          {"lib/high", {"lib/low"}},
                          {"lib/other", {"lib/low"}},
                          {"program", {"lib/high", "lib/low", "lib/other"}}};
  EXPECT_EQ(ParseTable(kTable), expected);
}

TEST(Folders, ThatIncludeWhatTheTableForbidsAreNamed) {
  const Graph table = ParseTable(kTable);
  EXPECT_EQ(Violations(table, {{"program", {"lib/high", "base"}}, {"lib/high", {"base"}}}),
            std::vector<std::string>{});
  EXPECT_EQ(Violations(table, {{"lib/low", {"lib/high"}}, {"base", {"program"}}}),
            (std::vector<std::string>{"base -> program", "lib/low -> lib/high"}));
  EXPECT_EQ(Violations(table, {{"lib/high", {"lib/other"}}}),
            std::vector<std::string>{"lib/high -> lib/other"});
}

TEST(Folders, InACircleAreNamed) {
  EXPECT_EQ(FindCircle({{"a", {"b", "c"}}, {"b", {"c"}}}), "");
  EXPECT_EQ(FindCircle({{"a", {"b"}}, {"b", {"c"}}, {"c", {"b"}}}), "b -> c -> b");
}

}  // namespace
