// Output of the commands.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace mirevo {

// Prints a document on several lines, with sorted keys.
void PrintJson(const Json::Value& document);

// Prints rows of cells as columns, each as wide as its widest cell.
void PrintTable(const std::vector<std::vector<std::string>>& rows);

// "1:02:03" and "4:05".
std::string Clock(unsigned seconds);

// "3.4 GiB".
std::string Size(uint64_t bytes);

// The text as one terminal line: control characters become "?".
std::string Printable(const std::string& text);

// Prints the program's name and the text as one line on standard error.
void Complain(const std::string& text);

}  // namespace mirevo
