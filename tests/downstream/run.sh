#!/usr/bin/env bash
# Downstream check: install zyrlog into a prefix, then build and run a small
# client outside the tree through find_package, pkg-config, add_subdirectory
# and FetchContent. Each client must print its line.
set -euo pipefail
src="$(cd "$(dirname "$0")/../.." && pwd)"
work="${1:-$src/build-downstream}"
rm -rf "$work"
mkdir -p "$work"
prefix="$work/prefix"

cmake -S "$src" -B "$work/zyrlog" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZYR_BUILD_TESTS=OFF \
  -DZYR_BUILD_EXAMPLES=OFF -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
ninja -C "$work/zyrlog" >/dev/null
cmake --install "$work/zyrlog" >/dev/null
libdir="$(dirname "$(find "$prefix" -name 'zyrloga.so.*.*.*' | head -n 1)")"
for f in include/zyrlog/log.h include/zyrlog/zyrlog.h include/zyrlog/result.h; do
  [ -f "$prefix/$f" ] || { echo "not installed: $f" >&2; exit 1; }
done
for f in zyrloga.so libzyrloga.so; do
  [ -e "$libdir/$f" ] || { echo "not installed: $libdir/$f" >&2; exit 1; }
done
soname="$(objdump -p "$libdir/zyrloga.so" | awk '/SONAME/ {print $2}')"
[ "$soname" = zyrloga.so.0 ] || { echo "SONAME is '$soname'" >&2; exit 1; }

expect() {
  local name="$1" program="$2" out
  out="$("$program")"
  if [ "$out" != "INFO downstream build works: 42" ]; then
    echo "downstream $name: unexpected output '$out'" >&2
    exit 1
  fi
  echo "downstream $name: ok"
}

here="$(dirname "$0")"
cmake -S "$here/find_package" -B "$work/find_package" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
ninja -C "$work/find_package" >/dev/null
expect find_package "$work/find_package/app"

PKG_CONFIG_PATH="$libdir/pkgconfig" bash "$here/pkg_config/build.sh" "$work/pkg_config_app"
expect pkg-config "$work/pkg_config_app"

cmake -S "$here/subdirectory" -B "$work/subdirectory" -G Ninja -DZYRLOG_SOURCE="$src" >/dev/null
ninja -C "$work/subdirectory" >/dev/null
expect add_subdirectory "$work/subdirectory/app"

cmake -S "$here/subdirectory" -B "$work/fetchcontent" -G Ninja -DZYRLOG_SOURCE="$src" \
  -DZYRLOG_FETCH=ON >/dev/null
ninja -C "$work/fetchcontent" >/dev/null
expect FetchContent "$work/fetchcontent/app"
