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

// Copies `n` bytes, W <= n <= 2 * W, as the first and the last W of them.
template <size_t W>
void CopyEnds(char* to, const char* from, size_t n) {
  char head[W], tail[W];
  std::memcpy(head, from, W);
  std::memcpy(tail, from + n - W, W);
  std::memcpy(to, head, W);
  std::memcpy(to + n - W, tail, W);
}

// Copies `n` bytes and gives the end of the copy. Most texts of a dump are
// labels and values of a few bytes: those are copied here in two overlapping
// moves, without a call.
inline char* CopyBytes(char* to, const char* from, size_t n) {
  if (n > 16) {
    std::memcpy(to, from, n);
  } else if (n >= 8) {
    CopyEnds<8>(to, from, n);
  } else if (n >= 4) {
    CopyEnds<4>(to, from, n);
  } else if (n > 0) {
    to[0] = from[0];
    to[n / 2] = from[n / 2];
    to[n - 1] = from[n - 1];
  }
  return to + n;
}

// The text of a dump, gathered on the stack and handed to the stream in
// large pieces: a dump runs to thousands of short lines. Every line starts
// with its newline, so a dump starts with a newline and ends without one. A
// piece too long for the buffer goes to the stream as it is. The stream may
// throw when it cannot grow: the pieces it was given stand, the one it
// refused is dropped, and the exception goes to the caller.
class TextSink {
 public:
  explicit TextSink(CStream* out) : out_(out) {}
  TextSink(const TextSink&) = delete;
  TextSink& operator=(const TextSink&) = delete;

  // A labelled line: the newline, `name` right-aligned in kWidth columns,
  // `sep`, `text` of `len` bytes and `end`. A line that fits the buffer is
  // written in one go through a local pointer (the buffer's bytes could
  // alias size_, which would be reloaded after every store).
  template <size_t S, size_t E>
  void Line(const char* name, const char (&sep)[S], const char* text, size_t len,
            const char (&end)[E]) {
    const size_t nameLen = std::strlen(name);
    const size_t pad = nameLen < kWidth ? kWidth - nameLen : 0;
    const size_t need = 1 + pad + nameLen + (S - 1) + len + (E - 1);
    if (need > sizeof buf_ - size_) {
      Flush();
      if (need > sizeof buf_) {
        LongLine(name, nameLen, pad, sep, S - 1, text, len, end, E - 1);
        return;
      }
    }
    char* p = buf_ + size_;
    *p++ = '\n';
    std::memset(p, ' ', kWidth);  // the name, at least pad bytes on, covers the rest
    p = CopyBytes(p + pad, name, nameLen);
    std::memcpy(p, sep, S - 1);
    p = CopyBytes(p + (S - 1), text, len);
    std::memcpy(p, end, E - 1);
    size_ = static_cast<size_t>(p + (E - 1) - buf_);
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

  // A line longer than the buffer, piece by piece.
  void LongLine(const char* name, size_t nameLen, size_t pad, const char* sep, size_t sepLen,
                const char* text, size_t len, const char* end, size_t endLen) {
    static const char kSpaces[kWidth + 1] = "                    ";
    Put("\n", 1);
    Put(kSpaces, pad);
    Put(name, nameLen);
    Put(sep, sepLen);
    Put(text, len);
    Put(end, endLen);
  }

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
