#!/usr/bin/env bash
# Generates the short media the end-to-end tests play, into the directory
# given as $1. Everything is synthesised locally with ffmpeg; nothing is
# downloaded. Files already present are kept, so a rerun is cheap.
set -euo pipefail
out=${1:?usage: make-e2e-media.sh <output-dir>}
mkdir -p "$out"
cd "$out"

ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }

# 4 s of 440 Hz as MP3 and as Ogg Vorbis.
[ -s sine.mp3 ] || ff -f lavfi -i "sine=frequency=440:duration=4" -c:a libmp3lame -b:a 64k sine.mp3
[ -s sine.ogg ] || ff -f lavfi -i "sine=frequency=440:duration=4" -c:a libvorbis -q:a 1 sine.ogg

# Three subtitle cues, the last one in italics; also used as an external
# subtitle file.
if [ ! -s cues.srt ]; then
    cat > cues.srt <<'SRT'
1
00:00:00,500 --> 00:00:01,500
First line

2
00:00:02,000 --> 00:00:03,000
Zweite Zeile äöü

3
00:00:04,000 --> 00:00:05,000
<i>Third</i> line
SRT
fi

# 6 s MP4: small H.264 video, two AAC tracks in different languages (440 Hz
# English, 880 Hz French) and an English mov_text subtitle track with the cues.
if [ ! -s av.mp4 ]; then
    ff -f lavfi -i "testsrc=size=160x120:rate=25:duration=6" \
       -f lavfi -i "sine=frequency=440:duration=6" \
       -f lavfi -i "sine=frequency=880:duration=6" \
       -i cues.srt \
       -map 0:v -map 1:a -map 2:a -map 3:s \
       -c:v libx264 -preset ultrafast -g 25 -pix_fmt yuv420p \
       -c:a aac -b:a 48k -c:s mov_text \
       -metadata:s:a:0 language=eng -metadata:s:a:1 language=fre \
       -metadata:s:s:0 language=eng \
       av.mp4
fi

# The same video and first audio track as MPEG-TS: a container whose demuxer
# cannot play backwards.
[ -s av.ts ] || ff -i av.mp4 -map 0:v -map 0:a:0 -c copy -bsf:v h264_mp4toannexb av.ts
# The MP4 with its index in front, as a streaming server offers it.
[ -s av-indexed.mp4 ] || ff -i av.mp4 -map 0 -c copy -movflags +faststart av-indexed.mp4

# The two audio tracks alone: a medium whose only chain is the audio one.
[ -s twoaudio.m4a ] || ff -i av.mp4 -map 0:a -c copy twoaudio.m4a

# The MP4 with a second, German subtitle track: its cues at the same times,
# other words.
if [ ! -s twosubs.mp4 ]; then
    cat > cues-de.srt <<'SRT'
1
00:00:00,500 --> 00:00:01,500
Erste Zeile

2
00:00:02,000 --> 00:00:03,000
Zweite Zeile

3
00:00:04,000 --> 00:00:05,000
Dritte Zeile
SRT
    ff -i av.mp4 -i cues-de.srt -map 0 -map 1:s -c copy -c:s mov_text \
       -metadata:s:s:1 language=ger twosubs.mp4
fi

# Broken media: zero bytes; the first half of the MP4 (its index is written
# last, so the half has none); the first half of an MP4 with its index in
# front (plays until the data runs out); an MP4 file type box followed by
# garbage; a text file named as MP3; and a genuine MP3 under an MP4 name
# (the content, not the name, decides: that one plays).
[ -e empty.mp4 ] || : > empty.mp4
if [ ! -s truncated.mp4 ]; then
    size=$(stat -c %s av.mp4)
    head -c $((size / 2)) av.mp4 > truncated.mp4
fi
if [ ! -s truncated-indexed.mp4 ]; then
    size=$(stat -c %s av-indexed.mp4)
    head -c $((size / 2)) av-indexed.mp4 > truncated-indexed.mp4
fi
if [ ! -s corrupt.mp4 ]; then
    { printf '\x00\x00\x00\x18ftypisom'; head -c 65536 /dev/zero | tr '\0' 'Z'; } > corrupt.mp4
fi
[ -s notmedia.mp3 ] || printf 'This is a plain text document, not audio.\n%.0s' $(seq 1 200) > notmedia.mp3
[ -s mp3named.mp4 ] || cp sine.mp3 mp3named.mp4

# 4 s MP4 with video and one audio track and no subtitles of its own: the
# subtitle file tests put it beside files they write themselves.
if [ ! -s plain.mp4 ]; then
    ff -f lavfi -i "testsrc=size=160x120:rate=25:duration=4" -f lavfi -i "sine=frequency=440:duration=4" \
       -map 0:v -map 1:a -c:v libx264 -preset ultrafast -g 25 -pix_fmt yuv420p -c:a aac -b:a 48k plain.mp4
fi

# Video frames: 1 s at 25 fps of colour bars (320x240); a stream whose
# picture size changes from 320x240 to 160x120 after 1 s (two MPEG-TS
# segments, the second after the first in time); and three 4K frames.
[ -s bars25.mp4 ] || ff -f lavfi -i "smptebars=size=320x240:rate=25:duration=1" \
    -c:v libx264 -preset ultrafast -g 25 -pix_fmt yuv420p bars25.mp4
if [ ! -s sizechange.ts ]; then
    ff -f lavfi -i "testsrc=size=320x240:rate=25:duration=1" -c:v libx264 -preset ultrafast \
       -g 25 -pix_fmt yuv420p -bsf:v h264_mp4toannexb sizechange-a.ts
    ff -f lavfi -i "testsrc=size=160x120:rate=25:duration=1" -c:v libx264 -preset ultrafast \
       -g 25 -pix_fmt yuv420p -bsf:v h264_mp4toannexb -output_ts_offset 1 sizechange-b.ts
    cat sizechange-a.ts sizechange-b.ts > sizechange.ts
    rm -f sizechange-a.ts sizechange-b.ts
fi
[ -s uhd.mp4 ] || ff -f lavfi -i "testsrc=size=3840x2160:rate=25:duration=0.12" \
    -c:v libx264 -preset ultrafast -pix_fmt yuv420p uhd.mp4
