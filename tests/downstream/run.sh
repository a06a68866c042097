#!/usr/bin/env bash
# Downstream check: install zyrlog into a prefix other than the one it was
# configured with, then build and run README's first C++ example outside the
# tree through find_package, pkg-config, add_subdirectory and FetchContent.
# Each build must print the example's two lines.
set -euo pipefail
src="$(cd "$(dirname "$0")/../.." && pwd)"
here="$(cd "$(dirname "$0")" && pwd)"
work="${1:-$src/build-downstream}"
rm -rf "$work"
mkdir -p "$work"
prefix="$work/prefix"

# Configured for the default prefix, installed elsewhere: the package files
# must follow the prefix of the install.
cmake -S "$src" -B "$work/zyrlog" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZYR_BUILD_TESTS=OFF \
  -DZYR_BUILD_EXAMPLES=OFF >/dev/null
ninja -C "$work/zyrlog" >/dev/null
cmake --install "$work/zyrlog" --prefix "$prefix" >/dev/null
libdir="$(dirname "$(find "$prefix" -name 'zyrloga.so.*.*.*' | head -n 1)")"
for f in log.h zyrlog.h result.h zyrlog.hpp format.hpp result.hpp; do
  [ -f "$prefix/include/zyrlog/$f" ] || { echo "not installed: include/zyrlog/$f" >&2; exit 1; }
done
for f in zyrloga.so libzyrloga.so; do
  [ -e "$libdir/$f" ] || { echo "not installed: $libdir/$f" >&2; exit 1; }
done
soname="$(objdump -p "$libdir/zyrloga.so" | awk '/SONAME/ {print $2}')"
[ "$soname" = zyrloga.so.0 ] || { echo "SONAME is '$soname'" >&2; exit 1; }
pc_prefix="$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --variable=prefix zyrlog)"
[ "$pc_prefix" = "$prefix" ] || { echo "zyrlog.pc names prefix '$pc_prefix', not '$prefix'" >&2; exit 1; }

# README's first C++ example, as a reader copies it.
app="$work/app.cpp"
awk '/^```cpp/ { inside = 1; next } /^```/ && inside { exit } inside' "$src/README.md" > "$app"
grep -q 'zyrlog' "$app" || { echo "README.md has no C++ example" >&2; exit 1; }
if grep -q 'u"' "$app"; then echo "README's first example uses a u\"\" literal" >&2; exit 1; fi

expect() {
  local name="$1" program="$2" out
  out="$("$program")"
  for line in "MSG:connected to db-1 in 42 ms" "MSG:1234567890123 bytes queued for Zürich"; do
    if [[ "$out" != *"$line"* ]]; then
      printf 'downstream %s: no line with "%s" in:\n%s\n' "$name" "$line" "$out" >&2
      exit 1
    fi
  done
  echo "downstream $name: ok"
}

cmake -S "$here/find_package" -B "$work/find_package" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DAPP_SOURCE="$app" >/dev/null
ninja -C "$work/find_package" >/dev/null
expect find_package "$work/find_package/app"

PKG_CONFIG_PATH="$libdir/pkgconfig" bash "$here/pkg_config/build.sh" "$app" "$work/pkg_config_app"
expect pkg-config "$work/pkg_config_app"

cmake -S "$here/subdirectory" -B "$work/subdirectory" -G Ninja -DZYRLOG_SOURCE="$src" \
  -DAPP_SOURCE="$app" >/dev/null
ninja -C "$work/subdirectory" >/dev/null
expect add_subdirectory "$work/subdirectory/app"

cmake -S "$here/subdirectory" -B "$work/fetchcontent" -G Ninja -DZYRLOG_SOURCE="$src" \
  -DAPP_SOURCE="$app" -DZYRLOG_FETCH=ON >/dev/null
ninja -C "$work/fetchcontent" >/dev/null
expect FetchContent "$work/fetchcontent/app"
