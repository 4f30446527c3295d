#!/usr/bin/env bash
# Decode throughput of a 1080p60 H.264 and a ProRes 422 Proxy movie: `orvelle media decode`
# against `ffmpeg -i SRC -f null -` on the same file, side by side. Goal: ratio >= 0.9.
# Usage: bench/decode_throughput.sh BUILD_DIR
set -euo pipefail
build=${1:-build/release}
orvelle="$build/bin/orvelle"
media="$build/bench-media"
mkdir -p "$media"
seconds=${DECODE_SECONDS:-10}
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

best_of() { # best wall time of three runs of a command, in seconds
  local best=""
  for _ in 1 2 3; do
    local start end took
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1
    end=$(date +%s.%N)
    took=$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')
    best=$(awk -v t="$took" -v b="$best" 'BEGIN { print (b == "" || t < b) ? t : b }')
  done
  echo "$best"
}

frames=$((seconds * 60))
printf '%-10s %-8s %10s %10s %8s\n' source layout orvelle ffmpeg ratio
for source in "$h264" "$prores"; do
  reference=$(best_of ffmpeg -v error -i "$source" -f null -)
  for layout in yuv420p bgra; do
    ours=$(best_of "$orvelle" media decode "$source" --layout "$layout")
    awk -v n="$(basename "${source##*-}" | cut -d. -f1)" -v l="$layout" -v f="$frames" \
      -v o="$ours" -v r="$reference" \
      'BEGIN { printf "%-10s %-8s %8.0f/s %8.0f/s %8.2f\n", n, l, f / o, f / r, r / o }'
  done
done
