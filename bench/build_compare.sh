#!/usr/bin/env bash
# Builds the message library and protobuf's generated code for the same
# schema from clean, one after the other in one fresh build tree, and prints
# the times and the stripped sizes of the two shared libraries.
#
#   bench/build_compare.sh [build-dir]     (default: a temporary directory)
#
# Both builds are Release, with Ninja, on every core the machine has; each
# starts from its own generator (msggen.py, protoc) so that the figures cover
# the same road from schema to library.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-$(mktemp -d)}
jobs=$(nproc)

cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPRICEMSG_BUILD_BENCH=ON >/dev/null
# What both sides share (the runtime) is built first and not timed.
ninja -C "$dir" -j"$jobs" callkyt >/dev/null

timed() {  # label, target
  local t0 t1
  t0=$(date +%s.%N)
  ninja -C "$dir" -j"$jobs" "$2" >/dev/null
  t1=$(date +%s.%N)
  awk -v a="$t0" -v b="$t1" -v l="$1" 'BEGIN { print l, b - a }'
}
read -r _ ours < <(timed ours pricemsg)
read -r _ theirs < <(timed protobuf pricemsg_pb)

strip -o "$dir/ours.stripped.so" "$dir/libpricemsg.so"
strip -o "$dir/pb.stripped.so" "$dir/bench/libpricemsg_pb.so"
size_ours=$(stat -c %s "$dir/ours.stripped.so")
size_pb=$(stat -c %s "$dir/pb.stripped.so")

printf '%-28s %12s %12s %8s\n' "" ours protobuf ratio
printf '%-28s %12.1f %12.1f %8.2f\n' "clean build, s ($jobs jobs)" "$ours" "$theirs" \
  "$(awk -v a="$ours" -v b="$theirs" 'BEGIN { print a / b }')"
printf '%-28s %12d %12d %8.2f\n' "stripped library, bytes" "$size_ours" "$size_pb" \
  "$(awk -v a="$size_ours" -v b="$size_pb" 'BEGIN { print a / b }')"
