#include <cstring>

#include "callkyt/CValue.h"

// An empty text unsets the date; any other that fits is taken as it is. A
// refused text leaves the date as it was.
bool CDate::Set(const char* date) {
  if (!date) return false;
  const size_t len = strnlen(date, sizeof text);
  if (len == sizeof text) return false;
  std::memmove(text, date, len + 1);  // `date` may be this date's own text
  isSet = len > 0;
  return true;
}

bool CDate::IsValidText(const char* date) {
  if (!date) return false;
  int v[8];
  for (int i = 0; i < 8; ++i) {
    if (date[i] < '0' || date[i] > '9') return false;
    v[i] = date[i] - '0';
  }
  if (date[8] != '\0') return false;
  int year = v[0] * 1000 + v[1] * 100 + v[2] * 10 + v[3];
  int month = v[4] * 10 + v[5];
  int day = v[6] * 10 + v[7];
  static const int kDays[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 1 || month < 1 || month > 12 || day < 1 || day > kDays[month - 1]) return false;
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month != 2 || day <= 28 || leap;
}
