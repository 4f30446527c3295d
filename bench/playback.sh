#!/usr/bin/env bash
# The preview in real time: `orvelle play` on the sample take (1920x1080 at 30 fps, zooms
# planned from its pointer, motion blur) at a 1280x720 preview, 30 and 60 frames a second,
# into a private sound server (a PulseAudio null sink, whose clock is the master clock as a
# sound card's would be). Goals on two cores: no frame dropped at 30, under 1 % at 60. Then
# scrubbing: the time from a seek to its frame on screen (goal under 100 ms), the same from
# the frame cache, and the cache's memory. Beside it the floor set by decoding alone: ffmpeg
# decoding the take and scaling it to 1280x720, as frames a second.
# Usage: bench/playback.sh BUILD_DIR
set -euo pipefail
build=${1:-build/release}
orvelle="$(cd "$build" && pwd)/bin/orvelle"
work="$build/bench-media/playback"
mkdir -p "$work"
take="$work/take"
if [[ ! -f "$take/Orvelle Sample.take.json" ]]; then
  rm -rf "$take"
  "$orvelle" sample-take "$take" >/dev/null 2>&1
fi
manifest="$take/Orvelle Sample.take.json"

server=$(mktemp -d)
mkdir -m 700 "$server/runtime"
HOME="$server" XDG_RUNTIME_DIR="$server/runtime" pulseaudio -n --daemonize=no \
  --exit-idle-time=-1 --use-pid-file=no --log-target=stderr \
  -L "module-null-sink sink_name=bench rate=48000" \
  -L "module-native-protocol-unix auth-anonymous=1 socket=$server/runtime/pulse.sock" \
  2>"$server/log" &
daemon=$!
trap 'kill $daemon 2>/dev/null; wait $daemon 2>/dev/null; rm -rf "$server"' EXIT
export PULSE_SERVER="unix:$server/runtime/pulse.sock"
for _ in $(seq 100); do
  [[ -S "$server/runtime/pulse.sock" ]] && break
  sleep 0.1
done

field() { python3 -c "import json,sys; d=json.load(sys.stdin); print($1)"; }

printf '%-34s %8s %8s %8s %10s %8s\n' "" "shown" "dropped" "drop %" "offset ms" "sound"
for fps in 30 60; do
  json=$("$orvelle" play "$manifest" --size 1280x720 --fps "$fps" --json)
  read -r shown dropped offset sound <<<"$(field "d['shownFrames'], d['droppedFrames'], \
    round(d['largestAudioVideoOffset']*1000, 1), d['sound']" <<<"$json")"
  percent=$(awk -v d="$dropped" -v s="$shown" 'BEGIN { printf "%.2f", 100 * d / (d + s) }')
  printf '%-34s %8s %8s %8s %10s %8s\n' "orvelle play 1280x720 at $fps fps" "$shown" "$dropped" \
    "$percent" "$offset" "$sound"
done

json=$("$orvelle" play "$manifest" --size 1280x720 --fps 30 --scrub 40 --json)
echo
field "'seek to first frame: median %.1f ms, max %.1f ms; from the cache: median %.2f ms' % \
  (d['firstFrameMilliseconds']['median'], d['firstFrameMilliseconds']['max'], \
   d['cachedFirstFrameMilliseconds']['median'])" <<<"$json"
field "'frame cache after 40 seeks: %d frames, %.1f MB (limit %.0f MB)' % \
  (d['frameCache']['frames'], d['frameCache']['bytes'] / 1e6, d['frameCache']['byteLimit'] / 1e6)" \
  <<<"$json"

movie="$take/Orvelle Sample.mov"
start=$(date +%s.%N)
frames=$(ffmpeg -v error -i "$movie" -an -vf scale=1280:720 -f null - -progress pipe:1 |
  awk -F= '/^frame=/ { f = $2 } END { print f }')
end=$(date +%s.%N)
awk -v f="$frames" -v s="$start" -v e="$end" \
  'BEGIN { printf "ffmpeg decode + scale to 1280x720: %.0f frames a second\n", f / (e - s) }'
