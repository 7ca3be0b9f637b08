#!/usr/bin/env bash
# Cross-builds the libraries that Debian does not ship for MinGW, from Debian's
# own source packages, into a cache folder keyed by this recipe. Leaves the
# folder's path in the cache's file mingw64-prefix.
#   tools/dependencies.sh             build what is missing
#   tools/dependencies.sh --missing   name what is missing
set -euo pipefail
# shellcheck source=tools/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

triplet=x86_64-w64-mingw32
compiler=$triplet-g++-posix
key=$({
  cat "${BASH_SOURCE[0]}" "$root/cmake/toolchain-mingw64.cmake" "$root/cmake/boost/CMakeLists.txt"
  "$compiler" --version
  dpkg-query -W libz-mingw-w64-dev
} | sha256sum | cut -c1-16)
home=$cache/mingw64-$key
prefix=$home/prefix
sources=$cache/sources
logs=$home/logs
libraries=(openssl curl boost fmt libzip)

if [ "${1:-}" = --missing ]; then
  for name in "${libraries[@]}"; do [ -f "$home/$name.done" ] || echo "$name"; done
  exit
fi
mkdir -p "$prefix/include" "$prefix/lib" "$sources" "$logs"

# ---- Debian source packages ------------------------------------------------

# Source entries derived from the machine's own binary entries, in a private
# list, so that the machine's configuration stays as it is.
apt_private() {
  local lists=$cache/apt
  mkdir -p "$lists/lists/partial" "$lists/parts"
  if [ ! -s "$lists/parts/debian.sources" ] && [ ! -s "$lists/parts/debian.list" ]; then
    local file
    for file in /etc/apt/sources.list.d/*.sources; do
      [ -e "$file" ] || continue
      awk 'BEGIN { RS = ""; ORS = "\n\n" }
           /(^|\n)Types:[^\n]*deb/ && /(^|\n)Suites:[^\n]*bookworm/ && /(^|\n)Components:[^\n]*main/ {
             sub(/(^|\n)Types:[^\n]*/, "\nTypes: deb-src"); gsub(/\n#[^\n]*/, ""); sub(/^\n+/, ""); print }' "$file" |
        grep -v '^#' >>"$lists/parts/debian.sources" || true
    done
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
      [ -e "$file" ] || continue
      sed -nE 's/^[[:space:]]*deb[[:space:]]+(.*[[:space:]]bookworm(-updates|-security)?[[:space:]].*\bmain\b.*)$/deb-src \1/p' "$file" |
        grep -Ev ' cloud-sdk| nodistro' >>"$lists/parts/debian.list" || true
    done
    [ -s "$lists/parts/debian.sources" ] || rm -f "$lists/parts/debian.sources"
    [ -s "$lists/parts/debian.list" ] || rm -f "$lists/parts/debian.list"
  fi
  "$1" -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$lists/parts" \
    -o Dir::State::Lists="$lists/lists" -o Dir::Cache::srcpkgcache= -o Dir::Cache::pkgcache= \
    -o APT::Sandbox::User=root -o APT::Get::List-Cleanup=0 "${@:2}"
}

# download NAME SERIES: the newest source version of NAME whose upstream version
# begins with SERIES and that comes down whole, into $sources; sets $version.
# A mirror may lack the newest while it still has the one before.
download() {
  local name=$1 series=$2 versions
  if [ -s "$sources/$name-$series.version" ]; then
    versions=$(cat "$sources/$name-$series.version")
  else
    versions=$(apt_private apt-cache showsrc "$name" 2>/dev/null |
      sed -nE "s/^Version: ((1:)?${series//./\\.}.*)/\1/p" | sort -uVr)
  fi
  for version in $versions; do
    if (cd "$sources" && apt_private apt-get source --download-only "$name=$version"); then
      echo "$version" >"$sources/$name-$series.version"
      return
    fi
  done
  echo "no source version of $name $series could be fetched" >&2
  return 1
}

# fetch NAME SERIES: downloads and unpacks it with Debian's patches in $work/NAME.
fetch() {
  download "$@"
  (cd "$work" && dpkg-source --no-check -x "$sources/${1}_${version#*:}.dsc" "$1")
}

# ---- Recipes -----------------------------------------------------------------

harden="-O2 -fstack-protector-strong -D_FORTIFY_SOURCE=2 -ffunction-sections -fdata-sections"
export SOURCE_DATE_EPOCH=1700000000

cross_cmake() { # SOURCE OPTIONS...
  local source=$1 target=$work/build
  shift
  cmake -G Ninja -S "$source" -B "$target" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64.cmake" \
    -DCMAKE_BUILD_TYPE=None -DCMAKE_C_FLAGS="$harden -ffile-prefix-map=$work=." \
    -DCMAKE_CXX_FLAGS="$harden -ffile-prefix-map=$work=." \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_PREFIX_PATH="$prefix" -DBUILD_SHARED_LIBS=OFF "$@"
  cmake --build "$target" -j "$jobs"
  cmake --install "$target"
}

# No configuration file, engine or provider module is ever looked for, and the
# compiled-in folder lies where only administrators can write. What is left out
# besides is what no TLS 1.2 or 1.3 server asks a client for today: old or national
# ciphers and digests, binary curves, and formats that are not TLS.
recipe_openssl() {
  local no_algorithms=(
    no-aria no-bf no-blake2 no-camellia no-cast no-des no-dsa no-ec2m no-gost no-idea no-md4 no-mdc2 no-rc2 no-rc4
    no-rmd160 no-scrypt no-seed no-siphash no-siv no-sm2 no-sm3 no-sm4 no-whirlpool
    no-cmp no-cms no-ct no-nextprotoneg no-rfc3779 no-srtp no-ts
  )
  fetch openssl 3.0
  cd "$work/openssl"
  CC=gcc-posix CXX=g++-posix ./Configure mingw64 --cross-compile-prefix=$triplet- \
    --prefix="$prefix" --libdir=lib \
    no-shared no-tests no-engine no-dynamic-engine no-module no-autoload-config no-dso no-legacy \
    no-ssl3 no-tls1 no-tls1_1 no-dtls no-comp no-srp no-weak-ssl-ciphers no-ui-console no-capieng \
    "${no_algorithms[@]}" \
    -O2 -fstack-protector-strong -D_FORTIFY_SOURCE=2 -ffunction-sections -fdata-sections
  # Given here, since Configure takes a drive letter for a relative path.
  local home='C:/Windows/System32/ZarnUpdateService/tls'
  local homes=(OPENSSLDIR="$home" ENGINESDIR="$home/engines" MODULESDIR="$home/modules")
  # Only what is linked: "build_libs" would build the libraries of its programs, too.
  make -j "$jobs" build_generated "${homes[@]}"
  make -j "$jobs" libcrypto.a libssl.a "${homes[@]}"
  mkdir -p "$prefix/include/openssl"
  cp include/openssl/*.h "$prefix/include/openssl"
  cp libcrypto.a libssl.a "$prefix/lib"
  # shellcheck disable=SC2312
  if strings "$prefix/lib/libcrypto.a" | grep -q "$cache"; then
    echo 'a path of the build machine is compiled into libcrypto' >&2
    return 1
  fi
}

recipe_fmt() {
  fetch fmtlib 9.1
  cross_cmake "$work/fmtlib" -DFMT_DOC=OFF -DFMT_TEST=OFF
}

# HTTP only: nothing that the service does not speak is linked in.
recipe_curl() {
  fetch curl 7.88
  # A time-out leaves the thread behind that resolves the name, as it should, but then
  # reads what that thread may have freed by now: its handle is taken while it cannot.
  patch -d "$work/curl" -p1 <<'PATCH'
--- a/lib/asyn-thread.c
+++ b/lib/asyn-thread.c
@@ -376,6 +376,7 @@
   if(async->tdata) {
     struct thread_data *td = async->tdata;
     int done;
+    curl_thread_t thread_hnd;
 #ifndef CURL_DISABLE_SOCKETPAIR
     curl_socket_t sock_rd = td->tsd.sock_pair[0];
     struct Curl_easy *data = td->tsd.data;
@@ -388,10 +389,11 @@
     Curl_mutex_acquire(td->tsd.mtx);
     done = td->tsd.done;
     td->tsd.done = 1;
+    thread_hnd = td->thread_hnd;
     Curl_mutex_release(td->tsd.mtx);
 
     if(!done) {
-      Curl_thread_destroy(td->thread_hnd);
+      Curl_thread_destroy(thread_hnd);
     }
     else {
       if(td->thread_hnd != curl_thread_t_null)
PATCH
  cross_cmake "$work/curl" -DHTTP_ONLY=ON -DBUILD_CURL_EXE=OFF -DBUILD_TESTING=OFF -DENABLE_MANUAL=OFF \
    -DCURL_USE_OPENSSL=ON -DOPENSSL_ROOT_DIR="$prefix" -DOPENSSL_USE_STATIC_LIBS=ON \
    -DCURL_DISABLE_ALTSVC=ON -DCURL_DISABLE_HSTS=ON -DCURL_DISABLE_NETRC=ON -DCURL_DISABLE_COOKIES=ON \
    -DCURL_DISABLE_NTLM=ON -DCURL_DISABLE_CRYPTO_AUTH=ON -DCURL_DISABLE_OPENSSL_AUTO_LOAD_CONFIG=ON \
    -DCURL_CA_BUNDLE=none -DCURL_CA_PATH=none -DCURL_USE_LIBSSH2=OFF -DCURL_USE_LIBPSL=OFF \
    -DUSE_LIBIDN2=OFF -DUSE_NGHTTP2=OFF -DCURL_BROTLI=OFF -DCURL_ZSTD=OFF -DUSE_WIN32_LDAP=OFF \
    -DUSE_ZLIB=ON -DZLIB_INCLUDE_DIR=/usr/$triplet/include -DZLIB_LIBRARY=/usr/$triplet/lib/libz.a
}

# The headers of all of Boost, the sources of what is linked. Debian's patches touch
# nothing else in them than Phoenix, which is left out for that.
recipe_boost() {
  download boost1.81 1.81
  tar -xJf "$sources/boost1.81_${version%-*}.orig.tar.xz" -C "$work" --wildcards --exclude='boost/libs/phoenix' \
    --transform='s,^boost/libs/.*/include/boost/,include/boost/,' 'boost/libs/*/include/boost/*' \
    boost/libs/{atomic,chrono,date_time,filesystem,thread}/src
  cross_cmake "$root/cmake/boost" -DBOOST_SOURCE="$work/boost" -DBOOST_INCLUDE="$work/include"
  rm -rf "$prefix/include/boost"
  mv "$work/include/boost" "$prefix/include/boost"
}

# Plain zip archives: no encryption, no other compression.
recipe_libzip() {
  fetch libzip 1.7
  cross_cmake "$work/libzip" -DENABLE_COMMONCRYPTO=OFF -DENABLE_GNUTLS=OFF -DENABLE_MBEDTLS=OFF \
    -DENABLE_OPENSSL=OFF -DENABLE_WINDOWS_CRYPTO=OFF -DENABLE_BZIP2=OFF -DENABLE_LZMA=OFF \
    -DBUILD_TOOLS=OFF -DBUILD_REGRESS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_DOC=OFF \
    -DZLIB_INCLUDE_DIR=/usr/$triplet/include -DZLIB_LIBRARY=/usr/$triplet/lib/libz.a
}

# ---- Building them -----------------------------------------------------------

# A recipe stops at its first failing command: it is run by a bash of its own, since
# bash ignores errexit inside a condition.
if [ "${1:-}" = --recipe ]; then
  work=$home/work/$2
  rm -rf "$work"
  mkdir -p "$work"
  "recipe_$2"
  rm -rf "$work"
  touch "$home/$2.done"
  exit
fi

# build_in_turn NAMES...: what is missing of them; says which one failed.
build_in_turn() {
  local name
  for name in "$@"; do
    [ ! -f "$home/$name.done" ] || continue
    if ! bash -euo pipefail "${BASH_SOURCE[0]}" --recipe "$name" >"$logs/$name.log" 2>&1; then
      tail -n 30 "$logs/$name.log"
      echo "the library $name cannot be built; the whole output is in $logs/$name.log"
      return 1
    fi
    echo "$name is built"
  done
}

# curl needs OpenSSL, so these two take longest and go first. While curl finds out about
# the compiler, on one processor, the other libraries keep the others busy.
if [ "${1:-}" = --all ]; then
  build_in_turn openssl curl &
  renice -n 15 $BASHPID >/dev/null
  build_in_turn boost fmt libzip && others=0 || others=1
  wait $! || others=1
  exit "$others"
fi

if [ "${1:-}" = --lists ]; then
  apt_private apt-get update
  exit
fi

# One run at a time: two checkouts may share the cache.
exec 9>"$home/lock"
flock 9
mapfile -t missing < <("${BASH_SOURCE[0]}" --missing)
if [ ${#missing[@]} -gt 0 ]; then
  say "Building the libraries for Windows, once, into $home"
  [ "$(find "$sources" -name '*.version' | wc -l)" = ${#libraries[@]} ] ||
    step "lists of source packages" "$logs/lists.log" "${BASH_SOURCE[0]}" --lists
  step_logs=("${missing[@]/#/$logs/}")
  step_logs=("${step_logs[@]/%/.log}")
  rm -f "${step_logs[@]}"
  step "${missing[*]}" "$logs/all.log" "${BASH_SOURCE[0]}" --all
fi
echo "$prefix" >"$cache/mingw64-prefix"
