#!/usr/bin/env bash
# Installs what is missing, builds and runs every test: the whole suite on the
# dev build (warnings are errors), a build of the program with CMake's
# default generator, then the unit tests again under AddressSanitizer, UBSan
# and LeakSanitizer, then every fuzz target for a short while on clang.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)

cmake --preset dev
cmake --build --preset dev -j "$jobs"
ctest --preset dev -j "$jobs"

# Debian's tools and most newcomers build with CMake's default generator.
cmake -S . -B build/make -G "Unix Makefiles" -DLIMITRA_BUILD_TESTS=OFF
cmake --build build/make --target limitra -j "$jobs"

cmake --preset asan
cmake --build --preset asan -j "$jobs"
ctest --preset asan -j "$jobs"

bash scripts/fuzz.sh 20
