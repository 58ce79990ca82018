#include "TextCommon.h"

#include <cstdio>
#include <cstring>

namespace pricemsg::text {

int SetError(MsgTextError* err, int code, int line, int column, const char* format, ...) {
  va_list args;
  va_start(args, format);
  SetErrorV(err, line, column, format, args);
  va_end(args);
  return code;
}

void SetErrorV(MsgTextError* err, int line, int column, const char* format, va_list args) {
  if (!err) return;
  err->line = line;
  err->column = column;
  err->reason[0] = '\0';
  AppendReasonV(err, format, args);
}

void AppendReasonV(MsgTextError* err, const char* format, va_list args) {
  if (!err) return;
  const size_t used = strnlen(err->reason, sizeof err->reason - 1);
  std::vsnprintf(err->reason + used, sizeof err->reason - used, format, args);
}

void ClearError(MsgTextError* err) {
  if (!err) return;
  err->line = 0;
  err->column = 0;
  err->reason[0] = '\0';
}

}  // namespace pricemsg::text
