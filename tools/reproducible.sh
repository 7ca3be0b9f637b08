#!/usr/bin/env bash
# Builds the last commit once more, from a clone in another folder and without the
# compiler cache, and compares what comes out with build/dist and build/package
# byte by byte. The checkout must have been built and packaged as committed.
set -euo pipefail
# shellcheck source=tools/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# Leaves the tree and the package of a clean build in FOLDER/result.
build_in() { # FOLDER
  local clone=$1/source
  git clone -q --no-local "$root" "$clone"
  cd "$clone"
  # shellcheck disable=SC2086  # several options, or none
  cmake --preset windows -DZARN_BUILD_TESTS=OFF ${ZARN_WINDOWS_OPTIONS:-}
  cmake --build build/windows -j "$jobs" --target src/all client/all
  cmake --install build/windows --prefix "$1/result/dist" --component dist --strip
  tools/package.sh build/windows "$1/result/dist" "$1/result/package"
}

if [ "${1:-}" = --build-in ]; then
  build_in "$2"
  exit
fi

again="$build/reproducible/a second folder"
rm -rf "$build/reproducible"
mkdir -p "$again"
step "clean build in another folder" "$build/logs/reproducible.log" \
  env -u CCACHE_BASEDIR -u CCACHE_NOHASHDIR CCACHE_DISABLE=1 "${BASH_SOURCE[0]}" --build-in "$again"
for part in dist package; do
  diff -r "$build/$part" "$again/result/$part" || die "the two builds differ; the second is in $again"
done
(cd "$build" && sha256sum dist/*.exe dist/*.dll package/*.msi | sed 's/^/    /')
rm -rf "$build/reproducible"
