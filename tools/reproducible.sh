#!/usr/bin/env bash
# Builds the last commit twice, from two clones in two folders, the second time
# without the compiler cache, and compares what comes out byte by byte.
set -euo pipefail
# shellcheck source=tools/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

ZARN_MINGW_PREFIX=$(cat "$cache/mingw64-prefix" 2>/dev/null) || die "build once first: ./dev build"
SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --pretty=%ct)
export ZARN_MINGW_PREFIX SOURCE_DATE_EPOCH
unset CCACHE_BASEDIR CCACHE_NOHASHDIR
work=$build/reproducible

# Leaves the tree and the package of a clean build in FOLDER/result.
build_in() { # FOLDER
  local clone=$1/source
  git clone -q --no-local "$root" "$clone"
  cd "$clone"
  cmake --preset windows -DZARN_BUILD_TESTS=OFF
  cmake --build build/windows -j "$jobs"
  cmake --install build/windows --prefix "$1/result/dist" --component dist --strip
  tools/package.sh build/windows "$1/result/dist" "$1/result/package"
}

if [ "${1:-}" = --build-in ]; then
  build_in "$2"
  exit
fi

rm -rf "$work"
first=$work/first
second="$work/a second folder"
mkdir -p "$first" "$second"
step "first build" "$build/logs/reproducible-first.log" "${BASH_SOURCE[0]}" --build-in "$first"
step "second build" "$build/logs/reproducible-second.log" \
  env CCACHE_DISABLE=1 "${BASH_SOURCE[0]}" --build-in "$second"
diff -r "$first/result" "$second/result" || die "the two builds differ; they are in $work"
(cd "$first/result" && sha256sum ./*/*.exe)
say "Both builds gave the same bytes"
