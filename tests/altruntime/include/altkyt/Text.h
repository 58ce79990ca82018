// CString, the runtime's text, and CFormat, which makes one from a printf
// format.
#pragma once

#include <cstdarg>
#include <string>

#define ALTKYT_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))

class CString {
 public:
  // An empty text.
  CString() = default;
  // A copy of `text`; a null pointer gives an empty text.
  explicit CString(const char* text);
  CString(const CString& other) = default;
  ~CString() = default;

  // Replace the content by a copy of `text` (null: empty) or of `other`.
  CString& operator=(const char* text);
  CString& operator=(const CString& other) = default;

  // Replaces the whole content by the printf-style text of `fmt` and the
  // arguments. The length of the new text; on a null format kBadArgument, on
  // a format printf rejects kBadArgument, when storage runs out kNoMemory,
  // and then the text is left empty.
  int Format(const char* fmt, ...) ALTKYT_PRINTF(2, 3);

  // The text, NUL-terminated also when empty; valid until the string changes.
  const char* ToStr() const { return text_.c_str(); }
  // Its length in bytes.
  int GetSize() const { return static_cast<int>(text_.size()); }
  // 1 if the text is empty, else 0.
  int IsEmpty() const { return text_.empty() ? 1 : 0; }

  // A form of the text for logs: {empty} for an empty text, else the text in
  // single quotes, with quotes, backslashes and control bytes escaped
  // ('it\'s', 'a\x0ab').
  CString Repr() const;

 private:
  friend CString CFormat(const char* fmt, ...);
  int FormatList(const char* fmt, va_list args);

  std::string text_;
};

// A new CString with the printf-style text of `fmt` and the arguments; an
// empty one if the text cannot be made (see CString::Format).
CString CFormat(const char* fmt, ...) ALTKYT_PRINTF(1, 2);
