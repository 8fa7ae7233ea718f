// Parsers, and texts that would keep a careless parser busy.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace linear {

struct Parser {
  const char* name;
  // Parses a text and returns the number of bytes that come out.
  size_t (*parse)(const std::string& text);
  // `head` stands once at the beginning of a text; each of `pieces` is repeated after it.
  std::string head;
  std::vector<std::string> pieces;
};

// All parsers of texts that clients, media folders or other programs supply.
const std::vector<Parser>& Parsers();

// A text of about `size` bytes.
std::string Repeated(const std::string& head, const std::string& piece, size_t size);

// The same with the head in the first half and the piece in the second, for what is paid for each
// pair of the two.
std::string Halves(const std::string& head, const std::string& piece, size_t size);

}  // namespace linear
