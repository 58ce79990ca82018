// The texts of the frame: the failure texts of both patterns, which the
// frame writes and the reflection reads back into data (Reflect.cpp), and the
// one way a dump line is built. Internal to libpricemsg.
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

// One dump line, "\n" + name right-aligned in 20 columns + what follows,
// built on the stack and handed to the stream in one piece by Emit(); a part
// too long for the buffer goes to the stream as it is. Every line goes out
// with its newline in front of it, so a dump starts with a newline and ends
// without one. The stream may throw (when it cannot grow): nothing is
// written from a destructor, so an exception leaves the line unwritten and
// goes to the caller.
class FieldLine {
 public:
  explicit FieldLine(CStream* out) : out_(out), size_(1) { buf_[0] = '\n'; }
  FieldLine(CStream* out, const char* name) : FieldLine(out) {
    size_t len = std::strlen(name);
    if (len < kWidth) {
      std::memset(buf_ + size_, ' ', kWidth - len);
      size_ += kWidth - len;
    }
    Put(name, len);
  }
  FieldLine(const FieldLine&) = delete;
  FieldLine& operator=(const FieldLine&) = delete;

  void Put(const char* text, size_t len) {
    if (len > sizeof buf_ - size_) {
      Flush();
      out_->AppendData(text, static_cast<int>(len));
      return;
    }
    std::memcpy(buf_ + size_, text, len);
    size_ += len;
  }
  void PutInt(int v) {
    char digits[16];
    Put(digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, v).ptr - digits));
  }
  // Hands the line to the stream.
  void Emit() { Flush(); }

 private:
  static constexpr size_t kWidth = 20;
  void Flush() {
    if (size_) out_->AppendData(buf_, static_cast<int>(size_));
    size_ = 0;
  }

  CStream* out_;
  size_t size_;
  char buf_[192];
};

}  // namespace pricemsg::detail
