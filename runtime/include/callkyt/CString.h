// CString: the text type of the message runtime, and CFormat.
//
// A text of up to 31 bytes lives inside the object; longer texts go to the
// heap. Every object in a message tree carries at least two CStrings (its
// name and its failure text), so the common case allocates nothing.
// Allocation failure throws std::bad_alloc, as the standard containers do.
// A text is at most kMaxSize bytes long, since its length is an int: a text
// or an append that would pass it throws std::bad_array_new_length (a
// std::bad_alloc) before it allocates. A call that throws leaves the string
// as it was.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstring>

namespace kyt_detail {
template <class T>
class ValueArray;
}  // namespace kyt_detail

class CString {
 public:
  static constexpr int kMaxSize = INT32_MAX;

  CString() noexcept { SetLocalSize(0); }
  CString(const char* text);  // NOLINT: a text converts to a CString
  // `len` bytes from `text`; empty for a null text or a length of 0 or less.
  CString(const char* text, int len);
  CString(const CString& other) {
    if (other.IsLocal()) {
      std::memcpy(buf_, other.buf_, sizeof buf_);
    } else {
      SetLocalSize(0);
      Assign(other.HeapPtr(), other.HeapSize());
    }
  }
  CString(CString&& other) noexcept;
  // Destruction and copying are defined in the library, so that a program
  // built on these headers needs no symbol of the string's insides.
  ~CString();

  CString& operator=(const char* text);
  CString& operator=(const CString& other);
  CString& operator=(CString&& other) noexcept;

  // Replaces the content with `len` bytes from `text`, or appends them. The
  // bytes may lie in this string's own text. A null text or a length of 0 or
  // less assigns an empty text, or appends nothing.
  void Assign(const char* text, int len);
  void Append(const char* text, int len);

  // Replaces the whole content with a printf-style format, as vsnprintf
  // writes it, and gives the new length. The arguments may point into this
  // string's own text. A text that fits the object takes no allocation, a
  // longer one a single block; when that fails, std::bad_alloc leaves the
  // string as it was. A null format, or one that vsnprintf refuses, leaves an
  // empty string.
  int Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
  int FormatV(const char* format, va_list args) __attribute__((format(printf, 2, 0)));

  // The terminated text; valid until the string changes.
  const char* ToStr() const { return IsLocal() ? buf_ : HeapPtr(); }
  int GetSize() const { return IsLocal() ? kLocalCap - buf_[kTagByte] : HeapSize(); }
  int IsEmpty() const { return GetSize() == 0; }

  // The text in double quotes, with '"', '\' and control bytes escaped in the
  // manner of C. So an empty string gives the two characters "".
  CString Repr() const;

  bool operator==(const CString& other) const;
  bool operator==(const char* text) const;
  bool operator!=(const CString& other) const { return !(*this == other); }
  bool operator!=(const char* text) const { return !(*this == text); }

 private:
  // Layout: 32 bytes. While local, buf_ holds the text and its terminator and
  // the last byte holds 31 minus the length, so that a text of 31 bytes ends
  // with that byte as its terminator. On the heap, the first 16 bytes hold
  // pointer, size and capacity, and the last byte holds kHeapMark.
  static constexpr int kLocalCap = 31;
  static constexpr int kTagByte = 31;
  static constexpr char kHeapMark = static_cast<char>(0x80);

  bool IsLocal() const { return buf_[kTagByte] != kHeapMark; }
  void SetLocalSize(int n) {
    buf_[n] = '\0';
    buf_[kTagByte] = static_cast<char>(kLocalCap - n);
  }
  char* HeapPtr() const {
    char* p;
    std::memcpy(&p, buf_, sizeof p);
    return p;
  }
  int HeapSize() const {
    int32_t n;
    std::memcpy(&n, buf_ + 8, sizeof n);
    return n;
  }
  int HeapCap() const {
    int32_t n;
    std::memcpy(&n, buf_ + 12, sizeof n);
    return n;
  }
  void SetHeap(char* p, int size, int cap);
  void SetHeapSize(int size) {
    int32_t n = size;
    std::memcpy(buf_ + 8, &n, sizeof n);
  }
  CString& AssignFrom(const CString& other);
  char* Data() { return IsLocal() ? buf_ : HeapPtr(); }
  int Capacity() const { return IsLocal() ? kLocalCap : HeapCap(); }
  // A heap block for a text of at least `*cap` bytes and its terminator;
  // `*cap` becomes the text capacity of the block. Throws std::bad_alloc.
  static char* NewHeap(int64_t* cap);
  // A heap block for a text of `len` bytes that outgrows this string.
  char* NewRoom(int64_t len, int* cap) const;
  // Makes room for `len` bytes plus terminator, keeping the first `keep` bytes.
  char* Reserve(int64_t len, int keep);
  // Makes the text its first `keep` bytes followed by `len` bytes of `text`,
  // which may lie in the text itself.
  void Splice(int keep, const char* text, int len);
  void SetSize(int n);
  void Release();

  // The arrays print their elements straight into the room of one Reserve.
  template <class T>
  friend class kyt_detail::ValueArray;

  char buf_[32];
};

// A CString built from a printf-style format.
class CFormat : public CString {
 public:
  explicit CFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));
};
