#include "TextCommon.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>

namespace pricemsg::text {

size_t ByteOrderMark(const char* text, size_t size) {
  return size >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0 ? 3 : 0;
}

void PositionOf(const char* text, size_t size, size_t offset, int* line, int* column) {
  offset = std::min(offset, size);
  long long lines = 1;
  size_t start = ByteOrderMark(text, size);
  for (const char* p = text;
       (p = static_cast<const char*>(std::memchr(p, '\n', text + offset - p))); ++p) {
    ++lines;
    start = static_cast<size_t>(p - text) + 1;
  }
  *line = static_cast<int>(std::min<long long>(lines, INT_MAX));
  *column = static_cast<int>(std::min<size_t>(offset - std::min(offset, start), INT_MAX - 1) + 1);
}

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
