#!/usr/bin/env bash
# clang-format, shellcheck, flake8, the order of folders and clang-tidy (native and Windows
# sources), as errors.
set -euo pipefail
# shellcheck source=tools/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"

say "clang-format"
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror

say "shellcheck"
git ls-files -z dev '*.sh' tools/wine .ci/run | xargs -0 shellcheck -x

say "flake8"
git ls-files -z '*.py' | xargs -0 /usr/bin/python3 -m flake8 --max-line-length=120

say "order of folders, circles"
tools/layers.py

# Each file is looked at on its own, so the builds are configured without batches, in
# folders beside the ones that are compiled.
for preset in tsan windows; do
  step "configure $preset" "$build/logs/configure-lint-$preset.log" \
    cmake --preset "$preset" -B "$build/lint-$preset" -DZARN_BATCHES=OFF
done

# clang reads the MinGW headers through the same compile commands, with the target named.
headers=/usr/lib/gcc/x86_64-w64-mingw32/12-posix/include/c++
windows=(--target=x86_64-w64-mingw32 -Qunused-arguments
  "-isystem$headers" "-isystem$headers/x86_64-w64-mingw32" "-isystem$headers/backward")

failed=0 # findings in one half do not hide those in the other
say "clang-tidy, native sources"
tools/tidy.py --build "$build/lint-tsan" --stamps "$cache/tidy" --jobs "$jobs" || failed=1
say "clang-tidy, Windows sources"
tools/tidy.py --build "$build/lint-windows" --not-in "$build/lint-tsan" --stamps "$cache/tidy" --jobs "$jobs" \
  "${windows[@]/#/--extra-arg=}" || failed=1
[ $failed = 0 ] || die "clang-tidy found something (above)"
