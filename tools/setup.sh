#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks to build and test zyrlog.
# "setup.sh build" installs only what building the library and the demo
# needs (a compiler, CMake, Ninja); without an argument, also what the tests,
# benchmarks and fuzz targets need.
set -euo pipefail
need=()
command -v cmake >/dev/null || need+=(cmake)
command -v ninja >/dev/null || need+=(ninja-build)
command -v g++ >/dev/null || need+=(g++)
if [ "${1:-}" != build ]; then
command -v clang++ >/dev/null || need+=(clang)
command -v pkg-config >/dev/null || need+=(pkg-config)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || need+=(libclang-rt-dev)
command -v nm >/dev/null || need+=(binutils)
# File systems that tests mount on loop images: btrfs for compression of
# rolled logs, ext4 without birth times for the date-rolling tests.
command -v mkfs.btrfs >/dev/null || need+=(btrfs-progs)
command -v mkfs.ext4 >/dev/null || need+=(e2fsprogs)
command -v mkfs.vfat >/dev/null || need+=(dosfstools)
# The collection test's shipper and receiver; imfile, imtcp, mmjsonparse and
# mmnormalize come with the package.
command -v rsyslogd >/dev/null || [ -x /usr/sbin/rsyslogd ] || need+=(rsyslog)
fi
if [ ${#need[@]} -gt 0 ]; then
  if [ "$(id -u)" != 0 ]; then
    echo "missing packages: ${need[*]} (run as root or install them)" >&2
    exit 1
  fi
  apt-get update
  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${need[@]}"
fi
