#include "callkyt/CArray.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "TextFormat.h"

namespace kyt_detail {

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

template <class T>
void ValueArray<T>::Reserve(int n) {
  if (n <= cap_) return;
  int cap = cap_ * 2 > n ? cap_ * 2 : n;
  T* p = static_cast<T*>(::operator new(sizeof(T) * static_cast<size_t>(cap)));
  if (size > 0) std::memcpy(p, data_, sizeof(T) * static_cast<size_t>(size));
  ::operator delete(data_);
  data_ = p;
  cap_ = cap;
}

template <class T>
bool ValueArray<T>::SetAt(int index, T v) {
  if (index < 0 || index >= size) return false;
  data_[index] = v;
  return true;
}

template <class T>
int ValueArray<T>::Add(T v) {
  if (size == cap_) Reserve(size < 4 ? 4 : size * 2);
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

template class ValueArray<int32_t>;
template class ValueArray<double>;

namespace {

template <class Put>
CString Join(int n, const char* sep, bool braced, Put put) {
  TextBuffer out;
  if (braced) out.Append('{');
  size_t seplen = sep ? std::strlen(sep) : 0;
  for (int i = 0; i < n; ++i) {
    if (i > 0) out.Append(sep, seplen);
    put(out, i);
  }
  if (braced) out.Append('}');
  return CString(out.data(), out.size());
}

}  // namespace
}  // namespace kyt_detail

CString CIntArray::Repr(const char* sep, bool braced) const {
  return kyt_detail::Join(size, sep, braced, [this](kyt_detail::TextBuffer& out, int i) {
    kyt_detail::AppendInt(out, data_[i]);
  });
}

CString CDblArray::Repr(const char* sep, bool braced) const {
  return kyt_detail::Join(size, sep, braced, [this](kyt_detail::TextBuffer& out, int i) {
    kyt_detail::AppendFormat(out, "%.15e", data_[i]);
  });
}
