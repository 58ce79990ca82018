// Text building blocks of the text form of messages: a growable byte
// buffer, number formatting and the quoting of texts.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kyt_detail {

// A byte buffer that starts on the stack and moves to the heap when it must.
class TextBuffer {
 public:
  TextBuffer() : data_(local_), size_(0), cap_(sizeof local_) {}
  ~TextBuffer();
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;

  void Append(const char* p, size_t n);
  void Append(char c) {
    if (size_ == cap_) Grow(1);
    data_[size_++] = c;
  }
  void Fill(char c, int n);
  // Room for n more bytes; the caller writes them and calls Commit(n).
  char* Room(size_t n) {
    if (cap_ - size_ < n) Grow(n);
    return data_ + size_;
  }
  void Commit(size_t n) { size_ += n; }

  const char* data() const { return data_; }
  int size() const { return static_cast<int>(size_); }
  void clear() { size_ = 0; }

 private:
  void Grow(size_t more);

  char* data_;
  size_t size_;
  size_t cap_;
  char local_[256];
};

// Appends the shortest text that reads back as exactly `v` ("nan", "inf" and
// "-inf" for the special values).
void AppendShortest(TextBuffer& out, double v);
void AppendInt(TextBuffer& out, int64_t v);

// Appends `text` as CString::Repr gives it: in double quotes with C escapes
// for '"', '\' and bytes below 0x20 or at 0x7f.
void QuoteTo(TextBuffer& out, const char* text, int len);

}  // namespace kyt_detail
