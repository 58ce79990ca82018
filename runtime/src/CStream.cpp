#include "callkyt/CStream.h"

#include <cstdlib>
#include <cstring>
#include <new>

CStream::~CStream() { std::free(data_); }

void CStream::AppendData(const char* data, int len) {
  if (!data || len <= 0) return;
  size_t n = static_cast<size_t>(len);
  if (n > kMaxSize - size_) throw std::bad_array_new_length();
  if (cap_ - size_ < n + 1) {
    size_t cap = cap_ * 2;
    if (cap < size_ + n + 1) cap = size_ + n + 1;
    if (cap < 256) cap = 256;
    // A dump of a large request runs to megabytes: realloc lets the heap grow
    // the block where it stands instead of copying it at each doubling.
    char* p = static_cast<char*>(std::realloc(data_, cap));
    if (!p) throw std::bad_alloc();
    data_ = p;
    cap_ = cap;
  }
  std::memcpy(data_ + size_, data, n);
  size_ += n;
  data_[size_] = '\0';
}

void CStream::Clear() {
  size_ = 0;
  if (data_) data_[0] = '\0';
}
