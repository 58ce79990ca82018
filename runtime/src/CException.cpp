#include "callkyt/CException.h"

#include <cstring>

CException::CException(const char* text, int code) : text_{}, code_(code) {
  if (text) std::strncpy(text_, text, kMaxText);
}
