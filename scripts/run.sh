#!/usr/bin/env bash
# Installs what is missing, builds an optimised Limitra (the program and its
# GUI module, nothing else) and runs it with the given arguments: no arguments
# starts the tray application; `scripts/run.sh --check` prints the report;
# `scripts/run.sh --snapshot panel.png` draws the panel into a file.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh >&2
cmake --preset release >&2
cmake --build --preset release --target limitra >&2
exec build/release/src/limitra "$@"
