#!/usr/bin/env bash
# Fault soak on the real PC platform: a session (the client, orvic-soak)
# plays real media while psserver is killed (SIGKILL) or frozen (SIGSTOP,
# then SIGKILL) at random moments and commands arrive from several threads;
# corrupt and truncated media are opened in between. Prints the figures.
#
#   scripts/soak.sh [ROUNDS] [SEED] [OPTIONS...]     default 20 faults, seed 1
#
# Further options go to orvic-soak, e.g. "--bystanders 1": one more session
# of the same process plays with no watchdog fed, and must play on after
# every recovery made by the other session's watchdog.
# Builds in build/ and works in build/soak/ with a runtime directory of its
# own, so that a daemon of the soak is never anybody else's. Exit status
# non-zero when the client crashed or a figure is off (see orvic-soak).
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-20}
seed=${2:-1}
shift $(( $# < 2 ? $# : 2 ))
bash scripts/install-deps.sh
build=build
cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" -j2 --target orvic-soak psserver orvic-id3writer

work=$PWD/$build/soak
media=$work/media
if [ ! -f "$media/.complete" ]; then
    rm -rf "$media"
    bash scripts/make-samples.sh "$work/samples" "$PWD/$build/tools/orvic-id3writer" >/dev/null
    mkdir -p "$media"
    ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }
    # Long enough that a fault always lands in the middle of playback.
    ff -f lavfi -i testsrc=duration=30:size=320x240:rate=25 -f lavfi -i sine=frequency=440:duration=30 \
       -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest "$media/long.mp4"
    ff -f lavfi -i sine=frequency=660:duration=30 -c:a libmp3lame -b:a 128k "$media/long.mp3"
    # Damaged media: truncated, and with blocks of the file copied over
    # other places of it (a deterministic mutation of the seed), plus the
    # samples' hostile files.
    RANDOM=$seed
    n=0
    for f in "$media/long.mp4" "$media/long.mp3" "$work/samples/movie.mp4" "$work/samples/tagged-gbk.mp3"; do
        size=$(stat -c %s "$f")
        ext=${f##*.}
        head -c $((size / 3)) "$f" > "$media/damaged-$n-third.$ext"
        head -c $((size * 2 / 3)) "$f" > "$media/damaged-$n-twothirds.$ext"
        for copy in 1 2; do
            out=$media/damaged-$n-mutated$copy.$ext
            cp "$f" "$out"
            for _ in $(seq 24); do
                from=$(( (RANDOM * 32768 + RANDOM) % size ))
                to=$(( (RANDOM * 32768 + RANDOM) % size ))
                dd if="$f" of="$out" bs=1 count=$((1 + RANDOM % 256)) skip=$from seek=$to conv=notrunc status=none
            done
        done
        n=$((n + 1))
    done
    for f in "$work/samples/hostile/"*; do
        cp "$f" "$media/damaged-hostile-$(basename "$f")"
    done
    touch "$media/.complete"
fi

runtime=$(mktemp -d "${TMPDIR:-/tmp}/orvic-soak.XXXXXX")
stop_daemon() {
    local lock=$runtime/psserver.lock pid
    pid=$(cat "$lock" 2>/dev/null || true)
    if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null && grep -q psserver "/proc/$pid/cmdline" 2>/dev/null; then
        kill -KILL "$pid" 2>/dev/null || true
    fi
    rm -rf "$runtime"
}
trap stop_daemon EXIT

status=0
ORVIC_RUNTIME_DIR=$runtime QT_QPA_PLATFORM=offscreen \
    "$build/tools/orvic-soak" --media "$media" --rounds "$rounds" --seed "$seed" "$@" || status=$?
if [ $status -gt 128 ]; then
    echo "client crashes: 1 (signal $((status - 128)))"
    tail -20 "$runtime/psserver.log" 2>/dev/null || true
else
    echo "client crashes: 0"
fi
exit $status
