#!/usr/bin/env bash
# Builds and runs every C++ block of README.md against an installed package,
# so that the examples there stay true. Each block becomes the body of a main
# function; its #include lines go before it, with the standard headers and
# the message classes the blocks use. Where the package holds the Python
# module, every Python block runs on it too, with the interpreter that the
# module was built for.
#
#   scripts/readme_examples.sh <install prefix>
set -euo pipefail
cd "$(dirname "$0")/.."

prefix=${1:?usage: readme_examples.sh <install prefix>}
libdir=$(dirname "$(find "$prefix" -name libpricemsg.so | head -1)")
flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs pricemsg-text)
rpaths=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --libs-only-L pricemsg-text |
  sed 's/-L/-Wl,-rpath,/g')
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Splits the blocks into block-<n>.txt.
awk -v dir="$work" '
  /^```cpp$/ { n++; inside = 1; next }
  /^```$/ { inside = 0; next }
  inside { print > (dir "/block-" n ".txt") }
' README.md

count=0
for block in "$work"/block-*.txt; do
  [[ -e $block ]] || break
  count=$((count + 1))
  program=${block%.txt}.cpp
  {
    echo '#include <cstdio>'
    echo '#include <cstring>'
    echo '#include <memory>'
    echo '#include <string>'
    echo '#include <pricemsg/MsgText.h>'
    echo '#include <pricemsg/rates/M_IrNoteHwOut.h>'
    grep '^#include' "$block" || true
    echo 'int main() {'
    grep -v '^#include' "$block"
    echo '}'
  } >"$program"
  # shellcheck disable=SC2086  # the flags are words
  if ! g++ -std=c++17 -Wall -Wextra -Werror "$program" $flags $rpaths -o "${block%.txt}"; then
    echo "README.md, C++ block $count does not build:" >&2
    cat -n "$program" >&2
    exit 1
  fi
  (cd "$work" && "${block%.txt}" >/dev/null) || {
    echo "README.md, C++ block $count failed when run" >&2
    exit 1
  }
done
echo "README.md: $count C++ blocks built and run"

package=$(find "$prefix" -path '*/dist-packages/pricemsg/__init__.py' | head -1)
[[ -n $package ]] || exit 0
site=$(dirname "$(dirname "$package")")
python=/usr/bin/python3
[[ -x $python ]] || python=python3
awk -v dir="$work" '
  /^```python$/ { n++; inside = 1; next }
  /^```$/ { inside = 0; next }
  inside { print > (dir "/python-" n ".py") }
' README.md
count=0
for block in "$work"/python-*.py; do
  [[ -e $block ]] || break
  count=$((count + 1))
  (cd "$work" && LD_LIBRARY_PATH='' PYTHONPATH="$site" "$python" "$block" >/dev/null) || {
    echo "README.md, Python block $count failed on the module installed in $site" >&2
    exit 1
  }
done
echo "README.md: $count Python blocks run on the installed module"
