#!/usr/bin/env bash
# Time to make the sample take (1920x1080 at 30 fps, 20 s) with `orvelle sample-take`, and
# beside it the floor set by its encoder: ffmpeg encoding the same 600 pictures with the
# same x264 settings (decoding them first is included, and is cheap). Goal: a few seconds
# of wall time on two cores.
# Usage: bench/sample_take.sh BUILD_DIR
set -euo pipefail
build=${1:-build/release}
orvelle="$build/bin/orvelle"
work="$build/bench-media/sample-take"
rm -rf "$work"
mkdir -p "$work"

measure() { # best wall time of three runs, with its user+system time: "wall cpu"
  local best="" cpu=""
  for _ in 1 2 3; do
    local line
    line=$( { TIMEFORMAT='%R %U %S'; time "$@" >/dev/null 2>&1; } 2>&1 | tail -n 1)
    read -r wall user system <<<"$line"
    if [[ -z "$best" ]] || awk -v a="$wall" -v b="$best" 'BEGIN { exit !(a < b) }'; then
      best=$wall
      cpu=$(awk -v u="$user" -v s="$system" 'BEGIN { print u + s }')
    fi
  done
  echo "$best $cpu"
}

read -r ours ours_cpu <<<"$(measure "$orvelle" sample-take "$work/take")"
movie="$work/take/Orvelle Sample.mov"
read -r floor floor_cpu <<<"$(measure ffmpeg -v error -i "$movie" -an -c:v libx264 \
  -preset ultrafast -profile:v high -b:v 5806080 -g 60 -f null -)"
printf '%-28s %8s %8s\n' "" "wall s" "cpu s"
printf '%-28s %8.2f %8.2f\n' "orvelle sample-take" "$ours" "$ours_cpu"
printf '%-28s %8.2f %8.2f\n' "ffmpeg x264 on its pictures" "$floor" "$floor_cpu"
