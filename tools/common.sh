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

# How far the programs are that write these logs: ninja's own count where there is
# one, otherwise the lines so far.
progress() { # LOGS...
  local log count
  for log in "$@"; do
    [ -f "$log" ] || continue
    count=$(tail -c 4096 "$log" | grep -aoE '^\[[0-9]+/[0-9]+\]' | tail -n 1) || count="$(wc -l <"$log") lines"
    [ $# = 1 ] || printf '%s ' "$(basename "$log" .log)"
    printf '%s  ' "$count"
  done
}

# Shows that a step moves, until it is ended or ./dev is gone: every second on a
# terminal, otherwise a line now and then.
show_progress() { # LABEL LOGS...
  local start=$SECONDS label=$1
  shift
  while sleep 1 && kill -0 $$ 2>/dev/null; do
    if [ -t 1 ]; then
      printf '\r    %-46s %4d s  %s\033[K' "$label" $((SECONDS - start)) "$(progress "$@")"
    elif [ $(((SECONDS - start) % 15)) = 0 ]; then
      printf '    %-46s %4d s so far  %s\n' "$label" $((SECONDS - start)) "$(progress "$@")"
    fi
  done
}

# Runs a step quietly: one line with its duration when it works, the end of its
# output when it does not, meanwhile what its log says about its progress. Who
# starts programs with logs of their own names these in step_logs.
#   step LABEL LOGFILE COMMAND...
step_logs=()
step() {
  local label=$1 log=$2 start=$SECONDS status=0 shower
  shift 2
  mkdir -p "$(dirname "$log")"
  : >"$log"
  [ ! -t 1 ] || printf '    %-46s ' "$label"
  show_progress "$label" "${step_logs[@]:-$log}" &
  shower=$!
  "$@" >"$log" 2>&1 || status=$?
  kill $shower
  wait $shower 2>/dev/null || true
  step_logs=()
  [ ! -t 1 ] || printf '\r\033[K'
  if [ $status = 0 ]; then
    printf '    %-46s %4d s\n' "$label" $((SECONDS - start))
  else
    printf '    %-46s failed\n' "$label"
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
