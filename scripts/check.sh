#!/usr/bin/env bash
# Builds and runs the project's checks. With no argument it runs them all,
# in this order; name one or more to run only those.
#
#   plain     GCC build, every test, the Python module's included
#             (in CI the module must build: PRICEMSG_BUILD_PYTHON=ON) (build/)
#   pages     the reference pages, links followed in headless
#             chromium: each lands below the sticky header, also
#             when the filter hides its target (skipped without
#             chromium, except where CI=true)                    (build/)
#   package   the plain build installed into a scratch prefix; what
#             libpricemsg imports from its runtime checked against the
#             runtime's documented calls; a client outside the tree built
#             against it with find_package and with pkg-config, and run;
#             every C++ block of README.md built against it and run,
#             and its Python blocks run on the installed module
#   altruntime  a second runtime (tests/altruntime) installed into a
#             scratch prefix; the library built on it through
#             PRICEMSG_RUNTIME_ROOT, its tests, its package and its
#             client; message files written on each runtime read on the
#             other                                           (build-alt/)
#   asan      clang build with AddressSanitizer, UndefinedBehavior-
#             Sanitizer and LeakSanitizer, every test            (build-asan/)
#   fuzz      every fuzzer on its seed corpus, FUZZ_SECONDS (default
#             60) shared among them, in the asan build
#   tsan      clang build with ThreadSanitizer, every test (the cases
#             that make allocations fail skip themselves)        (build-tsan/)
#   memcheck  every C++ test program of the plain build under valgrind
#             memcheck                                            (build/)
#
# Any failure, sanitizer report, fuzzer crash or memcheck error stops the
# script with a non-zero status. First it installs what the build and the
# tests need from Debian's registry (scripts/needs.sh; PRICEMSG_NO_INSTALL=1
# prints it instead).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/needs.sh build test

FUZZ_SECONDS=${FUZZ_SECONDS:-60}
stages=("$@")
((${#stages[@]})) || stages=(plain pages package altruntime asan fuzz tsan memcheck)

say() { printf '\n==== %s\n' "$*"; }

configure() {  # dir, then cmake options
  # Run every time, so that a build directory takes options that changed.
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
}

# The plain build, its tests run as they are (memcheck runs the same build's
# tests under valgrind, and this sets them back).
configure_plain() {
  configure build -DPRICEMSG_TEST_WRAPPER= "$@"
}

# CI insists on the Python module; elsewhere it is built where pybind11 and
# the Python headers are found.
python_option() {
  [[ ${CI:-} == true ]] && echo -DPRICEMSG_BUILD_PYTHON=ON || true
}

plain() {
  say "plain build and tests"
  configure_plain $(python_option)
  cmake --build build
  ctest --test-dir build --output-on-failure
}

pages() {
  say "reference pages in a headless browser"
  configure_plain
  cmake --build build --target pricemsg_reference
  # Debian's python3, which has python3-selenium, whatever python3 is first on PATH.
  local rc=0 python=/usr/bin/python3
  [[ -x $python ]] || python=python3
  "$python" tests/reference/browser_check.py build/reference || rc=$?
  if ((rc == 77)); then
    if [[ ${CI:-} == true ]]; then
      echo "the reference pages must be checked in CI: install chromium, chromium-driver and python3-selenium" >&2
      return 1
    fi
    echo "pages: skipped, no chromium, chromedriver or selenium here"
    return 0
  fi
  return "$rc"
}

# Installs the build in $1 into the prefix $2 and builds and runs a client
# outside the tree against it, with find_package and with pkg-config.
client_of_package() {
  local build=$1 prefix=$2 work libdir
  work=$(mktemp -d)
  echo "installing into $prefix"
  cmake --install "$build" --prefix "$prefix" >/dev/null
  libdir=$(dirname "$(find "$prefix" -name libpricemsg.so)")
  if [[ -n $(find "$prefix" -name '*.cpp' -o -name '*.a' -o -name MsgPattern.h -o -name 'Testing*' \
             -o -name 'RuntimeFaults*' -o -name 'RuntimeProbe*') ]]; then
    echo "sources, static libraries, internal or testing headers were installed" >&2
    return 1
  fi
  scripts/check_imports.sh "$libdir/libpricemsg.so"
  scripts/check_exports.sh "$libdir"
  echo "-- the installed tool and reference pages"
  LD_LIBRARY_PATH='' "$prefix/bin/pricemsg-catalogue" --version
  LD_LIBRARY_PATH='' "$prefix/bin/pricemsg-catalogue" find swaption >/dev/null
  [[ -s $(find "$prefix/share/doc" -path '*/reference/index.html' | head -1) ]] || {
    echo "the reference pages were not installed" >&2
    return 1
  }

  echo "-- find_package"
  cmake -S tests/package -B "$work/cmake-client" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" |
    grep 'pricemsg '
  grep -q "^pricemsg_DIR:PATH=$prefix/" "$work/cmake-client/CMakeCache.txt" || {
    echo "the client found a pricemsg outside $prefix" >&2
    return 1
  }
  cmake --build "$work/cmake-client"
  "$work/cmake-client/package_client"

  echo "-- pkg-config"
  local flags
  flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs pricemsg-text)
  echo "pkg-config --cflags --libs pricemsg-text: $flags"
  # The headers reach each other from the include root alone.
  [[ $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags-only-I pricemsg-text) != *include/pricemsg* ]] || {
    echo "pkg-config gives more than the include root" >&2
    return 1
  }
  # The client finds every library it links where pkg-config found it.
  local rpaths
  rpaths=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --libs-only-L pricemsg-text |
    sed 's/-L/-Wl,-rpath,/g')
  # shellcheck disable=SC2086  # the flags are words
  g++ -std=c++17 -Wall -Wextra -Werror -I"$work/cmake-client/decoy" tests/package/main.cpp $flags \
    $rpaths \
    -o "$work/pc-client"
  "$work/pc-client"
  rm -rf "$work"
}

# The Debian packages of the build (cmake/Packaging.cmake), installed with
# dpkg, a client built against them with find_package and with pkg-config
# and run, and the packages removed again.
debian_packages() {
  local build=$1 sudo="" work
  if [[ $(id -u) -ne 0 ]]; then
    if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
      sudo=sudo
    elif [[ ${CI:-} == true ]]; then
      echo "the Debian packages must be tried in CI: run as root or with sudo" >&2
      return 1
    else
      echo "-- Debian packages: skipped, neither root nor sudo here"
      return 0
    fi
  fi
  echo "-- Debian packages"
  work=$(mktemp -d)
  local root
  root=$(pwd)
  (cd "$work" && cpack -G DEB --config "$root/$build/CPackConfig.cmake" >/dev/null)
  local debs=("$work"/*.deb) names=()
  for deb in "${debs[@]}"; do names+=("$(dpkg-deb -f "$deb" Package)"); done
  echo "built: ${names[*]}"
  $sudo dpkg -i "${debs[@]}" >/dev/null
  local rc=0
  {
    [[ -x /usr/bin/pricemsg-catalogue ]] && /usr/bin/pricemsg-catalogue find swaption >/dev/null &&
      cmake -S tests/package -B "$work/client" -G Ninja >/dev/null &&
      grep -q '^pricemsg_DIR:PATH=/usr/' "$work/client/CMakeCache.txt" &&
      cmake --build "$work/client" >/dev/null && "$work/client/package_client" &&
      g++ -std=c++17 -Wall -Wextra -Werror tests/package/main.cpp \
        $(pkg-config --cflags --libs pricemsg-text) -o "$work/pc-client" &&
      "$work/pc-client" &&
      { [[ " ${names[*]} " != *" python3-pricemsg "* ]] ||
        (cd "$work" && /usr/bin/python3 -c 'import pricemsg; print("python3-pricemsg:", pricemsg.M_FxBarr())'); }
  } || rc=1
  $sudo dpkg -r "${names[@]}" >/dev/null
  rm -rf "$work"
  if ((rc)); then
    echo "a client of the installed Debian packages failed" >&2
    return 1
  fi
}

package() {
  say "installed package: a client with find_package and with pkg-config"
  configure_plain
  cmake --build build
  local prefix libdir
  prefix=$(mktemp -d)/prefix
  client_of_package build "$prefix"
  scripts/readme_examples.sh "$prefix"
  debian_packages build
  # The installed libraries find each other through their own runpath.
  libdir=$(dirname "$(find "$prefix" -name libpricemsg.so)")
  local pricemsg_deps callkyt_deps
  pricemsg_deps=$(LD_LIBRARY_PATH='' ldd "$libdir/libpricemsg.so")
  callkyt_deps=$(LD_LIBRARY_PATH='' ldd "$libdir/libcallkyt.so")
  if [[ $pricemsg_deps != *"libcallkyt.so => $libdir/"* ||
        $callkyt_deps != *"libcallkyt_dat.so => $libdir/"* ]]; then
    printf '%s\n' "the installed libraries do not find each other in $libdir:" \
      "$pricemsg_deps" "$callkyt_deps" >&2
    return 1
  fi
  rm -rf "$(dirname "$prefix")"
}

altruntime() {
  say "a second runtime: the library built on it, tested, installed; message files between runtimes"
  local root=build-alt runtime_prefix
  runtime_prefix=$(pwd)/$root/runtime-prefix
  [[ -f $root/runtime/build.ninja ]] || cmake -S tests/altruntime -B $root/runtime -G Ninja >/dev/null
  cmake --build $root/runtime
  ctest --test-dir $root/runtime --output-on-failure
  cmake --install $root/runtime --prefix "$runtime_prefix" >/dev/null
  configure $root/lib -DPRICEMSG_RUNTIME_ROOT="$runtime_prefix" \
    -DPRICEMSG_RUNTIME_PROBE="$(pwd)/tests/altruntime/Probe.cpp"
  cmake --build $root/lib
  ctest --test-dir $root/lib --output-on-failure
  $root/lib/examples/note_client >/dev/null
  local prefix
  prefix=$(mktemp -d)/prefix
  client_of_package $root/lib "$prefix"
  # Not `ldd | grep -q`: grep leaving early may cut ldd short, and pipefail
  # then takes the pipe for a failure.
  local deps
  deps=$(LD_LIBRARY_PATH='' ldd "$prefix/lib/libpricemsg.so")
  if [[ $deps != *"libcallkyt.so => $runtime_prefix/"* ]]; then
    echo "the installed library does not find the runtime it was built on in $runtime_prefix" >&2
    return 1
  fi
  rm -rf "$(dirname "$prefix")"

  echo "-- message files written on each runtime, read on the other"
  configure_plain
  cmake --build build --target msgfile_exchange
  local files
  files=$(mktemp -d)
  mkdir "$files/standin" "$files/alt"
  build/tests/msgfile_exchange write "$files/standin"
  $root/lib/tests/msgfile_exchange write "$files/alt"
  build/tests/msgfile_exchange check "$files/alt"
  $root/lib/tests/msgfile_exchange check "$files/standin"
  rm -rf "$files"
}

sanitized() {  # kind, dir
  # -O1 with line tables only: reports keep file and line, and the 1,159
  # message units build in little more than half the time of -O2 -g.
  CC=clang CXX=clang++ configure "$2" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
    -DPRICEMSG_SANITIZE="$1" -DPRICEMSG_FUZZ=$([[ $1 == address ]] && echo ON || echo OFF)
  cmake --build "$2"
}

# The sanitized builds leave the Python module out (PRICEMSG_BUILD_PYTHON
# defaults to OFF there): the interpreter would need the sanitizer's runtime
# preloaded, which is fragile, and would report its own allocations.
asan() {
  say "AddressSanitizer, UndefinedBehaviorSanitizer, LeakSanitizer"
  sanitized address build-asan
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir build-asan --output-on-failure
}

fuzz() {
  say "fuzzing for ${FUZZ_SECONDS}s, shared among the fuzzers"
  sanitized address build-asan
  # Each fuzzer of tests/fuzz and its committed seeds.
  local fuzzers=(fuzz_load:corpus fuzz_msgtext:corpus-msgtext fuzz_msgfile:corpus-msgfile
                 fuzz_msgjson:corpus-msgjson fuzz_catalogue:corpus-catalogue)
  local root work entry fuzzer seconds rc=0
  root=$(pwd)
  seconds=$(((FUZZ_SECONDS + ${#fuzzers[@]} - 1) / ${#fuzzers[@]}))
  for entry in "${fuzzers[@]}"; do
    fuzzer=${entry%%:*}
    echo "-- $fuzzer for ${seconds}s"
    work=$(mktemp -d)
    # The committed corpus stays as it is; what the run adds goes to $work.
    mkdir "$work/corpus"
    (cd "$work" && "$root/build-asan/tests/$fuzzer" -max_total_time="$seconds" \
      -max_len=8192 -timeout=10 -print_final_stats=1 corpus "$root/tests/fuzz/${entry#*:}" \
      >fuzz.log 2>&1) || rc=$?
    grep -E 'INITED|DONE|stat::number_of_executed_units|stat::average_exec' "$work/fuzz.log" || true
    if ((rc)); then
      tail -60 "$work/fuzz.log"
      echo "$fuzzer failed (status $rc); its input and log are in $work"
      return 1
    fi
    rm -rf "$work"
  done
}

tsan() {
  say "ThreadSanitizer"
  sanitized thread build-tsan
  TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build-tsan --output-on-failure
}

memcheck() {
  say "valgrind memcheck"
  # Every C++ test program that CTest knows runs under valgrind (the tests of
  # the Python tools and of the Python module, its embedding program among
  # them, run as they are: valgrind would check the interpreter). valgrind puts its own operator new in
  # place of the tests' failing one, so the cases that make allocations fail
  # skip themselves; they run under LeakSanitizer in the asan stage.
  # The plain build serves: only the way its tests run changes, not a unit.
  configure build -DPRICEMSG_TEST_WRAPPER="valgrind;--quiet;--error-exitcode=1;--leak-check=full;--errors-for-leak-kinds=definite,indirect;--show-leak-kinds=definite,indirect"
  cmake --build build
  local rc=0
  KYT_MSG_POOL=0 ctest --test-dir build --output-on-failure -j2 || rc=$?
  configure_plain
  ((rc == 0)) || return "$rc"
  echo "-- note_client"
  KYT_MSG_POOL=0 valgrind --quiet --error-exitcode=1 --leak-check=full \
    --errors-for-leak-kinds=definite,indirect build/examples/note_client >/dev/null
  echo "memcheck: no errors, no leaks"
}

for stage in "${stages[@]}"; do
  case $stage in
    plain | pages | package | altruntime | asan | fuzz | tsan | memcheck) "$stage" ;;
    *) echo "unknown stage '$stage' (plain, pages, package, altruntime, asan, fuzz, tsan, memcheck)" >&2; exit 2 ;;
  esac
done
