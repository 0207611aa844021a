#!/usr/bin/env bash
# Installs what is missing, builds an optimised Limitra and runs it with the
# given arguments, e.g. `scripts/run.sh --check` or `scripts/run.sh --snapshot panel.png`.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh >&2
cmake --preset release >&2
cmake --build --preset release >&2
exec build/release/src/limitra "$@"
