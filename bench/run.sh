#!/usr/bin/env bash
# bench/run.sh BUILD_DIR [--no-callgrind] [ipc_bench options]
#
# Runs the codec micro-benchmarks, then every inter-process case (ipc_bench,
# in a private IPC namespace: needs root), then renders the chart, then counts
# the instructions of the hot paths under callgrind. Writes next to this
# script: results.json, results.md, chart.png, callgrind.md. Scratch files go
# to BUILD_DIR/bench-work. `./run bench` builds in Release and calls this.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
[ $# -ge 1 ] || { sed -n '2,9p' "$0"; exit 2; }
build=$(cd "$1" && pwd)
shift
callgrind=1
args=()
for a in "$@"; do
  case "$a" in
    --no-callgrind) callgrind=0 ;;
    *) args+=("$a") ;;
  esac
done
work=$build/bench-work
mkdir -p "$work"
for exe in ipc_bench codec_bench; do
  [ -x "$build/bench/$exe" ] || { echo "missing $build/bench/$exe (configure with -DMESSAGING_BENCH=ON)"; exit 1; }
done
if [ "$(id -u)" != 0 ]; then
  echo "ipc_bench needs root: every case runs in its own IPC namespace (unshare)"; exit 1
fi
type=$(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' "$build/CMakeCache.txt")
[ "$type" = Release ] || echo "warning: $build is a $type build; figures are meant for Release"

started=$(date +%s)
echo "== codec micro-benchmarks"
"$build/bench/codec_bench" --tsv "$work/codec.tsv" --benchmark_counters_tabular=true

echo "== channel, messenger and alternatives, two processes per case"
status=0
"$build/bench/ipc_bench" --out "$here" --work "$work" --codec "$work/codec.tsv" \
  --command "./run bench${args[*]:+ ${args[*]}}" ${args[@]+"${args[@]}"} || status=$?

echo "== chart"
terminal=pngcairo
gnuplot -e "set terminal pngcairo" 2>/dev/null || terminal=png
gnuplot -e "datadir='$work'; output='$here/chart.png'; term='$terminal'" "$here/chart.gp"

if [ $callgrind = 1 ] && command -v valgrind >/dev/null; then
  echo "== instruction counts of the hot paths (callgrind)"
  "$here/callgrind.sh" "$build" "$work/callgrind" > "$here/callgrind.md"
fi

sed -n '/^## Targets/,/^## both/p' "$here/results.md" | sed '$d'
echo "results: $here/results.md, results.json, chart.png ($(( $(date +%s) - started )) s)"
exit $status
