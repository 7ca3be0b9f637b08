#!/usr/bin/env bash
# Makes the setup program out of the shippable tree:
#   tools/package.sh BUILD DIST OUT [VERSION]
# BUILD: the Windows build folder, DIST: the tree that it installed, OUT: where
# ZarnUpdateServiceSetup.exe and the bill of materials go. VERSION (1.2.3)
# overrides the version of the build. The same input gives the same bytes.
# ZARN_QUICK_PACKAGE=1 packs less tightly but ten times as fast, for tests.
# ZARN_SIGN, when set, is a command that signs the program named behind it, in
# place: the programs in the package, the uninstaller and setup itself.
set -euo pipefail
# shellcheck source=tools/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[ $# -ge 3 ] || die "usage: tools/package.sh BUILD DIST OUT [VERSION]"
mkdir -p "$3"
from=$(cd "$1" && pwd)
dist=$(cd "$2" && pwd)
out=$(cd "$3" && pwd)
plugin=$from/setup/ZarnSetup.dll
[ -f "$plugin" ] || die "$from has no setup plug-in: build it first"
[ -f "$dist/ZarnUpdateService.exe" ] || die "$dist is no shippable tree: build it first"

version_text=$(sed -nE 's/.*kVersion = "([^"]*)".*/\1/p' "$from/src/util/version.cpp")
revision=${version_text#*-}
# The time to state: that of the revision which was built.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -C "$root" log -1 --pretty=%ct "$revision" -- 2>/dev/null || echo 0)}
export SOURCE_DATE_EPOCH
[ $# -lt 4 ] || version_text=$4-$revision
version=${version_text%%-*}

# What is installed: the tree, the bill of materials, the licences.
work=$out/.work
rm -rf "$work"
mkdir -p "$work/plugins"
cp -r "$dist" "$work/tree"
x86_64-w64-mingw32-strip -o "$work/plugins/ZarnSetup.dll" "$plugin"

sign=()
if [ -n "${ZARN_SIGN:-}" ]; then
  sign=(-DSIGN="$ZARN_SIGN")
  for program in "$work"/tree/*.exe "$work/plugins/ZarnSetup.dll"; do $ZARN_SIGN "$program"; done
fi

python3 "$root/tools/sbom.py" --build "$from" --checkout "$root" --cache "$cache" --tree "$work/tree" \
  --version "$version_text" --epoch "$SOURCE_DATE_EPOCH" --output "$out/ZarnUpdateService.cdx.json" \
  --licences "$work/tree/Licences"
cp "$out/ZarnUpdateService.cdx.json" "$work/tree/"

# The list of files, in an order that does not depend on the file system.
# shellcheck disable=SC2016  # $INSTDIR is the script's.
(cd "$work/tree" && find . -type f -printf '%P\n' | LC_ALL=C sort) | while read -r file; do
  folder=$(dirname "$file")
  printf 'SetOutPath "$INSTDIR\\Setup.new%s"\n' "$([ "$folder" = . ] || printf '\\%s' "${folder//\//\\}")"
  printf 'File "%s"\n' "$work/tree/$file"
done >"$work/files.nsh"

makensis -NOCD -V2 -WX -DVERSION="$version" -DVERSION_TEXT="$version_text" -DOUTPUT="$out/ZarnUpdateServiceSetup.exe" \
  -DPLUGINS="$work/plugins" -DFILES="$work/files.nsh" "${sign[@]}" ${ZARN_QUICK_PACKAGE:+-DQUICK} \
  -DINSTALLED_KIB="$(find "$work/tree" -type f -printf '%s\n' | awk '{ n += $1 } END { print int(n / 1024) + 1 }')" "$root/setup/setup.nsi"
rm -rf "$work"
