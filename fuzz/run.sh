#!/usr/bin/env bash
# Runs one fuzz target for SECONDS over a working copy of its checked-in corpus: new inputs go
# to WORKDIR only, crashes to WORKDIR/crashes. Prints libFuzzer's final statistics.
#   run.sh TARGET SECONDS CORPUS WORKDIR
set -euo pipefail
target=$1 seconds=$2 corpus=$3 work=$4
mkdir -p "$work/corpus" "$work/crashes"
# Qt's parsers may allocate a few times the input; the caps keep inputs far below this.
exec "$target" -max_total_time="$seconds" -print_final_stats=1 -timeout=25 -rss_limit_mb=2560 \
  -max_len=65536 -artifact_prefix="$work/crashes/" "$work/corpus" "$corpus"
