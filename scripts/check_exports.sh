#!/usr/bin/env bash
# Checks that each library of an installed pricemsg exports its API and
# nothing else: every defined dynamic symbol (nm -DC --defined-only) of
# libpricemsg is of the message classes, their bases or namespace pricemsg,
# and every one of libpricemsg_text is an MA_ function. Anything else (a
# standard library template, an internal helper) fails the check.
#
#   scripts/check_exports.sh <libdir>
set -euo pipefail

libdir=${1:?usage: check_exports.sh <libdir>}
status=0
check() {  # library, allowed pattern (extended regex on the demangled name)
  local lib=$libdir/$1 symbols bad
  if ! symbols=$(nm -DC --defined-only "$lib"); then
    echo "check_exports: cannot read $lib" >&2
    status=1
    return
  fi
  bad=$(sed -E 's/^[0-9a-f]+ [A-Za-z] //' <<<"$symbols" | grep -vE "$2" || true)
  if [[ -n $bad ]]; then
    echo "check_exports: $1 exports more than its API:" >&2
    echo "$bad" | head -20 | sed 's/^/  /' >&2
    status=1
  else
    echo "check_exports: $1 exports its API alone ($(wc -l <<<"$symbols") symbols)"
  fi
}
classes='^((typeinfo|typeinfo name|vtable) for )?(CMsgBase|CMsgBase_Array|M_[A-Za-z0-9_]+|pricemsg::[A-Za-z0-9_:]+)([:<(\[]|$)'
check libpricemsg.so "$classes"
check libpricemsg_text.so '^MA_[A-Za-z0-9_]+[([]'
exit $status
