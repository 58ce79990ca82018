// A failed Load or ToMsg explained as the path of field names down to its
// first cause.
//
// Each level of a nested object writes only its own failure text, which
// names a tag ("M_EqStd:SET_SUB_ONE(M3540.T4566) fail"); the first cause is
// in the innermost. These calls follow the levels with the schema tables and
// give one text: a first line with the path and the cause,
//
//   M_EqStd.mOptSched.nStartDate (T451, CDate): SetValue gave -5
//
// then one line for each level, with its class and number, the tag, field,
// kind and C++ type, the failure text's operation and the code:
//
//   M_EqStd M3540 T4566 mOptSched (message, M_OptSched): SET_SUB_ONE, ToMsg gave null, code -5
//   M_OptSched M3434 T451 nStartDate (date, CDate): SET_VAL_ONE, SetValue gave -5
//
// An element of an array shows with its index where it is known, as
// "maOptCmb[1]". The lines are separated by '\n'; the text does not end in
// one.
#pragma once

#include <string>

#include "MsgBase.h"
#include "MsgText.h"

// The failure of the last Load or ToMsg of `obj`, read from its errcode and
// errtext and those of the members that failed below it, which the
// reflection reaches (Reflect.h); the empty string if that Load or ToMsg
// succeeded or none has run (errcode 0).
PRICEMSG_TEXT_EXPORT std::string MA_ExplainFailure(const CMsgBase& obj);

// The same from failure texts as the library writes them, as a log holds
// them: one or several levels, in any order, one to a line or several on a
// line, among other words. A level that a line gives as "maIrNoteCF[1]: "
// before its text gives the index of its element. Failure texts carry no
// code: the code shows where the text states it ("failed with -5", "gave
// -5", "returned -5", "code -5", "rc=-5") and is called unknown elsewhere.
// A text that holds no failure text, names a class or field that the schema
// lacks, or is longer than kExplainTextMaxSize gives one line that says why
// and starts with "cannot explain: ".
PRICEMSG_TEXT_EXPORT std::string MA_ExplainFailureText(const std::string& failureText);

// The longest text that MA_ExplainFailureText reads.
constexpr size_t kExplainTextMaxSize = size_t{1} << 20;
