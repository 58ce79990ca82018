// Message files as JSON: the same information as the text form of
// MsgText.h, in a form that jq, a browser or any scripting language reads
// and writes.
//
//   {
//     "class": "M_KytVolSurface",
//     "number": 1264,
//     "iVolCrvId": 7,
//     "maKytVolSfcElmt": [
//       {
//         "class": "M_KytVolSurfaceElmt",
//         "number": 1265,
//         "dVol": 0.25,
//         "mTivMatur": {
//           "class": "M_Tiv",
//           "number": 2143,
//           "nDate": "20261123",
//           "sDateType": "",
//           "sMatur": ""
//         },
//         "dStrike": null
//       }
//     ]
//   }
//
// A message is an object: "class" (its class name) and "number" (its
// message number), then its fields by name, in tag order. No field of the
// dictionary is named "class" or "number". Values, by the kind of the field:
// - int: a JSON integer; double: a JSON number in the shortest form that
//   reads back bit for bit (the digits of the text form, with ".0" after an
//   integral value: 1.0, -0.0), or one of the texts "Infinity", "-Infinity",
//   "NaN" and "-NaN", which JSON numbers cannot carry (a NaN reads back as a
//   quiet NaN of its sign); bool: true or false; date: its text, as
//   "20261123". An unset value of these kinds is null.
// - string: a JSON string. A text (or a date) whose bytes are not valid
//   UTF-8, which JSON strings cannot carry, is an object {"hex": "..."} of
//   its bytes as pairs of lower-case hex digits (upper-case ones read too).
// - int array, double array: a JSON array of the elements, which cannot be
//   null; message: a nested object; message array: an array of objects.
// A field that the message lacks is left out, as is an array without
// elements, which the text form does not show either: what one form holds,
// the other holds too, and converting between them keeps every bit.
//
// Reading checks the JSON against the classes as MA_ReadMsgText checks a
// text: the outer object names its class by "class", "number" or both (which
// must agree); a nested object may leave both out, and what it gives must be
// the class that its field holds. Every other key must be a field of the
// class, once, with a value of its kind; an integer out of the range of an
// int, a number out of the range of a double (1e999, 1e-400) and a text with
// a NUL byte are refused, and so is a set date of no characters or of more
// than 8. Messages nest at most kMsgTextMaxDepth levels deep, and the JSON
// at most 2 * kMsgTextMaxDepth + 1 (objects, arrays between them, and a
// value at the bottom): deeper input is refused before it is parsed. A JSON
// integer of -0 is zero; negative zero is written -0.0.
//
// Errors: text that is not JSON (the parser's own reason) is reported at its
// line and column, counted as MsgText.h counts them; JSON that does not fit
// the classes at line 0, column 0, with a reason that starts with the JSON
// pointer of the value concerned, as "/mOptSched/nStartDate: ...".
#pragma once

#include <cstddef>
#include <string>

#include "MsgText.h"

// Appends the JSON of `msg` and all below it to `out`, indented by two
// blanks a level and ending with a newline. Gives MSGTEXT_OK, or a negative
// code (as MA_WriteMsgText) with `out` as it was and `err` (which may be
// null) saying which field of which class failed.
PRICEMSG_TEXT_EXPORT int MA_WriteMsgJson(CMsg* msg, std::string* out, MsgTextError* err = nullptr);

// Appends a JSON message file of the class numbered `classNumber` with every
// field present, as MA_WriteMsgTemplate writes it in the text form (with
// the same placeholders, and without its comments, which JSON has no room
// for). Gives what MA_WriteMsgTemplate gives.
PRICEMSG_TEXT_EXPORT int MA_WriteMsgJsonTemplate(int classNumber, std::string* out,
                                                 MsgTextError* err = nullptr);

// Reads one message tree from the `size` bytes of JSON at `text`; a null
// `text` is an error at line 0, column 0. Gives the new tree, which the
// caller owns and frees with delete, or null with `err` (which may be null)
// saying where and why; on success `err` is cleared.
PRICEMSG_TEXT_EXPORT CMsg* MA_ReadMsgJson(const char* text, size_t size, MsgTextError* err);

// Writes the JSON of `msg` to the file at `path`, whole or not at all, with
// every guarantee of MA_WriteMsgFile (the same code writes both).
PRICEMSG_TEXT_EXPORT int MA_WriteMsgJsonFile(CMsg* msg, const char* path,
                                             MsgTextError* err = nullptr);

// Reads the message tree in the JSON file at `path` as MA_ReadMsgJson does;
// a file that cannot be read, is larger than `maxSize` bytes or holds a NUL
// byte is refused as MA_ReadMsgFile refuses it.
PRICEMSG_TEXT_EXPORT CMsg* MA_ReadMsgJsonFile(const char* path, MsgTextError* err,
                                              size_t maxSize = kMsgFileMaxSize);
