#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer, UndefinedBehaviorSanitizer)
# in build-fuzz/ and runs every target for the given time.
#
#   scripts/fuzz.sh [SECONDS]      default 60 s per target
#
# Environment: ORVIC_FUZZ_TARGETS="fuzz_textdecode fuzz_psprotocol" runs only
# those; ORVIC_FUZZ_JOBS=N runs N targets at a time (default 1);
# ORVIC_FUZZ_CORPUS=DIR keeps the corpora there (one directory per target)
# instead of in build-fuzz/fuzz-corpus, so that long runs build on each other
# across fresh build directories.
#
# Each target first replays its regression inputs (fuzz/regressions/TARGET),
# then fuzzes from its seeds (fuzz/corpus/TARGET, the generated ones) and the
# corpus it kept from earlier runs (ORVIC_FUZZ_CORPUS/TARGET). Printed
# per target: executions, executions a second, coverage (edges), crashes;
# a crash's input is kept in build-fuzz/fuzz-artifacts/TARGET/. Exit status
# non-zero on any crash.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
jobs=${ORVIC_FUZZ_JOBS:-1}
bash scripts/install-deps.sh --fuzz

build=build-fuzz
corpora=${ORVIC_FUZZ_CORPUS:-$build/fuzz-corpus}
all_targets=(fuzz_textdecode fuzz_metadatamap fuzz_psprotocol fuzz_filemetadata fuzz_commandqueue)
read -r -a targets <<< "${ORVIC_FUZZ_TARGETS:-${all_targets[*]}}"

cmake -S . -B "$build" -G Ninja -DORVIC_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$build" -j2 --target fuzzers orvic-id3writer

# Seeds: shipped, generated from frames and texts, and heads of the sample media.
seeds=$build/fuzz-seeds
rm -rf "$seeds"
mkdir -p "$seeds"
"$build/fuzz/orvic-fuzz-seeds" "$seeds"
samples=$PWD/$build/fuzz-samples
[ -d "$samples" ] || bash scripts/make-samples.sh "$samples" "$PWD/$build/tools/orvic-id3writer" >/dev/null
mkdir -p "$seeds/fuzz_filemetadata"
for f in "$samples"/*.* "$samples"/hostile/*; do
    # The tags, the cover and the start of the streams: larger inputs only slow the run.
    head -c 24576 "$f" > "$seeds/fuzz_filemetadata/$(basename "$f")"
done

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
export QT_QPA_PLATFORM=offscreen
logs=$build/fuzz-logs
mkdir -p "$logs"

run_target() {
    local t=$1 exe=$build/fuzz/$1
    local corpus=$corpora/$t artifacts=$build/fuzz-artifacts/$t
    mkdir -p "$corpus" "$artifacts" "$seeds/$t"
    local extra=(-rss_limit_mb=3072 -timeout=30)
    local asan=$ASAN_OPTIONS
    # Input caps where longer inputs only repeat what shorter ones reach and
    # cost time per execution: file heads of the tags, the cover and the first
    # packets; a few dozen commands; every field of the engine's answers.
    case $t in
        fuzz_filemetadata) extra+=(-max_len=32768) ;;
        fuzz_commandqueue)
            extra+=(-max_len=512)
            # Allocation stacks cut at 8 frames: deeper, the fast unwinder
            # walks on through Qt's frames (built without frame pointers)
            # into stack garbage, and every such stack is a new entry of the
            # sanitizer's stack store, about 9 kB of memory an execution (the
            # growth that ended long runs). A quarantine of freed memory of
            # 32 MB instead of 256 MB: an input frees about 50 kB, so a use
            # after free is still caught across hundreds of inputs, while the
            # leak check (run after each input that abandons an engine, whose
            # sink is kept by design) walks every quarantined chunk: with the
            # full quarantine it took a third of the CPU time.
            asan=$asan:malloc_context_size=8:quarantine_size_mb=32 ;;
        fuzz_metadatamap) extra+=(-max_len=2048) ;;
    esac
    local status=0
    if compgen -G "fuzz/regressions/$t/*" >/dev/null; then
        ASAN_OPTIONS=$asan "$exe" "${extra[@]}" fuzz/regressions/"$t"/* > "$logs/$t.regressions.log" 2>&1 || status=1
    fi
    local dirs=("$corpus" "$seeds/$t")
    [ -d "fuzz/corpus/$t" ] && dirs+=("fuzz/corpus/$t")
    if [ $status -eq 0 ]; then
        ASAN_OPTIONS=$asan "$exe" "${extra[@]}" -max_total_time="$seconds" -print_final_stats=1 \
               -artifact_prefix="$artifacts/" "${dirs[@]}" > "$logs/$t.log" 2>&1 || status=1
    fi
    echo $status > "$logs/$t.status"
}

i=0
for t in "${targets[@]}"; do
    run_target "$t" &
    i=$((i + 1))
    if [ $((i % jobs)) -eq 0 ]; then wait; fi
done
wait

failed=0
printf '%-20s %14s %8s %10s %8s\n' target executions exec/s coverage crashes
for t in "${targets[@]}"; do
    log=$logs/$t.log
    execs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log" 2>/dev/null | awk '{print $2}' | tail -1)
    rate=$(grep -o 'stat::average_exec_per_sec: *[0-9]*' "$log" 2>/dev/null | awk '{print $2}' | tail -1)
    cov=$(grep -o 'cov: [0-9]*' "$log" 2>/dev/null | awk '{print $2}' | tail -1)
    crashes=0
    if [ "$(cat "$logs/$t.status")" != 0 ]; then
        crashes=1
        failed=1
    fi
    printf '%-20s %14s %8s %10s %8s\n' "$t" "${execs:-0}" "${rate:-0}" "${cov:-0}" "$crashes"
    if [ $crashes -ne 0 ]; then
        echo "--- $t: see $log and $logs/$t.regressions.log" >&2
        grep -E 'ERROR|runtime error|FUZZ_CHECK|SUMMARY|Test unit written' "$log" "$logs/$t.regressions.log" 2>/dev/null | head -20 >&2 || true
    fi
done
exit $failed
