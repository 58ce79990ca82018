// What the forms of message files (text and JSON) share: the escapes of
// quoted texts, the filling of a MsgTextError, calls of the runtime, and the
// writing and reading of whole files. Internal to libpricemsg_text.
#pragma once

#include <cerrno>
#include <cstdarg>
#include <new>
#include <string>

#include "MsgText.h"
#include "Reflect.h"

namespace pricemsg::text {

// The schema's words, which both directions use throughout.
using pricemsg::TypeTag;
using schema::ClassInfo;
using schema::FieldInfo;
using schema::Kind;
using schema::KindInfo;

// The bytes that a quoted text writes as a backslash and a letter; any
// other byte below 0x20, and 0x7f, is written \xHH.
using pricemsg::kTextEscapes;
inline bool NeedsHex(unsigned char c) { return c < 0x20 || c == 0x7f; }

// The length of a UTF-8 byte order mark at the start of a file's text: 3 or 0.
size_t ByteOrderMark(const char* text, size_t size);
// The line and column (from 1, in bytes) of `offset` in a file's text; a
// byte order mark at the start does not count as columns.
void PositionOf(const char* text, size_t size, size_t offset, int* line, int* column);
// Writes the four bytes \xHH of `c` (lower-case digits) at `out`; gives the
// end.
char* PutHex(char* out, unsigned char c);

// A call of the runtime, made with errno cleared. A failure that leaves
// errno at ENOMEM ran out of memory, as the C library tells it: the runtime's
// own codes say nothing to a caller that does not know them, but a runtime
// that runs out of memory says so there as malloc does.
struct RuntimeResult {
  int rc;
  bool noMemory;  // the call failed for want of memory
};
template <class Call>
RuntimeResult CallRuntime(Call call) {
  errno = 0;
  const int rc = call();
  return {rc, rc < 0 && errno == ENOMEM};
}

// Sets `err` (if not null) to the code, the position and the formatted
// reason, cut to fit. Gives `code`, so that a failing function can end with
// it.
int SetError(MsgTextError* err, int code, int line, int column, const char* format, ...)
    __attribute__((format(printf, 5, 6)));
void SetErrorV(MsgTextError* err, int code, int line, int column, const char* format, va_list args)
    __attribute__((format(printf, 5, 0)));
// Appends to the reason that `err` holds, cut to fit.
void AppendReasonV(MsgTextError* err, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));
// Line 0, column 0, an empty reason, code 0.
void ClearError(MsgTextError* err);

// Runs `write(*out)`, which appends a text and gives MSGTEXT_OK or a failure
// code with `err` set, as every writer of texts does: on failure, running
// out of memory included, `out` is left as it was; on success `err` is
// cleared.
template <class Write>
int AppendWhole(std::string* out, MsgTextError* err, Write write) {
  const size_t size = out->size();
  int rc;
  try {
    rc = write(*out);
  } catch (const std::bad_alloc&) {
    rc = SetError(err, MSGTEXT_E_NOMEM, 0, 0, "out of memory");
  }
  if (rc != MSGTEXT_OK) {
    out->resize(size);
  } else {
    ClearError(err);
  }
  return rc;
}

// A writer and a reader of one form of message files, as MA_WriteMsgText
// and MA_ReadMsgText.
using TextWriter = int (*)(CMsg* msg, std::string* out, MsgTextError* err);
using TextReader = CMsg* (*)(const char* text, size_t size, MsgTextError* err);
// MA_WriteMsgFile and MA_ReadMsgFile of a form: the text that `write`
// writes replaces the file at `path`, and `read` reads the whole file.
int WriteFileWith(TextWriter write, CMsg* msg, const char* path, MsgTextError* err);
CMsg* ReadFileWith(TextReader read, const char* path, MsgTextError* err, size_t maxSize);

// Replaces the file at `path` (neither null nor empty) with `text`, whole or
// not at all, as MA_WriteMsgFile says. Gives MSGTEXT_OK, or MSGTEXT_E_IO
// with errno and `err` saying why.
int ReplaceFile(const char* path, const std::string& text, MsgTextError* err);
// Reads the whole file at `path` (neither null nor empty) into `text`, as
// MA_ReadMsgFile says: false, with the cause in `err`, for a file that
// cannot be opened or read or is larger than `maxSize` (at line 0), or that
// holds a NUL byte (at its line and column).
bool ReadWholeFile(const char* path, std::string* text, MsgTextError* err, size_t maxSize);

}  // namespace pricemsg::text
