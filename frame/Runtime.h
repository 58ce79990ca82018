// The runtime the message classes are built on: the one place where the
// library names the runtime's headers.
//
// The classes use the runtime only through its contract: CMsg (constructed
// with a number, 0, 0 and the dictionary of MA_GetMsgDic; GetValue, SetValue,
// msgnum), CMsgArray (constructed with true; GetSize, GetAt), CStream
// (AppendData), the value types CInt, CDbl, CBool and CDate with their two
// fields, CString (construction and assignment from a text, Format, ToStr,
// GetSize, IsEmpty, Repr), CIntArray and CDblArray (size, GetAt, Repr,
// assignment), CFormat and CException. A runtime whose headers are named
// otherwise is adapted by a directory of headers under these names.
#pragma once

#include "callkyt/CArray.h"
#include "callkyt/CException.h"
#include "callkyt/CMsg.h"
#include "callkyt/CStream.h"
#include "callkyt/CString.h"
#include "callkyt/CValue.h"
