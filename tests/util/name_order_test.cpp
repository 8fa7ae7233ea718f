#include "util/name_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using Names = std::vector<std::string>;

TEST(NameOrder, NumbersCountByTheirValue) {
  const Names sorted = {"clip 1.mkv",
                        "clip 2.mkv",
                        "clip 10.mkv",
                        "clip 10a.mkv",
                        "s1e9.mkv",
                        "s1e010.mkv",
                        "s2e1.mkv",
                        "x 99999999999999999999.mkv",
                        "x 100000000000000000000.mkv"};
  Names names(sorted.rbegin(), sorted.rend());
  std::sort(names.begin(), names.end(), orvo::NameComesBefore);
  EXPECT_EQ(names, sorted);
}

TEST(NameOrder, CaseAndAccentsCountLast) {
  const Names sorted = {"Apfel", "äpfel", "Birne", "Émile", "emilf", "été", "Zebra"};
  Names names(sorted.rbegin(), sorted.rend());
  std::sort(names.begin(), names.end(), orvo::NameComesBefore);
  EXPECT_EQ(names, sorted);
}

TEST(NameOrder, DifferentNamesAlwaysHaveAnOrder) {
  const Names names = {"a", "A", "1", "01", "001", "\xe9", "", "e\xcc\x81", "é"};
  for (const std::string& left : names) {
    for (const std::string& right : names) {
      EXPECT_EQ(orvo::NameComesBefore(left, right) + orvo::NameComesBefore(right, left),
                left == right ? 0 : 1)
          << left << " and " << right;
    }
  }
}

TEST(NameOrder, KeysSortAsTheNamesDo) {
  const Names names = {"clip 1.mkv", "clip 2.mkv", "clip 10.mkv", "clip 010.mkv", "Clip 2.mkv",
                       "clip",       "clip 2",     "clip a",      "a1",           "a1b",
                       "a1 b",       "été",        "ete",         "007",          "7",
                       "7a",         "",           "a/1",         "x99",          "x100",
                       "\xe9",       "~",          "x 1.2",       "x 1.10"};
  const auto key = [](const std::string& name) {
    return orvo::NameSortKey(name, orvo::FoldName(name));
  };
  for (const std::string& left : names) {
    for (const std::string& right : names) {
      EXPECT_EQ(key(left) < key(right), orvo::NameComesBefore(left, right))
          << left << " and " << right;
    }
  }
}

TEST(FoldName, MakesTheLettersOfAllScriptsSmallAndPlain) {
  EXPECT_EQ(orvo::FoldName("Film 1 ÄÖÜ ÉΣ ПРИВЕТ"), "film 1 aou eσ привет");
  EXPECT_EQ(orvo::FoldName("Straße, Œuvre, Łódź, Ёлка, Ελλάδα"),
            "strasse, oeuvre, lodz, елка, ελλαδα");
}

TEST(FoldName, AcceptsAccentsThatFollowTheirLetter) {
  EXPECT_EQ(orvo::FoldName("Cafe\xcc\x81"), orvo::FoldName("Café"));
}

TEST(FoldName, LeavesBytesThatAreNoTextAsTheyAre) {
  EXPECT_EQ(orvo::FoldName("CAF\xe9.MKV"), "caf\xe9.mkv");
  EXPECT_EQ(orvo::FoldName("A\xc3"), "a\xc3");
  EXPECT_EQ(orvo::FoldName(""), "");
}
