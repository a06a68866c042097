#!/usr/bin/env bash
# The NT build: cross-builds zyrloga.dll and the Windows test programs with
# mingw-w64, checks that the module imports ntdll.dll alone and exports the
# nine functions, and runs the tests under wine in a prefix of its own
# inside the build folder. Installs what it lacks when run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
need=()
command -v cmake >/dev/null || need+=(cmake)
command -v ninja >/dev/null || need+=(ninja-build)
command -v x86_64-w64-mingw32-g++-posix >/dev/null || need+=(g++-mingw-w64-x86-64)
[ -x /usr/lib/wine/wine64 ] || need+=(wine64)
[ -f /usr/src/googletest/googletest/CMakeLists.txt ] || need+=(googletest)
if [ ${#need[@]} -gt 0 ]; then
  if [ "$(id -u)" != 0 ]; then
    echo "missing packages: ${need[*]} (run as root or install them)" >&2
    exit 1
  fi
  apt-get update
  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${need[@]}"
fi

dir=build-windows
cmake -S . -B "$dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DZYR_BUILD_TESTS=ON >/dev/null
ninja -C "$dir" zyr_windows_all

# The module loads into processes where nothing but ntdll.dll exists.
dump=$(x86_64-w64-mingw32-objdump -p "$dir/zyrloga.dll")
imports=$(printf '%s\n' "$dump" | sed -n 's/^\s*DLL Name: //p' | sort -u)
exports=$(printf '%s\n' "$dump" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | sed -n 's/^\s*\[ *[0-9]*\] //p' | sort | tr '\n' ' ')
expected="GetZyrObject ZyrGetLogObject ZyrLogLibraryReconfigure ZyrLogLibraryReloadConfig ZyrLogLibraryRemoteReconfigure ZyrLogLibraryRemoteReloadConfig ZyrModuleFinish ZyrModuleInit ZyrReleaseLogObject "
if [ "$imports" != "ntdll.dll" ] || [ "$exports" != "$expected" ]; then
  echo "zyrloga.dll imports: $imports; exports: $exports" >&2
  exit 1
fi
echo "zyrloga.dll: imports ntdll.dll alone; exports $exports"

export WINEPREFIX="$PWD/$dir/wine" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
wine=/usr/lib/wine/wine64
# The first start of a prefix builds it, some ten seconds.
timeout 300 "$wine" wineboot -i >/dev/null 2>&1 || true
status=0
for program in zyr_unit_tests zyr_windows_tests zyr_module_tests; do
  echo "== $program under wine"
  timeout 600 "$wine" "$dir/$program.exe" --gtest_brief=1 || status=1
done
WINEPREFIX="$WINEPREFIX" timeout 60 /usr/lib/wine/wineserver64 -k 2>/dev/null || true
exit $status
