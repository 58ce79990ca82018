// The texts of the frame: the failure texts of both patterns, which the
// frame writes and the reflection reads back into data (Reflect.cpp), and the
// the one way a dump's text is gathered. Internal to libpricemsg.
#pragma once

#include <charconv>
#include <cstdio>
#include <cstring>

#include "MsgBase.h"

namespace pricemsg::detail {

// The failure texts, each written from these formats and nowhere else.
// Tagged texts take the class name, the message number and the tag.
inline constexpr char kWrongNumberText[] = "invalid input message of service(%d,%d)";
inline constexpr char kNoMessageText[] = "Out of memory";
inline constexpr char kArrayNoMemoryText[] = "%s : Out of memory";
inline constexpr char kGetValText[] = "%s:GET_VAL_ONE(M%04d.T%d) fail";
inline constexpr char kGetSubText[] = "%s:GET_SUB_ONE(M%04d.T%d) fail";
inline constexpr char kGetArrText[] = "%s:GET_SUB_ARR(M%04d.T%d) fail";
inline constexpr char kSetValText[] = "%s:SET_VAL_ONE(M%04d.T%d) fail";
inline constexpr char kSetSubText[] = "%s:SET_SUB_ONE(M%04d.T%d) fail";
inline constexpr char kSetArrText[] = "%s:SET_SUB_ARR(M%04d.T%d) fail";

// Writes a failure text. It must not fail itself: when memory is short and
// the text cannot be formatted, it is cut to what a small buffer holds, and
// if even that cannot be stored the old text stays.
template <class... Args>
void FailText(CString& errtext, const char* format, Args... args) noexcept {
  try {
    errtext.Format(format, args...);
  } catch (...) {
    char cut[64];
    if (std::snprintf(cut, sizeof cut, format, args...) < 0) return;  // cut is meant
    try {
      errtext = cut;
    } catch (...) {
    }
  }
}

// The text of a dump, gathered on the stack and handed to the stream in
// large pieces: a dump runs to thousands of short lines. Every line starts
// with its newline (Label), so a dump starts with a newline and ends without
// one. A piece too long for the buffer goes to the stream as it is. The
// stream may throw when it cannot grow: the pieces it was given stand, the
// one it refused is dropped, and the exception goes to the caller.
class TextSink {
 public:
  explicit TextSink(CStream* out) : out_(out) {}
  TextSink(const TextSink&) = delete;
  TextSink& operator=(const TextSink&) = delete;

  // Starts a line: the newline and `name` right-aligned in kWidth columns.
  void Label(const char* name) {
    const size_t len = std::strlen(name);
    if (sizeof buf_ - size_ < 1 + kWidth) Flush();
    buf_[size_++] = '\n';
    if (len < kWidth) {
      std::memset(buf_ + size_, ' ', kWidth - len);
      size_ += kWidth - len;
    }
    Put(name, len);
  }
  // Starts a line with no label.
  void Line() { Put("\n", 1); }

  void Put(const char* text, size_t len) {
    if (len > sizeof buf_ - size_) {
      Flush();
      if (len > sizeof buf_) {
        out_->AppendData(text, static_cast<int>(len));
        return;
      }
    }
    std::memcpy(buf_ + size_, text, len);
    size_ += len;
  }
  void PutInt(int v) {
    char digits[16];
    Put(digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, v).ptr - digits));
  }

  CStream* out() const { return out_; }

  // Hands what is gathered to the stream.
  void Flush() {
    if (!size_) return;
    const size_t n = size_;
    size_ = 0;
    out_->AppendData(buf_, static_cast<int>(n));
  }

 private:
  static constexpr size_t kWidth = 20;
  CStream* out_;
  size_t size_ = 0;
  char buf_[4096];
};

// After a failure: what is gathered goes to the stream if it takes it.
inline void FlushQuietly(TextSink& sink) noexcept {
  try {
    sink.Flush();
  } catch (...) {
  }
}

}  // namespace pricemsg::detail
