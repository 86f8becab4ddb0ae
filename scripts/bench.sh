#!/usr/bin/env bash
# Benchmarks: our session on the PC platform against Qt's stock GStreamer
# player (QMediaPlayer) and against the floors it is built on. Sets up what
# it needs (packages, build, media), then prints a markdown table of medians
# and spreads and writes, into the results directory:
#   bench.md           the table
#   bench.json         rows, ratios, goals and every sample
#   open-latency.png   the open latencies of both players per medium
#   micro.json         the Google Benchmark micro-benchmarks
#   video.md           video fps and CPU per frame (scripts/bench-video.sh)
#
#   scripts/bench.sh                 full run (about 10 minutes on 2 cores)
#   scripts/bench.sh --smoke         every row once: that each gives a number
#   scripts/bench.sh --out DIR       results elsewhere (default build/bench/results)
#
# Times are never checked here; the smoke run fails only when a row gives
# no number.
set -euo pipefail
cd "$(dirname "$0")/.."

smoke=()
out=build/bench/results
while [ $# -gt 0 ]; do
    case $1 in
        --smoke) smoke=(--smoke) ;;
        --out) out=${2:?--out needs a directory}; shift ;;
        *) echo "usage: scripts/bench.sh [--smoke] [--out DIR]" >&2; exit 2 ;;
    esac
    shift
done

bash scripts/install-deps.sh --bench

build=build
cmake -S . -B "$build" -G Ninja >/dev/null
# orvic-bench-micro exists because install-deps.sh --bench installed Google Benchmark.
targets=(orvic-bench orvic-bench-micro psserver orvic-id3writer orvicmediaplayer)
cmake --build "$build" -j2 --target "${targets[@]}"

# Media: the project's samples, and the same contents in the other
# containers the table covers. Kept between runs.
media=$PWD/$build/bench/media
if [ ! -s "$media/audio.wav" ]; then
    bash scripts/make-samples.sh "$media" "$PWD/$build/tools/orvic-id3writer"
    ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }
    # The movie's video, first audio track and subtitles in Matroska.
    ff -i "$media/movie.mp4" -map 0:v -map 0:a:0 -map 0:s -c:v copy -c:a copy -c:s srt "$media/movie.mkv"
    ff -i "$media/tagged-gbk.mp3" -map 0:a -c:a libvorbis -q:a 3 "$media/audio.ogg"
    ff -i "$media/tagged-gbk.mp3" -map 0:a -c:a pcm_s16le "$media/audio.wav"
fi

mkdir -p "$out"
status=0
"$build/bench/orvic-bench" run --media "$media" --out "$out" "${smoke[@]}" || status=$?
if [ -s "$out/open-latency.gp" ]; then
    gnuplot "$out/open-latency.gp" && echo "plot: $out/open-latency.png"
fi

if [ -x "$build/bench/orvic-bench-micro" ]; then
    min_time=0.5
    [ ${#smoke[@]} -eq 0 ] || min_time=0.01
    QT_LOGGING_RULES="default.debug=false" "$build/bench/orvic-bench-micro" \
        --benchmark_min_time="$min_time" --benchmark_out="$out/micro.json" --benchmark_out_format=json
fi
# Video through the session's plugin against Qt's stock back end.
bash scripts/bench-video.sh "${smoke[@]}" --out "$out" || status=$?
exit "$status"
