// The text form of a generic message tree, for logs, tests and message files.
//
//   M1264 M_KytVolSurface {
//     T1248 iVolCrvId i 7
//     T4524 maKytVolSfcElmt M1265 M_KytVolSurfaceElmt {
//       T1251 dVol d 0.25
//       T1230 dStrike d -
//     }
//   }
//
// One line per value, in the order the values were added, nested messages
// indented by two blanks. A value line is the tag, the field name from the
// dictionary (left out for a tag it does not know), the type letter and the
// value: i, d, b (Y or N), n (a quoted date), s (a quoted text) or "-" for an
// unset value; m for a sub-message, written as a nested block. Doubles are
// written in the shortest form that reads back exactly.
#pragma once

class CMsg;
class CStream;

// Appends the text form of `msg` and all below it, ending with a newline.
void MA_WriteMsgText(const CMsg* msg, CStream* out);
