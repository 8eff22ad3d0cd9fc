#!/usr/bin/env bash
# build.sh DIR [SANITIZER [TARGET...]]: configures and builds the project (or the targets)
# into DIR.
# SANITIZER is empty, "address" (ASan+UBSan) or "thread". VEXA_CMAKE_FLAGS adds configure options.
set -euo pipefail
top="$(cd "$(dirname "$0")/.." && pwd)"
dir="$1"
sanitize="${2:-}"
shift $(( $# < 2 ? $# : 2 ))
type=RelWithDebInfo
[ -n "$sanitize" ] && type=Debug
cmake -S "$top" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" -DVEXA_SANITIZE="$sanitize" \
  -DVEXA_BUILD_BENCH="$([ -z "$sanitize" ] && echo ON || echo OFF)" ${VEXA_CMAKE_FLAGS:-} >/dev/null
cmake --build "$dir" ${1:+--target "$@"}
