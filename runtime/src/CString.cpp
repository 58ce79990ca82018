#include "callkyt/CString.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Blocks.h"

void CString::SetHeap(char* p, int size, int cap) {
  std::memcpy(buf_, &p, sizeof p);
  SetHeapSize(size);
  int32_t c = cap;
  std::memcpy(buf_ + 12, &c, sizeof c);
  buf_[kTagByte] = kHeapMark;
}

// A heap text lives in a block of its capacity plus the terminator.
void CString::Release() {
  if (!IsLocal()) kyt_detail::GiveBlock(HeapPtr(), static_cast<size_t>(HeapCap()) + 1);
  SetLocalSize(0);
}

namespace {

// The length of a terminated text, refused when it passes kMaxSize.
int LengthOf(const char* text) {
  size_t n = std::strlen(text);
  if (n > static_cast<size_t>(CString::kMaxSize)) throw std::bad_array_new_length();
  return static_cast<int>(n);
}

}  // namespace

char* CString::NewHeap(int64_t* cap) {
  if (*cap > kMaxSize) throw std::bad_array_new_length();
  size_t bytes = kyt_detail::BlockFor(static_cast<size_t>(*cap) + 1);
  char* p = static_cast<char*>(kyt_detail::TakeBlock(bytes));
  if (!p) throw std::bad_alloc();
  *cap = static_cast<int64_t>(bytes) - 1;
  return p;
}

// A growing heap text at least doubles, so that appends cost linear time;
// near kMaxSize it takes what is left.
char* CString::NewRoom(int64_t len, int* cap) const {
  if (len > kMaxSize) throw std::bad_array_new_length();
  int64_t c = std::max<int64_t>(IsLocal() ? 0 : int64_t{HeapCap()} * 2, len);
  c = std::min<int64_t>(c, kMaxSize);
  char* p = NewHeap(&c);
  *cap = static_cast<int>(c);
  return p;
}

char* CString::Reserve(int64_t len, int keep) {
  if (len <= Capacity()) return Data();
  int cap;
  char* p = NewRoom(len, &cap);
  if (keep > 0) std::memcpy(p, ToStr(), static_cast<size_t>(keep));
  Release();
  SetHeap(p, keep, cap);
  return p;
}

void CString::Splice(int keep, const char* text, int len) {
  const int64_t total = int64_t{keep} + len;
  if (total <= Capacity()) {
    std::memmove(Data() + keep, text, static_cast<size_t>(len));
  } else {
    // The old text is let go only after both parts are copied, as `text`
    // may lie in it.
    int cap;
    char* p = NewRoom(total, &cap);
    std::memcpy(p, ToStr(), static_cast<size_t>(keep));
    std::memcpy(p + keep, text, static_cast<size_t>(len));
    Release();
    SetHeap(p, keep, cap);
  }
  SetSize(static_cast<int>(total));
}

void CString::SetSize(int n) {
  if (IsLocal()) {
    SetLocalSize(n);
  } else {
    HeapPtr()[n] = '\0';
    SetHeapSize(n);
  }
}

CString::CString(const char* text) : CString() {
  if (text) Assign(text, LengthOf(text));
}

CString::CString(const char* text, int len) : CString() { Assign(text, len); }

CString::CString(CString&& other) noexcept {
  std::memcpy(buf_, other.buf_, sizeof buf_);
  other.SetLocalSize(0);
}

CString& CString::operator=(const char* text) {
  if (!text) {
    SetSize(0);
  } else {
    Assign(text, LengthOf(text));
  }
  return *this;
}

CString::~CString() {
  if (!IsLocal()) Release();
}

CString& CString::operator=(const CString& other) {
  // A short text is the whole object: copied at once.
  if (IsLocal() && other.IsLocal()) {
    std::memcpy(buf_, other.buf_, sizeof buf_);
    return *this;
  }
  return AssignFrom(other);
}

CString& CString::AssignFrom(const CString& other) {
  if (this != &other) Assign(other.ToStr(), other.GetSize());
  return *this;
}

CString& CString::operator=(CString&& other) noexcept {
  if (this != &other) {
    Release();
    std::memcpy(buf_, other.buf_, sizeof buf_);
    other.SetLocalSize(0);
  }
  return *this;
}

void CString::Assign(const char* text, int len) {
  if (!text || len <= 0) {
    SetSize(0);
    return;
  }
  Splice(0, text, len);
}

void CString::Append(const char* text, int len) {
  if (!text || len <= 0) return;
  Splice(GetSize(), text, len);
}

int CString::Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = FormatV(format, args);
  va_end(args);
  return n;
}

int CString::FormatV(const char* format, va_list args) {
  if (!format) {
    SetSize(0);
    return 0;
  }
  // An argument may point into this string, so the text is written apart
  // from it: a short one into a buffer the size of the object, which also
  // measures a longer one; that is written into its new block, and only then
  // is the old text let go.
  char local[sizeof buf_];
  va_list measure;
  va_copy(measure, args);
  int n = std::vsnprintf(local, sizeof local, format, measure);
  va_end(measure);
  if (n <= kLocalCap) {
    n = std::max(n, 0);
    Assign(local, n);
    return n;
  }
  int64_t cap = n;
  char* p = NewHeap(&cap);
  n = std::clamp(std::vsnprintf(p, static_cast<size_t>(n) + 1, format, args), 0, n);
  p[n] = '\0';
  Release();
  SetHeap(p, n, static_cast<int>(cap));
  return n;
}

namespace {

// Writes the quoted form of the byte `c` to `out`, at most four characters,
// and gives its length.
int Escape(unsigned char c, char* out) {
  static const char kHex[] = "0123456789abcdef";
  char e;
  switch (c) {
    case '"':
    case '\\':
      e = static_cast<char>(c);
      break;
    case '\n':
      e = 'n';
      break;
    case '\t':
      e = 't';
      break;
    case '\r':
      e = 'r';
      break;
    default:
      if (c >= 0x20 && c != 0x7f) {
        out[0] = static_cast<char>(c);
        return 1;
      }
      out[0] = '\\';
      out[1] = 'x';
      out[2] = kHex[c >> 4];
      out[3] = kHex[c & 15];
      return 4;
  }
  out[0] = '\\';
  out[1] = e;
  return 2;
}

}  // namespace

CString CString::Repr() const {
  const unsigned char* text = reinterpret_cast<const unsigned char*>(ToStr());
  const int len = GetSize();
  char scratch[4];
  int64_t n = 2;
  for (int i = 0; i < len; ++i) n += Escape(text[i], scratch);
  CString out;
  char* w = out.Reserve(n, 0);
  *w++ = '"';
  for (int i = 0; i < len; ++i) w += Escape(text[i], w);
  *w = '"';
  out.SetSize(static_cast<int>(n));
  return out;
}

bool CString::operator==(const CString& other) const {
  int n = GetSize();
  return n == other.GetSize() && std::memcmp(ToStr(), other.ToStr(), static_cast<size_t>(n)) == 0;
}

bool CString::operator==(const char* text) const {
  if (!text) return IsEmpty();
  size_t n = std::strlen(text);
  return n == static_cast<size_t>(GetSize()) && std::memcmp(ToStr(), text, n) == 0;
}

CFormat::CFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatV(format, args);
  va_end(args);
}
