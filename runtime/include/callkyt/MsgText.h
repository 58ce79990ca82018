// The text form of a generic message tree, for logs, tests and message files.
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
// One line per value, in the order the values were added, nested messages
// indented by two blanks. A value line is the tag, the field name from the
// dictionary (left out for a tag it does not know), the type letter and the
// value: i, d, b (Y or N), n (a quoted date), s (a quoted text) or "-" for an
// unset value; m and the sub-message as a nested block. Texts are quoted with
// the escapes \" \\ \n \t \r and \xHH (always two hex digits). Doubles are
// written in the shortest form that reads back exactly; the special values
// are written inf, -inf, nan and -nan.
//
// Reading the text of a tree gives back the same tree: the same message
// numbers, every value with its tag and type, set or unset, in its order.
// It takes a little more than the writer writes, for files kept by hand:
// - Blank lines, and lines whose first non-blank character is '#', are
//   skipped anywhere. Indentation does not matter, items may be separated by
//   any number of blanks (spaces or tabs), lines may end in "\r\n", \xHH
//   takes upper-case digits too, and a UTF-8 byte order mark at the start is
//   skipped.
// - The field name after the tag and the message name after M<number> may be
//   left out: the numbers are what counts. A name that is given is checked
//   against the dictionary: for a tag it knows, the name must be the tag's
//   single or array field name; for a message number it knows, the message's
//   name; and a message name the dictionary gives to another number is
//   refused.
// - Values are set through CMsg::SetValue on messages that check against the
//   dictionary (MA_GetMsgDic()): an unknown tag, a type letter that
//   contradicts the tag's type and an invalid set date are refused. A tree
//   built with a null dictionary may hold such values; its text is then
//   refused at the first of them.
// - A double reads back bit for bit, negative zero and subnormals included,
//   and inf and -inf as themselves; nan and -nan read back as a quiet NaN of
//   that sign, without the payload bits of the NaN that was written. A
//   number that a double cannot hold (1e999, 1e-400) is an error.
// - A text may not hold a NUL byte (SetValue takes terminated texts), and a
//   set date must be given as a quoted "YYYYMMDD" ("" is refused: an unset
//   date is "-").
// - Messages nest at most kMsgTextMaxDepth levels deep, the outer one
//   included.
#pragma once

#include <cstddef>

class CMsg;
class CStream;

constexpr int kMsgTextMaxDepth = 64;

// Where and why a text could not be read. `line` and `column` count from 1;
// the column counts bytes, a tab as one. A text that ends too early is
// reported at its end: after a final newline that is column 1 of the line
// below the last. Both are 0 when there was no text to read (a file that
// could not be opened or read, a null text).
struct KytTextError {
  int line;
  int column;
  char reason[160];  // terminated; says what was expected or refused
};

// Appends the text form of `msg` and all below it, ending with a newline.
void MA_WriteMsgText(const CMsg* msg, CStream* out);

// Reads one message tree from the `size` bytes at `text`. Gives the new tree,
// which the caller owns and frees with delete, or null: then `err` (which may
// be null) says where and why, and nothing read so far is kept. Running out
// of memory is such an error too, with the reason "out of memory". On success
// `err` is cleared (line 0, column 0, an empty reason).
//
// An error is reported at the item it concerns: a syntax error where the
// unexpected input starts, an unknown tag at the tag, a type the dictionary
// refuses at the type letter, a field or message name that does not fit at
// the name, a bad value, escape or date at the value, a text left open at
// its opening quote, and a missing '}' at the end of the text.
CMsg* MA_ReadMsgText(const char* text, size_t size, KytTextError* err);

// Writes the text form of `msg` to the file at `path`, replacing it. The
// text goes to "<path>.part" first, which then takes the file's place, so a
// failed write leaves the old file as it was. Gives KYT_OK, KYT_E_ARG for a
// null message or an empty or null path, KYT_E_NOMEM, or KYT_E_IO when the
// file could not be written (errno tells why).
int MA_WriteMsgFile(const CMsg* msg, const char* path);

// Reads the message tree in the file at `path` as MA_ReadMsgText does. A file
// that cannot be opened or read is an error at line 0 whose reason names
// the cause.
CMsg* MA_ReadMsgFile(const char* path, KytTextError* err);
