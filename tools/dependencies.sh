#!/usr/bin/env bash
# Cross-builds the libraries that Debian does not ship for MinGW, from Debian's
# own source packages, into a cache folder keyed by this recipe. Prints the
# prefix on the last line of its output.
set -euo pipefail
# shellcheck source=tools/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

triplet=x86_64-w64-mingw32
compiler=$triplet-g++-posix
key=$({
  cat "${BASH_SOURCE[0]}" "$root/cmake/toolchain-mingw64.cmake"
  "$compiler" --version
  dpkg-query -W googletest libz-mingw-w64-dev
} | sha256sum | cut -c1-16)
home=$cache/mingw64-$key
prefix=$home/prefix
sources=$cache/sources
work=$home/work
logs=$home/logs
mkdir -p "$prefix" "$sources" "$work" "$logs"

# One run at a time: two checkouts may share the cache.
if [ "${1:-}" != --recipe ]; then
  exec 9>"$home/lock"
  flock 9
fi

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

# fetch NAME SERIES: the newest source version of NAME whose upstream version
# begins with SERIES and that comes down whole; unpacked with Debian's patches
# in $work/NAME. A mirror may lack the newest while it still has the one before.
fetch() {
  local name=$1 series=$2 version versions
  [ ! -f "$sources/$name-$series.version" ] || versions=$(cat "$sources/$name-$series.version")
  if [ -z "${versions:-}" ]; then
    apt_private apt-get update >"$logs/apt-src.log" 2>&1 || { cat "$logs/apt-src.log" >&2; return 1; }
    versions=$(apt_private apt-cache showsrc "$name" 2>/dev/null |
      sed -nE "s/^Version: ((1:)?${series//./\\.}.*)/\1/p" | sort -uVr)
  fi
  for version in $versions; do
    if (cd "$sources" && apt_private apt-get source --download-only "$name=$version") >>"$logs/apt-src.log" 2>&1; then
      echo "$version" >"$sources/$name-$series.version"
      rm -rf "${work:?}/$name"
      (cd "$work" && dpkg-source --no-check -x "$sources/${name}_${version#*:}.dsc" "$name") >>"$logs/apt-src.log" 2>&1
      return
    fi
  done
  echo "no source version of $name $series could be fetched; see $logs/apt-src.log" >&2
  return 1
}

# ---- Recipes -----------------------------------------------------------------

harden="-O2 -fstack-protector-strong -D_FORTIFY_SOURCE=2 -ffunction-sections -fdata-sections"
export SOURCE_DATE_EPOCH=1700000000

cross_cmake() { # SOURCE OPTIONS...
  local source=$1 target
  target=$work/build-$(basename "$source")
  shift
  cmake -G Ninja -S "$source" -B "$target" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64.cmake" \
    -DCMAKE_BUILD_TYPE=None -DCMAKE_C_FLAGS="$harden -ffile-prefix-map=$work=." \
    -DCMAKE_CXX_FLAGS="$harden -ffile-prefix-map=$work=." \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_PREFIX_PATH="$prefix" -DBUILD_SHARED_LIBS=OFF "$@"
  cmake --build "$target" -j "$jobs"
  cmake --install "$target"
}

# No configuration file, engine or provider module is ever looked for, and the
# compiled-in folder lies where only administrators can write.
recipe_openssl() {
  fetch openssl 3.0
  cd "$work/openssl"
  CC=gcc-posix CXX=g++-posix ./Configure mingw64 --cross-compile-prefix=$triplet- \
    --prefix="$prefix" --libdir=lib \
    no-shared no-tests no-engine no-dynamic-engine no-module no-autoload-config no-dso no-legacy \
    no-ssl3 no-tls1 no-tls1_1 no-dtls no-comp no-srp no-weak-ssl-ciphers no-ui-console no-capieng \
    -O2 -fstack-protector-strong -D_FORTIFY_SOURCE=2 -ffunction-sections -fdata-sections
  # Given here, since Configure takes a drive letter for a relative path.
  local home='C:/Windows/System32/ZarnUpdateService/tls'
  local homes=(OPENSSLDIR="$home" ENGINESDIR="$home/engines" MODULESDIR="$home/modules")
  make -j "$jobs" build_libs "${homes[@]}"
  make install_dev "${homes[@]}"
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

recipe_boost() {
  fetch boost1.81 1.81
  cross_cmake "$work/boost1.81" -DBUILD_TESTING=OFF -DBOOST_INSTALL_LAYOUT=system -DBOOST_RUNTIME_LINK=static \
    -DBOOST_INCLUDE_LIBRARIES='filesystem;thread;date_time;asio;property_tree;algorithm'
}

# Plain zip archives: no encryption, no other compression.
recipe_libzip() {
  fetch libzip 1.7
  cross_cmake "$work/libzip" -DENABLE_COMMONCRYPTO=OFF -DENABLE_GNUTLS=OFF -DENABLE_MBEDTLS=OFF \
    -DENABLE_OPENSSL=OFF -DENABLE_WINDOWS_CRYPTO=OFF -DENABLE_BZIP2=OFF -DENABLE_LZMA=OFF \
    -DBUILD_TOOLS=OFF -DBUILD_REGRESS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_DOC=OFF \
    -DZLIB_INCLUDE_DIR=/usr/$triplet/include -DZLIB_LIBRARY=/usr/$triplet/lib/libz.a
}

recipe_googletest() {
  cp -r /usr/src/googletest "$work/googletest"
  cross_cmake "$work/googletest" -DBUILD_GMOCK=ON -Dgtest_disable_pthreads=OFF
}

build_library() {
  local name=$1
  if [ ! -f "$home/$name.done" ]; then
    # A recipe stops at its first failing command, which `step` alone would not
    # see: bash ignores errexit inside a condition.
    step "$name" "$logs/$name.log" bash -euo pipefail "${BASH_SOURCE[0]}" --recipe "$name"
    rm -rf "${work:?}"/*
    touch "$home/$name.done"
  fi
}

if [ "${1:-}" = --recipe ]; then
  "recipe_$2"
  exit
fi

libraries=(openssl fmt curl boost libzip googletest)
pending=0
for name in "${libraries[@]}"; do [ -f "$home/$name.done" ] || pending=1; done
[ $pending = 0 ] || say "Building the libraries for Windows, once, into $home"
for name in "${libraries[@]}"; do build_library "$name"; done
echo "$prefix" >"$cache/mingw64-prefix"
