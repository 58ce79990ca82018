#include "TextFormat.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace kyt_detail {

TextBuffer::~TextBuffer() {
  if (data_ != local_) ::operator delete(data_);
}

void TextBuffer::Grow(size_t more) {
  size_t cap = cap_ * 2;
  if (cap - size_ < more) cap = size_ + more;
  char* p = static_cast<char*>(::operator new(cap));
  std::memcpy(p, data_, size_);
  if (data_ != local_) ::operator delete(data_);
  data_ = p;
  cap_ = cap;
}

void TextBuffer::Append(const char* p, size_t n) {
  if (n == 0) return;
  std::memcpy(Room(n), p, n);
  size_ += n;
}

void TextBuffer::Fill(char c, int n) {
  if (n <= 0) return;
  std::memset(Room(static_cast<size_t>(n)), c, static_cast<size_t>(n));
  size_ += static_cast<size_t>(n);
}

namespace {

// One conversion of a format: %[flags][width][.precision]conv.
struct Conversion {
  bool left = false;
  bool plus = false;
  bool space = false;
  bool zero = false;
  int width = 0;
  int precision = -1;
  char conv = 0;
};

// Parses the conversion that starts after '%'. Gives the end of it, or null
// if it is one that FormatFast does not handle (length modifiers, '*', '#',
// and any conversion but d, i, s, e and %).
const char* ParseConversion(const char* p, Conversion& s) {
  for (;; ++p) {
    if (*p == '-') {
      s.left = true;
    } else if (*p == '+') {
      s.plus = true;
    } else if (*p == ' ') {
      s.space = true;
    } else if (*p == '0') {
      s.zero = true;
    } else {
      break;
    }
  }
  for (; *p >= '0' && *p <= '9'; ++p) {
    if (s.width > 100000) return nullptr;
    s.width = s.width * 10 + (*p - '0');
  }
  if (*p == '.') {
    s.precision = 0;
    for (++p; *p >= '0' && *p <= '9'; ++p) {
      if (s.precision > 100000) return nullptr;
      s.precision = s.precision * 10 + (*p - '0');
    }
  }
  switch (*p) {
    case 'd':
    case 'i':
    case 's':
    case 'e':
    case '%':
      s.conv = *p;
      return p + 1;
    default:
      return nullptr;
  }
}

bool AllFast(const char* format) {
  for (const char* p = format; *p; ++p) {
    if (*p != '%') continue;
    Conversion s;
    p = ParseConversion(p + 1, s);
    if (!p) return false;
    --p;
  }
  return true;
}

// Writes `body` (with an optional sign before it) padded to the width.
void Pad(TextBuffer& out, const Conversion& s, char sign, const char* body, int len, bool zeroPad) {
  int total = len + (sign ? 1 : 0);
  int pad = s.width > total ? s.width - total : 0;
  if (!s.left && !zeroPad) out.Fill(' ', pad);
  if (sign) out.Append(sign);
  if (!s.left && zeroPad) out.Fill('0', pad);
  out.Append(body, static_cast<size_t>(len));
  if (s.left) out.Fill(' ', pad);
}

void PutInt(TextBuffer& out, const Conversion& s, int v) {
  char digits[16];
  unsigned long long mag = v < 0 ? 0ULL - static_cast<unsigned long long>(v) : v;
  char* end = std::to_chars(digits, digits + sizeof digits, mag).ptr;
  int len = static_cast<int>(end - digits);
  if (s.precision == 0 && v == 0) len = 0;
  char sign = v < 0 ? '-' : s.plus ? '+' : s.space ? ' ' : 0;
  if (s.precision > len) {
    TextBuffer body;
    body.Fill('0', s.precision - len);
    body.Append(digits, static_cast<size_t>(len));
    Pad(out, s, sign, body.data(), body.size(), false);
    return;
  }
  Pad(out, s, sign, digits, len, s.zero && s.precision < 0);
}

void PutText(TextBuffer& out, const Conversion& s, const char* text) {
  if (!text) text = "(null)";
  size_t len =
      s.precision >= 0 ? strnlen(text, static_cast<size_t>(s.precision)) : std::strlen(text);
  Pad(out, s, 0, text, static_cast<int>(len), false);
}

void PutExp(TextBuffer& out, const Conversion& s, double v) {
  int precision = s.precision < 0 ? 6 : s.precision;
  char stack[64];
  char* buf = stack;
  size_t cap = sizeof stack;
  if (static_cast<size_t>(precision) + 16 > cap) {
    cap = static_cast<size_t>(precision) + 16;
    buf = static_cast<char*>(::operator new(cap));
  }
  auto res = std::to_chars(buf, buf + cap, v, std::chars_format::scientific, precision);
  const char* body = buf;
  int len = static_cast<int>(res.ptr - buf);
  char sign = 0;
  if (*body == '-') {
    sign = '-';
    ++body;
    --len;
  } else if (s.plus) {
    sign = '+';
  } else if (s.space) {
    sign = ' ';
  }
  bool finite = body[0] >= '0' && body[0] <= '9';
  Pad(out, s, sign, body, len, s.zero && finite);
  if (buf != stack) ::operator delete(buf);
}

void FormatFast(TextBuffer& out, const char* format, va_list args) {
  const char* p = format;
  while (*p) {
    const char* pct = std::strchr(p, '%');
    if (!pct) {
      out.Append(p, std::strlen(p));
      return;
    }
    out.Append(p, static_cast<size_t>(pct - p));
    Conversion s;
    p = ParseConversion(pct + 1, s);
    switch (s.conv) {
      case 'd':
      case 'i':
        PutInt(out, s, va_arg(args, int));
        break;
      case 's':
        PutText(out, s, va_arg(args, const char*));
        break;
      case 'e':
        PutExp(out, s, va_arg(args, double));
        break;
      default:
        out.Append('%');
        break;
    }
  }
}

}  // namespace

void FormatTo(TextBuffer& out, const char* format, va_list args) {
  if (!format) return;
  if (AllFast(format)) {
    va_list copy;
    va_copy(copy, args);
    FormatFast(out, format, copy);
    va_end(copy);
    return;
  }
  va_list copy;
  va_copy(copy, args);
  char probe[256];
  int n = std::vsnprintf(probe, sizeof probe, format, copy);
  va_end(copy);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof probe) {
    out.Append(probe, static_cast<size_t>(n));
    return;
  }
  char* room = out.Room(static_cast<size_t>(n) + 1);
  va_copy(copy, args);
  std::vsnprintf(room, static_cast<size_t>(n) + 1, format, copy);
  va_end(copy);
  out.Commit(static_cast<size_t>(n));
}

void AppendFormat(TextBuffer& out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatTo(out, format, args);
  va_end(args);
}

void AppendShortest(TextBuffer& out, double v) {
  char* room = out.Room(32);
  out.Commit(static_cast<size_t>(std::to_chars(room, room + 32, v).ptr - room));
}

void AppendInt(TextBuffer& out, int64_t v) {
  char* room = out.Room(24);
  out.Commit(static_cast<size_t>(std::to_chars(room, room + 24, v).ptr - room));
}

void QuoteTo(TextBuffer& out, const char* text, int len) {
  static const char kHex[] = "0123456789abcdef";
  out.Append('"');
  for (int i = 0; i < len; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    switch (c) {
      case '"':
        out.Append("\\\"", 2);
        break;
      case '\\':
        out.Append("\\\\", 2);
        break;
      case '\n':
        out.Append("\\n", 2);
        break;
      case '\t':
        out.Append("\\t", 2);
        break;
      case '\r':
        out.Append("\\r", 2);
        break;
      default:
        if (c < 0x20 || c == 0x7f) {
          char esc[4] = {'\\', 'x', kHex[c >> 4], kHex[c & 15]};
          out.Append(esc, 4);
        } else {
          out.Append(static_cast<char>(c));
        }
    }
  }
  out.Append('"');
}

}  // namespace kyt_detail
