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
// written in the shortest form that reads back exactly.
#pragma once

class CMsg;
class CStream;

// Appends the text form of `msg` and all below it, ending with a newline.
void MA_WriteMsgText(const CMsg* msg, CStream* out);
