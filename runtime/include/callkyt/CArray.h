// CIntArray and CDblArray: growable arrays of plain values.
//
// `size` is the element count and is read directly by the message classes;
// change it only through the member functions. Allocation failure throws
// std::bad_alloc. An array holds at most kMaxSize elements, so that its block
// stays below 2 GiB like every other block of the runtime (a message holds
// fewer values under one tag than that); a size beyond it throws
// std::bad_array_new_length (a std::bad_alloc) before anything is allocated.
// A call that throws leaves the array as it was.
#pragma once

#include <cstdint>
#include <new>

#include "CString.h"

namespace kyt_detail {

template <class T>
class ValueArray {
 public:
  static constexpr int32_t kMaxSize = static_cast<int32_t>(INT32_MAX / sizeof(T));

  int32_t size;

  ValueArray() noexcept : size(0), cap_(0), data_(nullptr) {}
  ValueArray(const ValueArray& other);
  ValueArray(ValueArray&& other) noexcept;
  ~ValueArray();
  ValueArray& operator=(const ValueArray& other);
  ValueArray& operator=(ValueArray&& other) noexcept;

  // The element at `index`; 0 for an index out of range.
  T GetAt(int index) const { return index >= 0 && index < size ? data_[index] : T(); }
  // Sets the element at `index`; false for an index out of range.
  bool SetAt(int index, T v);
  // Appends one element and gives the new size.
  int Add(T v);
  // Makes `n` elements, keeping the first ones and zeroing the new ones; a
  // negative `n` makes none.
  void SetSize(int n);
  void RemoveAll() { size = 0; }
  const T* Data() const { return data_; }

  bool operator==(const ValueArray& other) const;
  bool operator!=(const ValueArray& other) const { return !(*this == other); }

 protected:
  // Room for `n` elements.
  void Reserve(int64_t n);
  // The elements as texts joined by `sep`, in "{" and "}" when `braced`.
  CString Join(const char* sep, bool braced) const;

  int32_t cap_;
  T* data_;
};

extern template class ValueArray<int32_t>;
extern template class ValueArray<double>;

}  // namespace kyt_detail

class CIntArray : public kyt_detail::ValueArray<int32_t> {
 public:
  CIntArray() = default;
  CIntArray(const CIntArray&) = default;
  CIntArray(CIntArray&&) = default;
  CIntArray& operator=(CIntArray&&) = default;
  // Defined in the library, so that a program built on these headers needs
  // no symbol of the array's insides.
  ~CIntArray();
  CIntArray& operator=(const CIntArray& other);

  // The elements as "%d" texts joined by `sep`; with `braced` the list is
  // wrapped in "{" and "}". An empty array gives an empty text (or "{}").
  CString Repr(const char* sep, bool braced) const;
};

class CDblArray : public kyt_detail::ValueArray<double> {
 public:
  CDblArray() = default;
  CDblArray(const CDblArray&) = default;
  CDblArray(CDblArray&&) = default;
  CDblArray& operator=(CDblArray&&) = default;
  // Defined in the library, so that a program built on these headers needs
  // no symbol of the array's insides.
  ~CDblArray();
  CDblArray& operator=(const CDblArray& other);

  // The same with each element as "%.15e" would print it.
  CString Repr(const char* sep, bool braced) const;
};
