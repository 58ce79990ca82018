// Message files: the text form of a generic message tree, checked against
// the classes of the schema, for logs, tests and files kept by hand.
//
//   M1264 M_KytVolSurface {
//     T598 iVolCrvId i 7
//     T1456 maKytVolSfcElmt m M1265 M_KytVolSurfaceElmt {
//       T636 dVol d 0.25
//       T695 mTivMatur m M2143 M_Tiv {
//         T198 nDate n "20261123"
//         T775 sDateType s ""
//         T800 sMatur s ""
//       }
//       T928 dStrike d -
//     }
//   }
//
// A block is a message: "M<number> <class name> {", its values, and "}".
// A value line is the tag, the field name, the type letter of the field's
// kind and the value: i (an integer), d (a double), b (Y or N), n (a quoted
// date), s (a quoted text), or "-" for an unset value; m and the sub-message
// as a nested block, indented by two blanks more. A field of an array kind
// (ia, da, ma) has one line per element under its tag, with the letter of
// its element (i, d, m). Texts are quoted with the escapes \" \\ \n \t \r
// and \xHH (always two hex digits). Doubles are written in the shortest form
// that reads back exactly; the special values are written inf, -inf, nan
// and -nan.
//
// Writing walks the class of the message, not its content: for each field
// of the class, in tag order, the value that CMsg::GetValue gives for the
// field's kind, and nothing for a field that the message lacks. A string is
// always present once read (an empty one is ""); a sub-message of the
// right class is written whole. Values under tags that the class does not
// have are not seen.
//
// Reading builds a new tree with CMsg::SetValue, checking the text against
// the classes as it goes:
// - Every block must be of a class: the number of a class (and its name, if
//   one is given), and for a nested block the class that its field holds.
// - Every value line must name a field of its block's class, with the type
//   letter of that field's kind and a value of that kind; a field name that
//   is given must be the field's own. A field of a single kind takes at most
//   one value; an element of an array cannot be unset.
// - A text may not hold a NUL byte; a set date is a quoted text of 1 to 8
//   characters, which the runtime must take ("" is refused: an unset date is
//   "-"). A double reads back bit for bit, negative zero and subnormals
//   included, and inf and -inf as themselves; nan and -nan read back as a
//   quiet NaN of that sign. A number that does not fit (1e999, 1e-400,
//   2147483648 for an integer) is refused.
// - Blank lines, and lines whose first non-blank character is '#', are
//   skipped anywhere. Indentation does not matter, items may be separated by
//   any number of blanks (spaces or tabs), lines may end in "\r\n", \xHH
//   takes upper-case digits too, a UTF-8 byte order mark at the start is
//   skipped (the columns of line 1 count from the byte after it, as an
//   editor shows them), and field and class names may be left out.
// - Messages nest at most kMsgTextMaxDepth levels deep, the outer one
//   included; the writer refuses a deeper tree, so what it writes reads back.
//
// Only the calls of the runtime contract reach the messages: construction
// with a number, 0, 0 and MA_GetMsgDic(), GetValue and SetValue by the tags
// of the classes, msgnum, CMsgArray, and the fields and members of the value
// types.
#pragma once

#include <cstddef>
#include <string>

#include "Runtime.h"
#include "SchemaTables.h"

// Marks what libpricemsg_text exports; all else in it stays internal.
#define PRICEMSG_TEXT_EXPORT __attribute__((visibility("default")))

class CMsgBase;  // MsgBase.h: the base of the message classes

// Where and why a text could not be read, or a tree or file not written.
// `line` and `column` count from 1; the column counts bytes, a tab as one.
// A text that ends too early is reported at its end: after a final newline
// that is column 1 of the line below the last. Both are 0 where no position
// applies (writing, a file that could not be opened or read).
struct MsgTextError {
  int line;
  int column;
  char reason[160];  // terminated; says what was expected or refused
  // The MSGTEXT_E_* code of the failure (0 when cleared): a reader that
  // gives null tells here whether the text was wrong (MSGTEXT_E_TEXT), memory
  // ran out (MSGTEXT_E_NOMEM), and so on.
  int code = 0;
};

constexpr int kMsgTextMaxDepth = 64;
// The largest message file that the readers of files take unless told
// otherwise (256 MiB): a larger one is refused, unread where its size is
// known, and read no further than this where it is not (a pipe, a device).
constexpr size_t kMsgFileMaxSize = size_t{1} << 28;

enum MsgTextResult {
  MSGTEXT_OK = 0,
  MSGTEXT_E_ARG = -51,      // a null message or output, or a null or empty path
  MSGTEXT_E_CLASS = -52,    // a message of a number that no class has, or a sub-message
                            // of another class than its field holds
  MSGTEXT_E_RUNTIME = -53,  // GetValue failed (its code is in the reason), or gave no
                            // message or a text of a negative size
  MSGTEXT_E_VALUE = -54,    // a value that would not read back as itself: a text with a
                            // NUL byte, a set date with an empty or unterminated text
  MSGTEXT_E_DEPTH = -55,    // messages nest more than kMsgTextMaxDepth levels deep
  MSGTEXT_E_NOMEM = -56,    // out of memory
  MSGTEXT_E_IO = -57,       // the file could not be written, or opened or read; errno tells why
  MSGTEXT_E_LOAD = -58,     // the object's Load failed: its code and errtext are in the reason
  MSGTEXT_E_TEXT = -59,     // a message text that does not read: line and column say where
};

// Appends the text form of `msg` and all below it to `out`, ending with a
// newline. Gives MSGTEXT_OK, or a negative code with `out` as it was and
// `err` (which may be null) saying which field of which class failed.
PRICEMSG_TEXT_EXPORT int MA_WriteMsgText(CMsg* msg, std::string* out, MsgTextError* err = nullptr);

// Reads one message tree from the `size` bytes at `text`; a null `text` is
// an error at line 0, column 0, whatever the size. Gives the new tree,
// which the caller owns and frees with delete, or null: then `err` (which may
// be null) says where and why, and nothing read so far is kept. Running out
// of memory is such an error too, with the reason "out of memory". On success
// `err` is cleared (line 0, column 0, an empty reason).
//
// An error is reported at the item it concerns: a syntax error where the
// unexpected input starts, a class number at its 'M', a tag that the class
// lacks and a second value for a single field at the 'T', a type letter at
// the letter, a name at the name, a bad value, escape or date at the value,
// the runtime's refusal of a value at the value (of a sub-message, at the
// 'T' of its line), a text left open at its opening quote, and a missing
// '}' at the end of the text.
PRICEMSG_TEXT_EXPORT CMsg* MA_ReadMsgText(const char* text, size_t size, MsgTextError* err);

// Writes the text form of `msg` to the file at `path`, replacing it, whole
// or not at all:
// - The text goes to a new temporary file in the same directory, named
//   ".msgfile-<pid>-<n>.tmp" (whatever the length of the file's own name),
//   created exclusively and never through a symbolic link; it is flushed to
//   the disk and then renamed over `path`, and the directory is flushed
//   after. The rename is the only step that others can see: a reader finds
//   the old file or the new one, whole, also while other threads or
//   processes write the same path (the last rename wins), and a write that
//   gives a failure has changed nothing and leaves no temporary file.
// - A regular file that is replaced keeps its mode (permission bits only),
//   and its owner and group where the process may set them; where the group
//   cannot be kept, the group loses its access. A new file gets the mode of
//   any new file, 0666 under the umask.
// - A symbolic link at `path` is replaced by the file, like any other name;
//   the file that it points to is not written. A directory, a device, a FIFO
//   or a socket at `path` is refused (errno EISDIR for a directory, EINVAL
//   for the others) and left as it was.
// Gives what MA_WriteMsgText gives, MSGTEXT_E_ARG, or MSGTEXT_E_IO when the
// file could not be written (errno tells why, and so does the reason).
PRICEMSG_TEXT_EXPORT int MA_WriteMsgFile(CMsg* msg, const char* path, MsgTextError* err = nullptr);

// Whether the `size` bytes at `text` are a JSON message file (MsgJson.h):
// the first character that is not a blank, a line end or a UTF-8 byte order
// mark is '{'. Anything else is taken for the text form.
PRICEMSG_TEXT_EXPORT bool MA_IsMsgJson(const char* text, size_t size);

// Reads the message tree in the file at `path`, in either form by its
// content (MA_IsMsgJson): as MA_ReadMsgJson reads JSON, else as
// MA_ReadMsgText reads text. A file
// that cannot be opened or read, or is larger than `maxSize` bytes, is an
// error at line 0 whose reason names the cause (MSGTEXT_E_IO). The file is
// read no further than its first NUL byte, which no message file holds: it
// is an error at its line and column (MSGTEXT_E_TEXT), so that a device
// such as /dev/zero is refused at once.
PRICEMSG_TEXT_EXPORT CMsg* MA_ReadMsgFile(const char* path, MsgTextError* err,
                                          size_t maxSize = kMsgFileMaxSize);

// Appends a message text of the class numbered `classNumber` with every field
// present, ready to be filled in by hand and loaded: one line for each single
// field, one element for each value array, and for each sub-message and
// repeated sub-message a nested block (one element) with every field of its
// class, recursively. The values read back and load: 0, 0, N, the date
// "20000101" and "". Each block opens with a comment line giving its class's
// role and description, and each value line follows a comment line giving the
// field's kind and, where it has one, its role. Without its comment lines the
// text is what MA_WriteMsgText writes for the tree it reads back as.
//
// Gives MSGTEXT_OK, MSGTEXT_E_ARG for a null `out`, MSGTEXT_E_CLASS for a
// number of no class, MSGTEXT_E_DEPTH for a class whose fields nest more than
// kMsgTextMaxDepth levels deep (the text would not read back), or
// MSGTEXT_E_NOMEM; on failure `out` is as it was and `err` (which may be
// null) says why.
PRICEMSG_TEXT_EXPORT int MA_WriteMsgTemplate(int classNumber, std::string* out,
                                             MsgTextError* err = nullptr);

// Loads the message file at `path`, text or JSON, into `obj`: reads it as
// MA_ReadMsgFile does, checks that it holds a message of `obj`'s class, and calls
// obj->Load() with the tree, which is freed after. Gives MSGTEXT_OK (with
// `err` cleared) or, with `err` (which may be null) saying why:
// - MSGTEXT_E_ARG for a null or empty `path` or a null `obj`;
// - MSGTEXT_E_IO for a file that cannot be opened or read, or is larger than
//   `maxSize` bytes (line 0);
// - MSGTEXT_E_TEXT for a text or JSON that does not read, at its line and
//   column;
// - MSGTEXT_E_NOMEM when memory runs out while reading;
// - MSGTEXT_E_CLASS for a message of another class than `obj`'s, naming both
//   (`obj` is left as it was);
// - MSGTEXT_E_LOAD when Load fails: the reason gives its code and `obj`'s
//   errtext, and `obj` holds what Load left in it.
PRICEMSG_TEXT_EXPORT int MA_LoadMsgFile(const char* path, CMsgBase* obj,
                                        MsgTextError* err = nullptr,
                                        size_t maxSize = kMsgFileMaxSize);
