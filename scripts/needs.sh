#!/usr/bin/env bash
# Sees that the Debian packages of one or more purposes of
# scripts/packages.txt (build, test, bench) are installed, and installs the
# ones that are not from Debian's registry: as root, or through sudo.
#
#   scripts/needs.sh build            # what the build needs
#   scripts/needs.sh build test       # and what the tests need
#
# With PRICEMSG_NO_INSTALL=1 in the environment, or where neither root nor
# sudo is at hand, it installs nothing: it prints the apt-get line of the
# missing packages and exits with status 1. Where everything is installed it
# prints nothing and exits at once.
set -euo pipefail
cd "$(dirname "$0")/.."

(($#)) || { echo "usage: scripts/needs.sh build|test|bench ..." >&2; exit 2; }
wanted=()
while read -r package purpose _; do
  [[ -z $package || $package == \#* ]] && continue
  for p in "$@"; do
    [[ $purpose == "$p" ]] && wanted+=("$package")
  done
done <scripts/packages.txt

# One question to dpkg for all of them: the installed ones, a line each.
present=" $({ dpkg-query -W -f='${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null ||
  true; } | sed -n 's/^installed //p' | tr '\n' ' ')"
missing=()
for package in "${wanted[@]}"; do
  [[ $present == *" $package "* ]] || missing+=("$package")
done
((${#missing[@]})) || exit 0

sudo=""
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null && sudo -n true 2>/dev/null && sudo="sudo"
fi
if [[ ${PRICEMSG_NO_INSTALL:-} == 1 ]] || { [[ $(id -u) -ne 0 ]] && [[ -z $sudo ]]; }; then
  echo "pricemsg needs these Debian packages ($*):" >&2
  echo "  apt-get install ${missing[*]}" >&2
  exit 1
fi
echo "installing from Debian's registry: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# Quiet where it goes well; everything apt said where it does not.
if ! log=$($sudo apt-get update -qq 2>&1 && $sudo apt-get install -y -qq "${missing[@]}" 2>&1); then
  echo "$log" >&2
  exit 1
fi
