#include "JsonCommon.h"

#include <cstdio>

namespace pricemsg::msgjson {

std::string Shown(std::string_view s, size_t max) {
  std::string out;
  for (size_t i = 0; i < s.size() && i < max; ++i) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x20 || c >= 0x7f) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  if (s.size() > max) out += "...";
  return out;
}

size_t Pointer::Push(std::string_view key) {
  const size_t size = text_.size();
  text_ += '/';
  for (char c : key) {
    if (c == '~') {
      text_ += "~0";
    } else if (c == '/') {
      text_ += "~1";
    } else {
      text_ += c;
    }
  }
  return size;
}

std::string Pointer::ForReason() const {
  if (text_.empty()) return "/";
  constexpr size_t kMax = 80;
  if (text_.size() <= kMax) return Shown(text_, kMax);
  return "..." + Shown(std::string_view(text_).substr(text_.size() - kMax), kMax);
}

}  // namespace pricemsg::msgjson
