#include "callkyt/CArray.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

namespace kyt_detail {

namespace {

// The text of one element, and the most characters it can take:
// "-2147483648" and "-1.797693134862316e+308".
template <class T>
constexpr int kMaxElementChars = 0;
template <>
constexpr int kMaxElementChars<int32_t> = 11;
template <>
constexpr int kMaxElementChars<double> = 23;

char* PutElement(char* p, char* end, int32_t v) { return std::to_chars(p, end, v).ptr; }
// The same text as printf's "%.15e", infinities and NaNs included.
char* PutElement(char* p, char* end, double v) {
  return std::to_chars(p, end, v, std::chars_format::scientific, 15).ptr;
}

}  // namespace

template <class T>
ValueArray<T>::ValueArray(const ValueArray& other) : ValueArray() {
  *this = other;
}

template <class T>
ValueArray<T>::ValueArray(ValueArray&& other) noexcept
    : size(other.size), cap_(other.cap_), data_(other.data_) {
  other.size = other.cap_ = 0;
  other.data_ = nullptr;
}

template <class T>
ValueArray<T>::~ValueArray() {
  ::operator delete(data_);
}

template <class T>
ValueArray<T>& ValueArray<T>::operator=(const ValueArray& other) {
  if (this == &other) return *this;
  Reserve(other.size);
  if (other.size > 0) std::memcpy(data_, other.data_, sizeof(T) * static_cast<size_t>(other.size));
  size = other.size;
  return *this;
}

template <class T>
ValueArray<T>& ValueArray<T>::operator=(ValueArray&& other) noexcept {
  if (this != &other) {
    ::operator delete(data_);
    size = other.size;
    cap_ = other.cap_;
    data_ = other.data_;
    other.size = other.cap_ = 0;
    other.data_ = nullptr;
  }
  return *this;
}

// The capacity at least doubles, so that appends cost linear time; near
// kMaxSize it takes what is left.
template <class T>
void ValueArray<T>::Reserve(int64_t n) {
  if (n <= cap_) return;
  if (n > kMaxSize) throw std::bad_array_new_length();
  const int64_t cap = std::min<int64_t>(std::max<int64_t>(int64_t{cap_} * 2, n), kMaxSize);
  T* p = static_cast<T*>(::operator new(sizeof(T) * static_cast<size_t>(cap)));
  if (size > 0) std::memcpy(p, data_, sizeof(T) * static_cast<size_t>(size));
  ::operator delete(data_);
  data_ = p;
  cap_ = static_cast<int32_t>(cap);
}

template <class T>
bool ValueArray<T>::SetAt(int index, T v) {
  if (index < 0 || index >= size) return false;
  data_[index] = v;
  return true;
}

template <class T>
int ValueArray<T>::Add(T v) {
  if (size == cap_) Reserve(size < 4 ? 4 : int64_t{size} + 1);
  data_[size] = v;
  return ++size;
}

template <class T>
void ValueArray<T>::SetSize(int n) {
  if (n < 0) n = 0;
  Reserve(n);
  for (int i = size; i < n; ++i) data_[i] = T();
  size = n;
}

template <class T>
bool ValueArray<T>::operator==(const ValueArray& other) const {
  if (size != other.size) return false;
  for (int i = 0; i < size; ++i) {
    if (!(data_[i] == other.data_[i])) return false;
  }
  return true;
}

// The text grows as the elements are written, by half again each time it
// runs out of room, so that it takes room for what it holds and not for
// every element at its widest: an array whose text would not fit a CString
// throws std::bad_alloc only when the text really passes that size.
template <class T>
CString ValueArray<T>::Join(const char* sep, bool braced) const {
  const size_t seplen = sep ? std::strlen(sep) : 0;
  if (seplen > INT_MAX) throw std::bad_array_new_length();
  // The most that one step writes: a separator and an element, or a brace.
  const int64_t step = static_cast<int64_t>(seplen) + kMaxElementChars<T> + 1;
  // At least a character an element, the separators and the braces: a text
  // that cannot fit whatever its elements is refused before asking.
  const int64_t n = size > 0 ? size : 0;
  if ((n > 0 ? n - 1 : 0) * static_cast<int64_t>(seplen) + n + 2 > CString::kMaxSize) {
    throw std::bad_array_new_length();
  }
  CString out;
  int64_t room = 64;
  char* start = out.Reserve(room, 0);
  char* w = start;
  auto ensure = [&] {
    const int64_t used = w - start;
    if (room - used >= step) return;
    room = std::max(room + room / 2, used + step);
    if (room > CString::kMaxSize) room = CString::kMaxSize;
    if (room - used < step) throw std::bad_array_new_length();  // past a CString's size
    start = out.Reserve(room, static_cast<int>(used));
    w = start + used;
  };
  if (braced) *w++ = '{';
  for (int i = 0; i < size; ++i) {
    ensure();
    if (i > 0) w = std::copy_n(sep, seplen, w);
    w = PutElement(w, start + room, data_[i]);
  }
  ensure();
  if (braced) *w++ = '}';
  out.SetSize(static_cast<int>(w - start));
  return out;
}

template class ValueArray<int32_t>;
template class ValueArray<double>;

}  // namespace kyt_detail

CString CIntArray::Repr(const char* sep, bool braced) const { return Join(sep, braced); }

CString CDblArray::Repr(const char* sep, bool braced) const { return Join(sep, braced); }

CIntArray::~CIntArray() = default;
CIntArray& CIntArray::operator=(const CIntArray& other) {
  ValueArray::operator=(other);
  return *this;
}

CDblArray::~CDblArray() = default;
CDblArray& CDblArray::operator=(const CDblArray& other) {
  ValueArray::operator=(other);
  return *this;
}
