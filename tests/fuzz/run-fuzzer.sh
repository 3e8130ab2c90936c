#!/bin/sh
# Runs one fuzzer for $QUILLMAR_FUZZ_SECONDS seconds (5 unless set), starting from its committed
# seeds. New inputs go to a working corpus in the build tree, so the seeds stay small; a crash
# leaves its input there too, as crash-*, and fails the run.
# Usage: run-fuzzer.sh FUZZER SEED_DIR WORK_DIR [DICTIONARY]
set -eu
fuzzer=$1
seeds=$2
work=$3
dictionary=${4:-}
seconds=${QUILLMAR_FUZZ_SECONDS:-5}

mkdir -p "$work/corpus"
set -- -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$work/"
if [ -n "$dictionary" ]; then
    set -- "$@" -dict="$dictionary"
fi
exec "$fuzzer" "$@" "$work/corpus" "$seeds"
