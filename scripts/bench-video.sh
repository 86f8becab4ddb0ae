#!/usr/bin/env bash
# Video benchmark: frames per second and CPU per frame at 720p and 1080p,
# through the session's media service plugin (psserver decodes, frames come
# through its shared-memory ring) against Qt's stock GStreamer back end
# (decoding in the application), on the same clips in the same run, onto the
# same counting surface (orvic-bench-video). Prints a markdown table of
# medians and writes it with every sample into the results directory:
#   video.md    the table
#   video.jsonl one line per run
#
#   scripts/bench-video.sh                 3 runs per back end and clip
#   scripts/bench-video.sh --smoke         1 run each: that each gives a number
#   scripts/bench-video.sh --out DIR       results elsewhere (default build/bench/results)
#
# Called by scripts/bench.sh; times are never checked.
set -euo pipefail
cd "$(dirname "$0")/.."

runs=3
out=build/bench/results
while [ $# -gt 0 ]; do
    case $1 in
        --smoke) runs=1 ;;
        --out) out=${2:?--out needs a directory}; shift ;;
        *) echo "usage: scripts/bench-video.sh [--smoke] [--out DIR]" >&2; exit 2 ;;
    esac
    shift
done

build=build
cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" -j2 --target orvic-bench-video orvicmediaplayer psserver

media=$build/bench/media-video
mkdir -p "$media" "$out"
ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }
for size in 1280x720 1920x1080; do
    clip=$media/clip-$size.mp4
    [ -s "$clip" ] || ff -f lavfi -i "testsrc2=size=$size:rate=30:duration=6" \
        -c:v libx264 -preset veryfast -pix_fmt yuv420p -g 30 "$clip"
done

runtime=$(mktemp -d)
# The daemon ends by itself once its runtime directory is gone.
trap 'rm -rf "$runtime"' EXIT
samples=$out/video.jsonl
: > "$samples"
for size in 1280x720 1920x1080; do
    for i in $(seq "$runs"); do
        # Alternating, so that a change in the machine's load hits both.
        ORVIC_RUNTIME_DIR=$runtime QT_PLUGIN_PATH=$PWD/$build/plugins QT_MULTIMEDIA_PREFERRED_PLUGINS=orvic \
            QT_LOGGING_RULES="default.debug=false" \
            "$build/bench/orvic-bench-video" "$media/clip-$size.mp4" >> "$samples"
        QT_MULTIMEDIA_PREFERRED_PLUGINS=gstreamer QT_LOGGING_RULES="default.debug=false" \
            "$build/bench/orvic-bench-video" "$media/clip-$size.mp4" >> "$samples"
    done
done

python3 - "$samples" "$out/video.md" <<'PY'
import json, statistics, sys
rows = [json.loads(line) for line in open(sys.argv[1]) if line.strip()]
table = ["| clip | back end | frames | fps (median) | CPU ms/frame (median) | runs |",
         "|---|---|---|---|---|---|"]
medians = {}
for clip in sorted({r["clip"] for r in rows}, key=lambda c: int(c.split("x")[1].split(".")[0])):
    for backend in ("orvic", "stock"):
        rs = [r for r in rows if r["clip"] == clip and r["backend"] == backend]
        if not rs:
            continue
        fps = statistics.median(r["fps"] for r in rs)
        cpu = statistics.median(r["cpuMsPerFrame"] for r in rs)
        frames = statistics.median(r["frames"] for r in rs)
        medians[(clip, backend)] = (fps, cpu)
        table.append(f"| {clip} ({rs[0]['width']}x{rs[0]['height']}) | {backend} | {frames:.0f} | {fps:.1f} | {cpu:.2f} | {len(rs)} |")
table.append("")
for clip in sorted({c for c, _ in medians}):
    if (clip, "orvic") in medians and (clip, "stock") in medians:
        o, s = medians[(clip, "orvic")], medians[(clip, "stock")]
        table.append(f"{clip}: fps orvic/stock {o[0] / s[0]:.2f}, CPU per frame orvic/stock {o[1] / s[1]:.2f}"
                     " (goal: fps ratio >= 1, CPU ratio <= 1.2)")
text = "\n".join(table) + "\n"
open(sys.argv[2], "w").write(text)
print(text)
PY
