#!/usr/bin/env bash
# Builds the client with nothing but the compiler and pkg-config.
set -euo pipefail
out="$1"
c++ -std=c++20 -o "$out" "$(dirname "$0")/../app.cpp" $(pkg-config --cflags --libs zyrlog) \
  -Wl,-rpath,"$(pkg-config --variable=libdir zyrlog)"
