// CStream: a text sink that collects every byte appended to it, in order.
#pragma once

#include <string>

class CStream {
 public:
  CStream() = default;
  ~CStream() = default;
  CStream(const CStream&) = delete;
  CStream& operator=(const CStream&) = delete;

  // Appends `len` bytes from `data`, which may hold any byte, NUL included.
  // The number of bytes appended; kBadArgument for a negative length or a
  // null `data` with a positive length, kNoMemory when storage runs out. On a
  // failure nothing is appended.
  int AppendData(const char* data, int len);

  // Everything appended so far: Collected() points to Length() bytes followed
  // by a NUL, valid until the next AppendData.
  const char* Collected() const { return bytes_.c_str(); }
  size_t Length() const { return bytes_.size(); }

 private:
  std::string bytes_;
};
