#!/usr/bin/env bash
# Lists what a built libpricemsg needs from its runtime and fails on anything
# outside the runtime's documented calls. Symbols of the C and C++ standard
# libraries carry a version (memcpy@GLIBC_2.14) and are not the runtime's;
# every other undefined symbol must be one of those below.
#
#   scripts/check_imports.sh <path to libpricemsg.so>
set -euo pipefail

lib=${1:?usage: check_imports.sh <libpricemsg.so>}
[[ -f $lib ]] || { echo "check_imports: no file $lib" >&2; exit 2; }

# The runtime's documented calls, as demangled names. A message is made with
# `new` and freed with `delete` (when a later field of ToMsg fails), so the
# class's own allocation functions and destructor count with it.
value='(CInt|CDbl|CBool|CDate|CString|CIntArray|CDblArray)'
allowed=(
  'MA_GetMsgDic\(\)'
  'CMsg::CMsg\(int, int, int, CMsgDic\*\)'
  'CMsg::~CMsg\(\)'
  'CMsg::operator new\(unsigned long\)'
  'CMsg::operator delete\(void\*(, unsigned long)?\)'
  "CMsg::GetValue\(int, ($value\*|CMsg\*\*|CMsgArray\*)\)( const)?"
  'CMsg::SetValue\(int, (CInt|CDbl|CBool|CDate|char const\*|int|double|CMsg\*)\)'
  'CMsgArray::CMsgArray\(bool\)'
  'CMsgArray::~CMsgArray\(\)'
  'CMsgArray::GetSize\(\) const'
  'CMsgArray::GetAt\(int\) const'
  'CStream::AppendData\(char const\*, int\)'
  'CString::CString\(\)'
  'CString::CString\(char const\*\)'
  'CString::CString\(CString const&\)'
  'CString::~CString\(\)'
  'CString::operator=\((char const\*|CString const&)\)'
  'CString::Format\(char const\*, \.\.\.\)'
  'CString::(ToStr|GetSize|IsEmpty|Repr)\(\) const'
  'CFormat::CFormat\(char const\*, \.\.\.\)'
  'CFormat\(char const\*, \.\.\.\)'
  'CException::CException\(char const\*, int\)'
  'CDate::CDate\(\)'
  'CDate::CDate\(CDate const&\)'
  'CDate::~CDate\(\)'
  'CDate::Set\(char const\*\)'
  '(CIntArray|CDblArray)::(CIntArray|CDblArray)\(\)'
  '(CIntArray|CDblArray)::~(CIntArray|CDblArray)\(\)'
  '(CIntArray|CDblArray)::operator=\((CIntArray|CDblArray) const&\)'
  '(CIntArray|CDblArray)::GetAt\(int\) const'
  '(CIntArray|CDblArray)::Repr\(char const\*, bool\) const'
  'typeinfo (for|name for) CException'
)
pattern="^($(IFS='|'; echo "${allowed[*]}"))\$"

imports=$(nm -D --undefined-only "$lib" | awk '$1 == "U" && $2 !~ /@/ { print $2 }' | c++filt)
echo "libpricemsg imports from its runtime:"
sed 's/^/  /' <<<"$imports"
outside=$(grep -Ev "$pattern" <<<"$imports" || true)
if [[ -n $outside ]]; then
  echo "check_imports: $lib needs more of its runtime than its documented calls:" >&2
  sed 's/^/  /' <<<"$outside" >&2
  exit 1
fi
echo "check_imports: every import is a documented call of the runtime"
