# Shared by ./dev and the scripts beside this file; sourced, never run.
# shellcheck shell=bash disable=SC2034

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${ZARN_CACHE:-${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/zarn-update-service}
jobs=$(nproc)
build=$root/build

say() { printf '\033[1m==>\033[0m %s\n' "$*"; }
die() {
  printf 'dev: %s\n' "$*" >&2
  exit 1
}

# Runs a step quietly: one line with its duration when it works, the end of its
# output when it does not.
#   step LABEL LOGFILE COMMAND...
step() {
  local label=$1 log=$2 start=$SECONDS
  shift 2
  mkdir -p "$(dirname "$log")"
  printf '    %-46s ' "$label"
  if "$@" >"$log" 2>&1; then
    printf '%4d s\n' $((SECONDS - start))
  else
    local status=$?
    printf 'failed\n'
    tail -n 40 "$log" >&2
    die "$label failed (status $status); the whole output is in $log"
  fi
}

# Ends with a clear sentence when as_root cannot work. Asks for sudo's password,
# if there is one, before the output of steps goes to their logs.
#   require_root_for WHAT
require_root_for() {
  [ "$(id -u)" != 0 ] || return 0
  command -v sudo >/dev/null || die "$1; run this as root or install sudo."
  sudo -n true 2>/dev/null || { [ -t 0 ] && sudo -v; } || die "$1; run this as root: sudo refuses you."
}

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}
