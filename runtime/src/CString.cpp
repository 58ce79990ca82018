#include "callkyt/CString.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Blocks.h"
#include "TextFormat.h"

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

char* CString::Reserve(int len, int keep) {
  if (IsLocal() ? len <= kLocalCap : len <= HeapCap()) return Data();
  int cap = IsLocal() ? 0 : HeapCap();
  cap = cap * 2 > len ? cap * 2 : len;
  size_t bytes = kyt_detail::BlockFor(static_cast<size_t>(cap) + 1);
  char* p = static_cast<char*>(kyt_detail::TakeBlock(bytes));
  if (!p) throw std::bad_alloc();
  if (keep > 0) std::memcpy(p, ToStr(), static_cast<size_t>(keep));
  Release();
  SetHeap(p, keep, static_cast<int>(bytes - 1));
  return p;
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
  if (text) Assign(text, static_cast<int>(std::strlen(text)));
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
    Assign(text, static_cast<int>(std::strlen(text)));
  }
  return *this;
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
  const char* cur = ToStr();
  if (text >= cur && text <= cur + GetSize()) {
    // The text lies inside this string: take a copy before touching it.
    CString copy(text, len);
    *this = static_cast<CString&&>(copy);
    return;
  }
  char* p = Reserve(len, 0);
  std::memcpy(p, text, static_cast<size_t>(len));
  SetSize(len);
}

void CString::Append(const char* text, int len) {
  if (!text || len <= 0) return;
  int old = GetSize();
  const char* cur = ToStr();
  if (text >= cur && text <= cur + old) {
    CString copy(text, len);
    Append(copy.ToStr(), len);
    return;
  }
  char* p = Reserve(old + len, old);
  std::memcpy(p + old, text, static_cast<size_t>(len));
  SetSize(old + len);
}

int CString::Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = FormatV(format, args);
  va_end(args);
  return n;
}

int CString::FormatV(const char* format, va_list args) {
  kyt_detail::TextBuffer out;
  kyt_detail::FormatTo(out, format, args);
  Assign(out.data(), out.size());
  return out.size();
}

CString CString::Repr() const {
  kyt_detail::TextBuffer out;
  kyt_detail::QuoteTo(out, ToStr(), GetSize());
  return CString(out.data(), out.size());
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
