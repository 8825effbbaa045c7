#!/usr/bin/env bash
# fuzz/run.sh BUILDDIR [SECONDS]: runs every fuzz target built in
# BUILDDIR/fuzz for SECONDS each (default 60), starting from the seed corpus
# the target writes itself plus what earlier runs kept, inside a private IPC
# namespace. Fails on the first crash, sanitizer report, leak, timeout, or
# allocation beyond the limits (-malloc_limit_mb catches unbounded ones).
set -euo pipefail
builddir=$(cd "${1:?usage: fuzz/run.sh BUILDDIR [SECONDS]}" && pwd)
seconds=${2:-60}
targets=("$builddir"/fuzz/*_fuzz)
[ -x "${targets[0]}" ] || { echo "no fuzz targets in $builddir/fuzz" >&2; exit 1; }
status=0
for target in "${targets[@]}"; do
  name=$(basename "$target")
  work=$builddir/fuzz-runs/$name
  rm -rf "$work/seeds"
  mkdir -p "$work/corpus" "$work/seeds"
  FUZZ_SEED_DIR=$work/seeds "$target" -runs=0 >/dev/null 2>&1 || true
  echo "== $name: ${seconds} s"
  if unshare --ipc "$target" -max_total_time="$seconds" -rss_limit_mb=2048 -malloc_limit_mb=256 \
      -timeout=10 -print_final_stats=1 -artifact_prefix="$work/" \
      "$work/corpus" "$work/seeds" >"$work/log" 2>&1; then
    grep -E '^stat::(number_of_executed_units|peak_rss_mb)|^#[0-9]+ +DONE' "$work/log" | tr '\n' ' '
    echo
  else
    echo "$name FAILED; log: $work/log; the input is in $work/" >&2
    tail -n 40 "$work/log" >&2
    status=1
  fi
done
exit $status
