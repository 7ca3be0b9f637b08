#!/usr/bin/env bash
# clang-format, clang-tidy (native and Windows sources) and shellcheck, as errors.
set -euo pipefail
# shellcheck source=tools/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"

say "clang-format"
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror

say "shellcheck"
git ls-files -z dev '*.sh' tools/wine .ci/run | xargs -0 shellcheck -x

# clang reads the MinGW headers through the same compile commands, with the
# target named and g++'s own warning flags dropped.
tidy() { # PRESET FILES...
  local preset=$1
  shift
  cmake --preset "$preset" >/dev/null
  local database=$build/$preset-tidy extra=()
  mkdir -p "$database"
  if [ "$preset" = windows ]; then
    local headers=/usr/lib/gcc/x86_64-w64-mingw32/12-posix/include/c++ folder
    extra=(--extra-arg=--target=x86_64-w64-mingw32 --extra-arg=-Qunused-arguments)
    for folder in "$headers" "$headers/x86_64-w64-mingw32" "$headers/backward"; do
      extra+=("--extra-arg=-isystem$folder")
    done
  fi
  sed -E 's/-Wduplicated-cond|-Wlogical-op|-Wuseless-cast|-ffile-prefix-map=[^ ]*|[^" ]*ccache //g' \
    "$build/$preset/compile_commands.json" >"$database/compile_commands.json"
  printf '%s\n' "$@" | xargs -P "$jobs" -n 4 clang-tidy --quiet -p "$database" \
    --extra-arg=-Wno-unknown-warning-option "${extra[@]}"
}

# The C++ files that this preset compiles.
of_preset() {
  python3 - "$build/$1/compile_commands.json" <<'PY'
import json, sys
root = __import__("os").getcwd()
for entry in json.load(open(sys.argv[1])):
    if entry["file"].startswith(root) and entry["file"].endswith(".cpp") and "/build/" not in entry["file"]:
        print(entry["file"])
PY
}

say "clang-tidy, native sources"
cmake --preset tsan >/dev/null
mapfile -t native < <(of_preset tsan)
failed=0  # findings in one half do not hide those in the other
tidy tsan "${native[@]}" || failed=1

say "clang-tidy, Windows sources"
cmake --preset windows >/dev/null
mapfile -t windows < <(of_preset windows | grep -vxFf <(printf '%s\n' "${native[@]}") || true)
[ ${#windows[@]} = 0 ] || tidy windows "${windows[@]}" || failed=1
[ $failed = 0 ] || die "clang-tidy found something (above)"
