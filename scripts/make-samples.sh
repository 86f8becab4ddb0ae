#!/usr/bin/env bash
# Generates the test and demo media into a directory, with ffmpeg and the
# project's orvic-id3writer; nothing is downloaded.
#
#   scripts/make-samples.sh OUTDIR [ID3WRITER]
#
# ID3WRITER defaults to $ORVIC_ID3WRITER, then to orvic-id3writer on PATH.
# The directory is replaced as a whole, so a reader never sees half of it.
#
# Media (texts are the ones the tests expect; keep both in step):
#   tagged-gbk.mp3      3 s stereo MP3; ID3v2.3 frames flagged Latin-1 holding
#                       GBK bytes (Chinese title, artist, album, comment, genre),
#                       year "2023", a 640x480 JPEG front cover; an ID3v1 tag in
#                       windows-1251 (Russian), year 1999, genre 13 ("Pop")
#   tagged-v1only.mp3   the same audio with the Russian ID3v1 tag only
#   tagged-unicode.mp3  ID3v2.4: title and album as UTF-8 frames, artist as a
#                       plain ASCII Latin-1 frame; a 100x200 PNG back cover
#                       before a 300x300 JPEG front cover
#   tagged-long.mp3     ID3v2.4: a 300-byte ASCII title ("Long title 001 ...
#                       Long title 020 ") and the date "2024-05-01" (UTF-16)
#   movie.mp4           4 s 320x240 25 fps H.264; AAC 48 kHz stereo "eng" and
#                       AAC 44.1 kHz mono "fre"; mov_text subtitles "eng" with
#                       two lines; container title "Sample movie"
#   video-only.mp4      2 s 176x144 10 fps H.264, no audio
#   bars.mp4            3 s 320x240 25 fps H.264 colour bars with a 440 Hz tone
#                       (the bars stand still: their colours can be checked
#                       on the screen at any moment)
#   cover-640x480.jpg   the cover of tagged-gbk.mp3, for comparing pixels
#   hostile/            damaged and misleading files (see below)
set -euo pipefail

out=${1:?usage: make-samples.sh OUTDIR [ID3WRITER]}
writer=${2:-${ORVIC_ID3WRITER:-orvic-id3writer}}
command -v ffmpeg >/dev/null || { echo "make-samples: ffmpeg not found (scripts/install-deps.sh)" >&2; exit 1; }
writer=$(command -v "$writer") || { echo "make-samples: orvic-id3writer not found" >&2; exit 1; }
case $writer in /*) ;; *) writer=$PWD/$writer ;; esac
# The work happens in a temporary directory; a relative OUTDIR stays the
# caller's.
case $out in /*) ;; *) out=$PWD/$out ;; esac

mkdir -p "$(dirname "$out")"
work=$(mktemp -d "$out.tmp.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }
# Text in the given charset, as hex for orvic-id3writer.
hex() { printf '%s' "$2" | iconv -f UTF-8 -t "$1" | od -An -v -tx1 | tr -d ' \n'; }

# --- pictures and audio ------------------------------------------------------
ff -f lavfi -i testsrc=size=640x480:rate=1 -frames:v 1 cover-640x480.jpg
ff -f lavfi -i testsrc=size=300x300:rate=1 -frames:v 1 cover-300x300.jpg
ff -f lavfi -i smptebars=size=100x200:rate=1 -frames:v 1 back-100x200.png
# No tags from ffmpeg: orvic-id3writer writes every one of them.
ff -f lavfi -i sine=frequency=440:duration=3:sample_rate=44100 -ac 2 -c:a libmp3lame -b:a 128k \
   -id3v2_version 0 -write_id3v1 0 audio.mp3

# --- (a) legacy bytes: GBK in Latin-1 ID3v2.3 frames, windows-1251 in ID3v1 --
v1_tags=(
    --v1 "title=$(hex CP1251 'Тихая ночь над рекой')"
    --v1 "artist=$(hex CP1251 'Хор Московской филармонии')"
    --v1 "album=$(hex CP1251 'Русские народные песни')"
    --v1 "comment=$(hex CP1251 'Песня о родной земле')"
    --v1-year 1999 --v1-genre 13
)
cp audio.mp3 tagged-gbk.mp3
"$writer" tagged-gbk.mp3 --v2-version 3 \
    --latin1 "TIT2=$(hex GBK '春天的故事在这里开始')" \
    --latin1 "TPE1=$(hex GBK '北京爱乐乐团与合唱团')" \
    --latin1 "TALB=$(hex GBK '中国民歌精选第二辑')" \
    --latin1 "COMM=$(hex GBK '这是一段用于测试的中文注释')" \
    --latin1 "TCON=$(hex GBK '流行音乐')" \
    --latin1 "TDRC=$(hex ASCII '2023')" \
    --picture 3=cover-640x480.jpg \
    "${v1_tags[@]}"

cp audio.mp3 tagged-v1only.mp3
"$writer" tagged-v1only.mp3 "${v1_tags[@]}"

cp audio.mp3 tagged-unicode.mp3
"$writer" tagged-unicode.mp3 --v2-version 4 \
    --unicode 'TIT2=Привет, 世界: a title in UTF-8' \
    --latin1 "TPE1=$(hex ASCII 'Plain ASCII Artist')" \
    --unicode 'TALB=Ünïcödé Album' \
    --picture 4=back-100x200.png \
    --picture 3=cover-300x300.jpg

# A title of 300 bytes and a full date, more than the session's fields hold.
cp audio.mp3 tagged-long.mp3
"$writer" tagged-long.mp3 --v2-version 4 \
    --latin1 "TIT2=$(hex ASCII "$(printf 'Long title %03d ' $(seq 1 20))")" \
    --unicode 'TDRC=2024-05-01'

# --- (b) movie: H.264, two AAC tracks with languages, mov_text subtitles ----
cat > subtitles.srt <<'EOF'
1
00:00:00,500 --> 00:00:01,500
First subtitle line

2
00:00:02,000 --> 00:00:03,000
Second subtitle line
EOF
ff -f lavfi -i testsrc=size=320x240:rate=25:duration=4 \
   -f lavfi -i sine=frequency=440:duration=4:sample_rate=48000 \
   -f lavfi -i sine=frequency=880:duration=4:sample_rate=44100 \
   -i subtitles.srt \
   -map 0:v -map 1:a -map 2:a -map 3:s \
   -c:v libx264 -preset veryfast -pix_fmt yuv420p \
   -c:a aac -b:a 96k -ac:a:0 2 -ac:a:1 1 -c:s mov_text \
   -metadata:s:a:0 language=eng -metadata:s:a:1 language=fre -metadata:s:s:0 language=eng \
   -metadata title="Sample movie" -movflags +faststart movie.mp4
# Pictures without sound.
ff -f lavfi -i testsrc=size=176x144:rate=10:duration=2 -c:v libx264 -preset veryfast -pix_fmt yuv420p \
   -movflags +faststart video-only.mp4
ff -f lavfi -i smptebars=size=320x240:rate=25:duration=3 -f lavfi -i sine=frequency=440:duration=3 \
   -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac -b:a 64k -movflags +faststart bars.mp4

# --- (c) hostile files -------------------------------------------------------
mkdir hostile
: > hostile/zero.mp3
: > hostile/zero.mp4
# Text that no demuxer takes for media.
yes 'This is plain text, not a media file.' | head -c 65536 > hostile/garbage.mp3 || true
cp hostile/garbage.mp3 hostile/garbage.mp4
# Cut inside the cover picture of the ID3v2 tag, and in the middle of the audio.
head -c 12000 tagged-gbk.mp3 > hostile/truncated-in-tag.mp3
head -c "$(( $(stat -c %s tagged-gbk.mp3) * 2 / 3 ))" tagged-gbk.mp3 > hostile/truncated-audio.mp3
# Without its end the movie loses the sample tables' media data: half a file.
head -c "$(( $(stat -c %s movie.mp4) / 2 ))" movie.mp4 > hostile/truncated.mp4
# The index (moov, first with +faststart) overwritten with 0xff bytes.
cp movie.mp4 hostile/corrupt.mp4
head -c 4096 /dev/zero | tr '\0' '\377' | dd of=hostile/corrupt.mp4 bs=1 seek=40 conv=notrunc status=none
# Right content, wrong name.
cp movie.mp4 hostile/movie-named.mp3
cp tagged-gbk.mp3 hostile/audio-named.mp4
# An ID3v2 tag claiming 256 MB and a title frame claiming 2 GB, then audio.
{
    printf 'ID3\003\000\000\177\177\177\177'
    printf 'TIT2\177\377\377\360\000\000\000Huge'
    cat audio.mp3
} > hostile/huge-tag.mp3
# Well-formed 40-byte ID3v2 tags whose only frame claims far more than the tag
# holds: a v2.3 title frame of 2 GB, a v2.4 picture frame of 256 MB.
pad() { head -c "$1" /dev/zero; }
{
    printf 'ID3\003\000\000\000\000\000\050'
    printf 'TIT2\177\377\377\360\000\000\000Huge frame'; pad 19
    cat audio.mp3
} > hostile/huge-frame.mp3
{
    printf 'ID3\004\000\000\000\000\000\050'
    printf 'APIC\177\177\177\177\000\000\000image/jpeg\000\003\000\377\330'; pad 8
    cat audio.mp3
} > hostile/huge-picture-frame.mp3
# A real cover of 7000x6000 pixels (42 megapixels): over the reader's limit.
ff -f lavfi -i color=c=0x336699:s=7000x6000:d=1 -frames:v 1 huge-cover.jpg
cp audio.mp3 hostile/huge-cover.mp3
"$writer" hostile/huge-cover.mp3 --latin1 "TIT2=$(hex ASCII 'Huge cover')" --picture 3=huge-cover.jpg
# A 300x300 cover whose JPEG header claims 16000x16000 pixels.
cp cover-300x300.jpg forged-cover.jpg
sof=$(LC_ALL=C grep -obUaP '\xff\xc0' forged-cover.jpg | head -n 1 | cut -d: -f1)
printf '\076\200\076\200' | dd of=forged-cover.jpg bs=1 seek=$(( sof + 5 )) conv=notrunc status=none
cp audio.mp3 hostile/forged-cover.mp3
"$writer" hostile/forged-cover.mp3 --latin1 "TIT2=$(hex ASCII 'Forged cover')" --picture 3=forged-cover.jpg
# A cover that starts like a JPEG and goes on as noise.
{ printf '\377\330\377\340'; head -c 2000 hostile/garbage.mp3; } > bad-cover.jpg
cp audio.mp3 hostile/bad-cover.mp3
"$writer" hostile/bad-cover.mp3 --latin1 "TIT2=$(hex ASCII 'Bad cover')" --picture 3=bad-cover.jpg

rm -f audio.mp3 subtitles.srt huge-cover.jpg forged-cover.jpg bad-cover.jpg
trap - EXIT
rm -rf "$out"
mv "$work" "$out"
chmod 755 "$out"
echo "make-samples: media in $out"
