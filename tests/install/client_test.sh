#!/usr/bin/env bash
# Installs the build tree, builds an application against the installed package and runs it.
# Usage: client_test.sh SOURCE_DIR BUILD_DIR EXAMPLE EXPECTED_OUTPUT_LINE [PROGRAM_ARGUMENT...]
# In program arguments, {prefix} stands for the installed tree (as a Windows path).
set -euo pipefail
src="$1"; build="$2"; example="$3"; expected="$4"; shift 4
work="$build/install-test/$example"
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$src/examples/$example" -B "$work/build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$src/cmake/mingw-w64-x86_64.cmake" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
exe="$(ls "$work/build"/*.exe | head -n 1)"
prefix="Z:${work//\//\\}\\prefix"
arguments=()
for a in "$@"; do arguments+=("${a//\{prefix\}/$prefix}"); done
output="$("$build/wine-run" "$exe" "${arguments[@]}" | tr -d '\r')"
echo "$output"
if ! grep -qxF -- "$expected" <<<"$output"; then
  echo "expected the line: $expected"
  exit 1
fi
