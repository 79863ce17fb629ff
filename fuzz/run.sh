#!/usr/bin/env bash
# Replays the seed corpora through every fuzz target, then fuzzes each target
# for the given number of seconds, a few at a time. New inputs go to
# WORK/<family>/ (kept between runs, so a long campaign can be resumed), and
# anything found to WORK/<family>-crash-* (or -timeout-, -oom-, -leak-).
#
#   fuzz/run.sh [BUILD_DIR] [SECONDS] [PARALLEL] [WORK]
#   defaults:    build-fuzz  10        2          BUILD_DIR/fuzz-work
# With FUZZ_RUNS=N set, each target runs N inputs from a fixed seed instead
# of for SECONDS: the same run every time, which is what CI wants (a fault a
# timed run finds at random would turn an unrelated change red).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-fuzz}
seconds=${2:-10}
parallel=${3:-2}
work=${4:-$build/fuzz-work}
mkdir -p "$work"

families=()
for dir in fuzz/corpus/*/; do
  families+=("$(basename "$dir")")
done

for f in "${families[@]}"; do
  "$build/fuzz/moxpx_fuzz_$f" fuzz/corpus/"$f"/* > "$work/$f-replay.log" 2>&1 ||
    { tail -n 60 "$work/$f-replay.log"; echo "replaying the $f corpus failed" >&2; exit 1; }
done
echo "replayed the corpora of: ${families[*]}"

fuzz_one() {
  local f=$1
  mkdir -p "$work/$f"
  local limit=(-max_total_time="$seconds")
  [ -n "${FUZZ_RUNS:-}" ] && limit=(-runs="$FUZZ_RUNS" -seed=1)
  if "$build/fuzz/moxpx_fuzz_$f" "${limit[@]}" -timeout=10 -rss_limit_mb=2048 \
       -print_final_stats=1 -artifact_prefix="$work/$f-" "$work/$f" "fuzz/corpus/$f" \
       > "$work/$f.log" 2>&1; then
    echo "$f: $(grep -m1 -o 'Done [0-9]* runs in [0-9]* second(s)' "$work/$f.log")"
  else
    tail -n 60 "$work/$f.log"
    echo "$f: fuzzing found a fault (input in $work/$f-*)" >&2
    return 1
  fi
}
export -f fuzz_one
export build seconds work FUZZ_RUNS
printf '%s\n' "${families[@]}" | xargs -P "$parallel" -I{} bash -c 'fuzz_one {}'
