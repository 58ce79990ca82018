#include "TextCommon.h"

#include <charconv>
#include <cstdio>
#include <cstring>

namespace pricemsg::text {

char* PutHex(char* out, unsigned char c) {
  out[0] = '\\';
  out[1] = 'x';
  out[2] = '0';
  std::to_chars(c < 16 ? out + 3 : out + 2, out + 4, c, 16);
  return out + 4;
}

int SetError(MsgTextError* err, int code, int line, int column, const char* format, ...) {
  va_list args;
  va_start(args, format);
  SetErrorV(err, code, line, column, format, args);
  va_end(args);
  return code;
}

void SetErrorV(MsgTextError* err, int code, int line, int column, const char* format,
               va_list args) {
  if (!err) return;
  err->code = code;
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
  err->code = 0;
}

}  // namespace pricemsg::text
