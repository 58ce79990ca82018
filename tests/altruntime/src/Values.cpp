// CDate and the number lists.
#include <cstdio>
#include <cstring>
#include <string>

#include "altkyt/Lists.h"
#include "altkyt/Values.h"

namespace {

const char kUnsetDate[] = "00000000";

}  // namespace

CDate::CDate() : isSet(0) { std::memcpy(text, kUnsetDate, sizeof text); }

CDate::~CDate() = default;

int CDate::Set(const char* date) {
  size_t len = date ? strnlen(date, kMaxLength + 1) : 0;
  if (!date || len > kMaxLength) {
    std::memcpy(text, kUnsetDate, sizeof text);
    isSet = 0;
    return altkyt::kBadArgument;
  }
  std::memmove(text, date, len);  // `date` may be this date's own text
  text[len] = '\0';
  isSet = 1;
  return 0;
}

namespace altkyt {

namespace {

void Append(std::string& out, int32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%d", v);
  out += buf;
}

void Append(std::string& out, double v) {
  char buf[64];  // %.15e of any double fits
  std::snprintf(buf, sizeof buf, "%.15e", v);
  out += buf;
}

}  // namespace

template <class T>
T NumberList<T>::At(int index) const {
  if (index < 0 || index >= size || static_cast<size_t>(index) >= items_.size()) {
    throw CException(
        CFormat("array index %d out of range (0 .. %d)", index, static_cast<int>(items_.size()))
            .ToStr(),
        kOutOfRange);
  }
  return items_[static_cast<size_t>(index)];
}

template <class T>
CString NumberList<T>::Print(const char* sep, bool bare) const {
  std::string out;
  if (!bare) out = "#" + std::to_string(items_.size()) + "{";
  for (size_t i = 0; i < items_.size(); ++i) {
    if (i > 0 && sep) out += sep;
    Append(out, items_[i]);
  }
  if (!bare) out += "}";
  return CString(out.c_str());
}

template class NumberList<int32_t>;
template class NumberList<double>;

}  // namespace altkyt

int32_t CIntArray::GetAt(int index) const { return At(index); }
CString CIntArray::Repr(const char* sep, bool bare) const { return Print(sep, bare); }
double CDblArray::GetAt(int index) const { return At(index); }
CString CDblArray::Repr(const char* sep, bool bare) const { return Print(sep, bare); }
