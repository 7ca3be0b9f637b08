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

# The command prefix that makes a command run as root, or a clear refusal.
as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    sudo "$@"
  elif command -v sudo >/dev/null && [ -t 0 ]; then
    sudo "$@"
  else
    die "Debian packages are missing (${missing[*]:-}); run this as root or install sudo."
  fi
}
