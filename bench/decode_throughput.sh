#!/usr/bin/env bash
# Decode throughput of a 1080p60 H.264 and a ProRes 422 Proxy movie: `orvelle media decode`
# against `ffmpeg -i SRC -f null -` on the same file, side by side. Goal: ratio >= 0.9.
# Each figure is the best of RUNS runs (default 3), taken in turns so that a change in the
# machine's load falls on both sides alike. Besides the wall-clock rates it prints the
# processor time ratio, which a busy machine disturbs less.
# Usage: bench/decode_throughput.sh BUILD_DIR
set -euo pipefail
build=${1:-build/release}
orvelle="$build/bin/orvelle"
media="$build/bench-media"
mkdir -p "$media"
seconds=${DECODE_SECONDS:-10}
runs=${RUNS:-3}
h264="$media/screen-1080p60-h264.mp4"
prores="$media/screen-1080p60-prores.mov"
# A moving test picture with fine detail, no audio: only the video decoders are compared.
if [[ ! -s "$h264" ]]; then
  ffmpeg -v error -y -f lavfi -i "testsrc2=s=1920x1080:r=60:d=$seconds" \
    -c:v libx264 -profile:v high -pix_fmt yuv420p -b:v 12M "$h264"
fi
if [[ ! -s "$prores" ]]; then
  ffmpeg -v error -y -f lavfi -i "testsrc2=s=1920x1080:r=60:d=$seconds" \
    -c:v prores_ks -profile:v 0 -qscale:v 8 -pix_fmt yuv422p10le "$prores"
fi

timing=$(mktemp)
trap 'rm -f "$timing"' EXIT
# Runs a command once; prints its wall time and its processor time (user + system).
measure() {
  /usr/bin/time -f '%e %U %S' -o "$timing" "$@" >/dev/null 2>&1
  awk '{ print $1, $2 + $3 }' "$timing"
}
smaller() { awk -v a="$1" -v b="$2" 'BEGIN { print (b == "" || a < b) ? a : b }'; }

frames=$((seconds * 60))
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg); best of $runs"
printf '%-7s %-8s %10s %10s %7s %9s\n' source layout orvelle ffmpeg ratio cpu-ratio
for source in "$h264" "$prores"; do
  for layout in yuv420p bgra; do
    ours_wall="" ours_cpu="" ref_wall="" ref_cpu=""
    for _ in $(seq "$runs"); do
      read -r wall cpu < <(measure ffmpeg -v error -i "$source" -f null -)
      ref_wall=$(smaller "$wall" "$ref_wall") ref_cpu=$(smaller "$cpu" "$ref_cpu")
      read -r wall cpu < <(measure "$orvelle" media decode "$source" --layout "$layout")
      ours_wall=$(smaller "$wall" "$ours_wall") ours_cpu=$(smaller "$cpu" "$ours_cpu")
    done
    name=$(basename "${source##*-}" | cut -d. -f1)
    awk -v n="$name" -v l="$layout" -v f="$frames" -v o="$ours_wall" -v r="$ref_wall" \
      -v oc="$ours_cpu" -v rc="$ref_cpu" \
      'BEGIN { printf "%-7s %-8s %8.0f/s %8.0f/s %7.2f %9.2f\n", n, l, f / o, f / r, r / o, rc / oc }'
  done
done
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
