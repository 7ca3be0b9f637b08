#!/usr/bin/env bash
# Makes the Windows Installer package out of the shippable tree:
#   tools/package.sh BUILD DIST OUT
# BUILD: the Windows build folder, DIST: the tree that it installed, OUT: where
# ZarnUpdateService-VERSION.msi, the bill of materials and the policy templates go.
# The same input gives the same bytes. ZARN_SIGN, when set, is a command that signs
# the file named behind it, in place: the programs in the package and the package.
set -euo pipefail
# shellcheck source=tools/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[ $# = 3 ] || die "usage: tools/package.sh BUILD DIST OUT"
mkdir -p "$3"
from=$(cd "$1" && pwd)
dist=$(cd "$2" && pwd)
out=$(cd "$3" && pwd)
[ -f "$dist/ZarnUpdateService.exe" ] || die "$dist is no shippable tree: build it first"

version_text=$(sed -nE 's/.*kVersion = "([^"]*)".*/\1/p' "$from/src/util/version.cpp")
revision=${version_text#*-}
# The time to state: that of the revision which was built.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -C "$root" log -1 --pretty=%ct "$revision" -- 2>/dev/null || echo 0)}
export SOURCE_DATE_EPOCH

# What is installed: the tree, the bill of materials, the licences.
work=$out/.work
rm -rf "$work" "$out"/*.msi "$out/Policy"
mkdir -p "$work"
cp -r "$dist" "$work/tree"
if [ -n "${ZARN_SIGN:-}" ]; then
  for program in "$work"/tree/*.exe "$work"/tree/*.dll; do $ZARN_SIGN "$program"; done
fi

python3 "$root/tools/sbom.py" --build "$from" --cache "$cache" --tree "$work/tree" \
  --version "$version_text" --epoch "$SOURCE_DATE_EPOCH" --output "$out/ZarnUpdateService.cdx.json" \
  --licences "$work/tree/Licences"
cp "$out/ZarnUpdateService.cdx.json" "$work/tree/"
# For the administrators' central store of policy templates.
[ ! -d "$work/tree/Policy" ] || cp -r "$work/tree/Policy" "$out/"

package=$(python3 "$root/tools/msi.py" --tree "$work/tree" --version-text "$version_text" \
  --epoch "$SOURCE_DATE_EPOCH" --work "$work/msi" --output "$out")
[ -z "${ZARN_SIGN:-}" ] || $ZARN_SIGN "$package"
rm -rf "$work"
