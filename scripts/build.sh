#!/usr/bin/env bash
# The README's build command: installs what the build needs from Debian's
# registry (scripts/needs.sh; PRICEMSG_NO_INSTALL=1 prints it instead),
# configures and builds build/, and runs the example client. Options after
# the command go to CMake's configuration, as -DPRICEMSG_BUILD_TESTS=OFF.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/needs.sh build
cmake -S . -B build -G Ninja "$@" >/dev/null
cmake --build build -- --quiet
build/examples/note_client
