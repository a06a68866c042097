#!/usr/bin/env bash
# Builds a client with nothing but the compiler and pkg-config, as README
# shows it: build.sh SOURCE OUTPUT.
set -euo pipefail
c++ -std=c++20 -o "$2" "$1" $(pkg-config --cflags --libs zyrlog) \
  -Wl,-rpath,"$(pkg-config --variable=libdir zyrlog)"
