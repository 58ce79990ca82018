#include "TextFormat.h"

#include <charconv>
#include <cstring>
#include <new>

#include "callkyt/CString.h"

namespace kyt_detail {

TextBuffer::~TextBuffer() {
  if (data_ != local_) ::operator delete(data_);
}

void TextBuffer::Grow(size_t more) {
  size_t cap = cap_ * 2;
  if (cap - size_ < more) cap = size_ + more;
  char* p = static_cast<char*>(::operator new(cap));
  std::memcpy(p, data_, size_);
  if (data_ != local_) ::operator delete(data_);
  data_ = p;
  cap_ = cap;
}

void TextBuffer::Append(const char* p, size_t n) {
  if (n == 0) return;
  std::memcpy(Room(n), p, n);
  size_ += n;
}

void TextBuffer::Fill(char c, int n) {
  if (n <= 0) return;
  std::memset(Room(static_cast<size_t>(n)), c, static_cast<size_t>(n));
  size_ += static_cast<size_t>(n);
}

void AppendShortest(TextBuffer& out, double v) {
  char* room = out.Room(32);
  out.Commit(static_cast<size_t>(std::to_chars(room, room + 32, v).ptr - room));
}

void AppendInt(TextBuffer& out, int64_t v) {
  char* room = out.Room(24);
  out.Commit(static_cast<size_t>(std::to_chars(room, room + 24, v).ptr - room));
}

void QuoteTo(TextBuffer& out, const char* text, int len) {
  CString quoted = CString(text, len).Repr();
  out.Append(quoted.ToStr(), static_cast<size_t>(quoted.GetSize()));
}

}  // namespace kyt_detail
