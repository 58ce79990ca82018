// CStream: the text sink that Dump writes to.
//
// It collects every byte appended to it, so that a client can read the text
// back, write it to a log, or compare it in a test.
#pragma once

#include <cstddef>

class CStream {
 public:
  // The most bytes a stream holds, since its size is an int.
  static constexpr int kMaxSize = 0x7fffffff;

  CStream() noexcept : data_(nullptr), size_(0), cap_(0) {}
  ~CStream();
  CStream(const CStream&) = delete;
  CStream& operator=(const CStream&) = delete;

  // Appends `len` bytes from `data`. A null pointer or a length of 0 or less
  // appends nothing. Throws std::bad_alloc if the stream cannot grow, and
  // std::bad_array_new_length (a std::bad_alloc) if it would pass kMaxSize
  // bytes; either way nothing is appended.
  void AppendData(const char* data, int len);

  // The text appended so far, terminated; valid until the next change.
  const char* ToStr() const { return data_ ? data_ : ""; }
  int GetSize() const { return static_cast<int>(size_); }
  void Clear();

 private:
  char* data_;
  size_t size_;
  size_t cap_;
};
