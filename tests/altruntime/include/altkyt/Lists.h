// CIntArray and CDblArray: the values of a message under one tag, as a list of
// plain numbers. A message fills them (CMsg::GetValue); callers read `size`
// and GetAt, copy one into another by assignment and print one with Repr.
#pragma once

#include <cstdint>
#include <vector>

#include "altkyt/Error.h"
#include "altkyt/Text.h"

class CMsg;

namespace altkyt {

template <class T>
class NumberList {
 public:
  // The number of elements. Read it; a value written here is not trusted:
  // GetAt and Repr never go past the elements the list holds.
  int32_t size;

  NumberList() : size(0) {}
  NumberList(const NumberList&) = delete;
  NumberList& operator=(const NumberList& other) {
    items_ = other.items_;
    size = static_cast<int32_t>(items_.size());
    return *this;
  }
  ~NumberList() = default;

 protected:
  // What GetAt and Repr of the two list types give: the element at `index`. Throws CException with kOutOfRange for an index
  // outside 0 .. size - 1.
  T At(int index) const;

  // The elements with `sep` between them (null: none), integers as %d and
  // doubles as %.15e. With `bare` false the count comes first and the
  // elements stand in braces, as in #3{1, 2, 3} and #0{}; with `bare` true
  // only the elements are given.
  CString Print(const char* sep, bool bare) const;

 private:
  friend class ::CMsg;
  std::vector<T> items_;
};

extern template class NumberList<int32_t>;
extern template class NumberList<double>;

}  // namespace altkyt

class CIntArray : public altkyt::NumberList<int32_t> {
 public:
  int32_t GetAt(int index) const;
  CString Repr(const char* sep, bool bare) const;
};

class CDblArray : public altkyt::NumberList<double> {
 public:
  double GetAt(int index) const;
  CString Repr(const char* sep, bool bare) const;
};
