// CString, CFormat, CStream and CException.
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>

#include "altkyt/Error.h"
#include "altkyt/Stream.h"
#include "altkyt/Text.h"

CString::CString(const char* text) : text_(text ? text : "") {}

CString& CString::operator=(const char* text) {
  text_ = text ? text : "";  // std::string takes a text that lies in itself
  return *this;
}

int CString::FormatList(const char* fmt, va_list args) {
  text_.clear();
  if (!fmt) return altkyt::kBadArgument;
  va_list measure;
  va_copy(measure, args);
  int len = std::vsnprintf(nullptr, 0, fmt, measure);
  va_end(measure);
  if (len < 0) return altkyt::kBadArgument;
  try {
    std::string text(static_cast<size_t>(len) + 1, '\0');
    std::vsnprintf(&text[0], text.size(), fmt, args);
    text.pop_back();
    text_.swap(text);
  } catch (const std::exception&) {
    return altkyt::NoMemory();
  }
  return len;
}

int CString::Format(const char* fmt, ...) {
  // The format and the arguments may point into this string: the new text is
  // made in another one and then swapped in.
  CString result;
  va_list args;
  va_start(args, fmt);
  int rc = result.FormatList(fmt, args);
  va_end(args);
  text_.swap(result.text_);
  return rc;
}

CString CString::Repr() const {
  if (text_.empty()) return CString("{empty}");
  std::string out = "'";
  for (unsigned char c : text_) {
    if (c == '\'' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7f) {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  out += '\'';
  return CString(out.c_str());  // every byte below 0x20 is escaped: no NUL inside
}

CString CFormat(const char* fmt, ...) {
  CString result;
  va_list args;
  va_start(args, fmt);
  result.FormatList(fmt, args);
  va_end(args);
  return result;
}

int CStream::AppendData(const char* data, int len) {
  if (len < 0 || (!data && len > 0)) return altkyt::kBadArgument;
  try {
    bytes_.append(data ? data : "", static_cast<size_t>(len));
  } catch (const std::exception&) {
    return altkyt::NoMemory();
  }
  return len;
}

CException::CException(const char* text, int code) : text_(), code_(code) {
  if (!text) return;
  size_t len = strnlen(text, kTextSize - 1);
  std::memcpy(text_, text, len);
  text_[len] = '\0';
}
