#!/usr/bin/env bash
# Installs what is missing, builds an optimised Limitra (only the program, not
# the tests) and runs it with the given arguments: without any it starts the
# tray application; `scripts/run.sh --check` prints the report and
# `scripts/run.sh --snapshot panel.png` writes the panel.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh >&2
cmake --preset release >&2
cmake --build --preset release --target limitra >&2
exec build/release/src/limitra "$@"
