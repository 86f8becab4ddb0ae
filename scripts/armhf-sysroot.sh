#!/usr/bin/env bash
# Makes (or reuses) the Debian armhf sysroot that the 32-bit ARM build
# compiles, links and runs its tests against, and prints its path.
#
#   scripts/armhf-sysroot.sh            path of a ready sysroot on stdout
#   scripts/armhf-sysroot.sh --rebuild  throw the cached one away first
#
# The sysroot lives outside the clone, in ${ORVIC_CACHE_DIR:-/var/cache/orvic}
# (or ~/.cache/orvic when that is not writable), under a name derived from the
# release and the package list, so a changed list makes a new one and an
# unchanged one is reused by every later run on the machine.
#
# Packages come from the Debian archive this machine's apt already uses. Only
# the release and its -updates suite are taken: foreign-architecture indexes of
# the security suite lag behind on mirrors and make apt refuse the whole set,
# and the build needs a consistent toolchain, not the latest security fixes.
set -euo pipefail
cd "$(dirname "$0")/.."

# What the build needs of the target: Qt 5 base and multimedia, uchardet, the
# C and C++ runtime, and TagLib and FFmpeg for the PC platform's metadata
# reader. Add here what a new dependency needs.
SYSROOT_PACKAGES=(
    qtbase5-dev qtmultimedia5-dev libqt5multimedia5-plugins
    libuchardet-dev libc6-dev libstdc++-12-dev
    libtag1-dev libavformat-dev libavcodec-dev libavutil-dev libswscale-dev
)
ARCH=armhf

log() { echo "armhf-sysroot: $*" >&2; }

rebuild=0
[ "${1:-}" = "--rebuild" ] && rebuild=1

# Host tools: the cross compiler, qemu user mode (runs the ARM tests) and mmdebstrap.
bash scripts/install-deps.sh --cross-armhf >&2

# shellcheck disable=SC1091
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:?no VERSION_CODENAME in /etc/os-release}")

cache=${ORVIC_CACHE_DIR:-/var/cache/orvic}
if ! mkdir -p "$cache" 2>/dev/null || [ ! -w "$cache" ]; then
    cache=${XDG_CACHE_HOME:-$HOME/.cache}/orvic
    mkdir -p "$cache"
fi
key=$(printf '%s\n' "$codename" "$ARCH" "${SYSROOT_PACKAGES[@]}" | sha256sum | cut -c1-12)
root="$cache/sysroot-$codename-$ARCH-$key"

# One maker at a time per cache; a second CI run waits and then reuses.
exec 9>"$cache/.sysroot.lock"
flock 9

if [ "$rebuild" -eq 1 ]; then
    rm -rf "$root"
fi
if [ -f "$root/.orvic-sysroot-complete" ]; then
    log "reusing $root"
    echo "$root"
    exit 0
fi

# The machine's own Debian archive entries for the release and its updates,
# as apt itself resolved them from the configured sources.
mapfile -t sources < <(
    apt-get indextargets --no-release-info \
        --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Identifier: Packages' |
    awk -v rel="$codename" '$2 == rel || $2 == rel "-updates" { print "deb " $1 " " $2 " " $3 }' |
    sort -u)
if [ ${#sources[@]} -eq 0 ]; then
    log "no apt source for $codename found in this machine's apt configuration"
    exit 1
fi

tmp="$root.tmp.$$"
rm -rf "$tmp"
trap 'rm -rf "$tmp"' EXIT
log "making $root from: ${sources[*]}"
start=$(date +%s)
include=$(IFS=,; echo "${SYSROOT_PACKAGES[*]}")
mmdebstrap --quiet --variant=extract --architectures="$ARCH" \
    --include="$include" "$codename" "$tmp" "${sources[@]}" >&2

# Absolute symbolic links (libz.so -> /lib/...) would point into the build
# machine's own libraries: make them relative to the sysroot.
while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$tmp$target")" "$link"
done < <(find "$tmp/lib" "$tmp/usr/lib" -type l -lname '/*' -print0)

touch "$tmp/.orvic-sysroot-complete"
rm -rf "$root"
mv "$tmp" "$root"
trap - EXIT
log "ready in $(( $(date +%s) - start )) s ($(du -sh "$root" | cut -f1))"

# Older sysroots of other package lists are not needed any more.
for old in "$cache"/sysroot-*-"$ARCH"-*; do
    [ "$old" = "$root" ] || [ ! -d "$old" ] || { log "removing stale $old"; rm -rf "$old"; }
done
echo "$root"
