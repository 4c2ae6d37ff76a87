#!/bin/sh
# make bench, for one interpreter: builds the module into OUT as make test-all
# builds it (skipped with VXR_BENCH_BUILT=1, when OUT holds a build already)
# and runs bench/run.py on that build, its results into JSON.
# Usage: interpreter.sh PYTHON OUT JSON [RUN.PY ARGS...]
set -eu
py=$1 out=$2 json=$3
shift 3
if [ "${VXR_BENCH_BUILT:-}" != 1 ]; then
    mkdir -p "$out"
    tools/build_into.sh "$py" "$out" >"$out/build.log" 2>&1 || { cat "$out/build.log"; exit 1; }
fi
[ -d "$out" ] || { echo "no build in $out" >&2; exit 1; }
PYTHONPATH=$(cd "$out" && pwd):$(pwd)/standin $py bench/run.py --json "$json" "$@"
