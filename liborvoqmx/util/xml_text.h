// Texts in XML and HTML.
#pragma once

#include <string>
#include <string_view>

namespace orvo {

// The text as the content of an element, or of an attribute in double quotes.
inline std::string XmlText(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

}  // namespace orvo
