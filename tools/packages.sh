# Debian packages, by what needs them; sourced by ./dev.
# shellcheck shell=bash disable=SC2034,SC2154

packages_build=(
  ca-certificates git cmake ninja-build ccache dpkg-dev
  g++-mingw-w64-x86-64-posix mingw-w64-tools libz-mingw-w64-dev
  libexpected-dev nlohmann-json3-dev googletest perl make xz-utils
)
packages_native=(
  g++ clang libclang-rt-14-dev
  libboost1.81-dev libboost-thread1.81-dev libboost-filesystem1.81-dev libboost-date-time1.81-dev
  libcurl4-openssl-dev libssl-dev libfmt-dev zlib1g-dev libgtest-dev tzdata
)
packages_fuzz=(llvm-14)
packages_package=(wixl msitools python3)
packages_wine=(clang wine64 nginx-light openssl osslsigncode rsyslog strace python3 libxml2-utils)
packages_bench=(libspdlog-dev libgoogle-glog-dev libboost-log1.81-dev libhyperscan-dev strace python3)
packages_lint=(clang-format clang-tidy shellcheck flake8)

missing_packages() {
  comm -23 <(printf '%s\n' "$@" | sort -u) \
    <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null | sed -n 's/^installed //p' | sort -u)
}

# Installs what is missing of the packages named, and says what it does.
install_packages() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} -gt 0 ] || return 0
  require_root_for "${#missing[@]} Debian packages are missing: ${missing[*]}"
  say "Installing ${#missing[@]} Debian packages: ${missing[*]}"
  step "package lists" "$build/logs/apt-update.log" as_root env DEBIAN_FRONTEND=noninteractive apt-get update
  step "packages" "$build/logs/apt-install.log" \
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
}
