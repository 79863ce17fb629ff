#!/usr/bin/env bash
# Replays the seed corpora through every fuzz target, then fuzzes each target
# for the given number of seconds, a few at a time. New inputs go to
# WORK/<family>/ (kept between runs, so a long campaign can be resumed), and
# anything found to WORK/<family>-crash-* (or -timeout-, -oom-, -leak-).
#
#   fuzz/run.sh [BUILD_DIR] [SECONDS] [PARALLEL] [WORK]
#   defaults:    build-fuzz  10        2          BUILD_DIR/fuzz-work
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
  if "$build/fuzz/moxpx_fuzz_$f" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
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
export build seconds work
printf '%s\n' "${families[@]}" | xargs -P "$parallel" -I{} bash -c 'fuzz_one {}'
