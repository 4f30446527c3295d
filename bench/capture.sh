#!/usr/bin/env bash
# Screen capture at 1920x1080 and 60 frames a second for 30 s under a private Xvfb, with a
# client scrolling a full-screen page of text-like lines and a moving box (every pixel
# changes every frame): `orvelle capture --display` side by side with `ffmpeg -f x11grab`
# into the same codec at the same settings (x264 ultrafast, zerolatency with two frame
# threads, quantiser 18, a keyframe a second, yuv420p, mov). Reports for each the frames
# written of the 1800 the clock asked for, the dropped frames (goal: 0), the processor time
# per captured frame (goal: no more than ffmpeg's), the X server's processor time (it
# copies the pixels for both), the file size and the load average, since the machine is
# shared.
# First, the screen track's codec candidates on 180 pictures of the same page (recorded
# raw): processor time per picture (the conversion from BGRX included) and bit rate, for
# x264 ultrafast at a fixed quantiser and at a constant quality, superfast (live, a
# keyframe a second), ProRes 422 Proxy at a fixed quantiser, and Motion JPEG.
# Usage: bench/capture.sh BUILD_DIR [SECONDS]
set -euo pipefail
build=${1:-build/release}
seconds=${2:-30}
orvelle="$build/bin/orvelle"
painter="$build/bin/orvelle-x11-painter"
work="$build/bench-media/capture"
rm -rf "$work"
mkdir -p "$work"

json_field() { # file, field
  /usr/bin/python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))[sys.argv[2]])' "$1" "$2"
}

cpu_of_pid() { # user+system ticks of a process so far
  awk '{ print $14 + $15 }' "/proc/$1/stat"
}

exec 3>"$work/display"
Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp -noreset >/dev/null 2>&1 &
xvfb=$!
exec 3>&-
cleanup() {
  [[ -n "${painter_pid:-}" ]] && kill "$painter_pid" 2>/dev/null || true
  kill "$xvfb" 2>/dev/null || true
  wait 2>/dev/null || true
}
trap cleanup EXIT
for _ in $(seq 100); do
  [[ -s "$work/display" ]] && break
  sleep 0.1
done
display=":$(head -n 1 "$work/display")"
export DISPLAY=$display XDG_SESSION_TYPE=x11
unset WAYLAND_DISPLAY
"$painter" --mode scroll --geometry 1920x1080+0+0 --title Scroll --ready "$work/ready" &
painter_pid=$!
for _ in $(seq 100); do
  [[ -s "$work/ready" ]] && break
  sleep 0.1
done
# The codec candidates, each from the same raw pictures.
ffmpeg -v error -y -f x11grab -framerate 60 -video_size 1920x1080 -draw_mouse 0 -i "$display+0,0" \
  -frames:v 180 -c:v rawvideo -f nut "$work/raw.nut"
raw_seconds=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$work/raw.nut")
echo "Codec candidates on 180 pictures of the scrolling page (${raw_seconds} s as recorded):"
printf '%-34s %14s %10s\n' codec "cpu/picture" "Mbit/s"
candidate() { # name, output, then encoder options
  local name=$1 out=$2 log
  shift 2
  log=$(mktemp)
  /usr/bin/time -f '%U %S' -o "$log" ffmpeg -v error -y -i "$work/raw.nut" -fps_mode passthrough \
    "$@" "$out"
  local size=0
  [[ -f "$out" ]] && size=$(stat -c %s "$out")
  awk -v n="$name" -v s="$size" -v d="$raw_seconds" \
    '{ printf "%-34s %11.2f ms %10.1f\n", n, ($1 + $2) * 1000 / 180, s * 8 / d / 1e6 }' "$log"
}
candidate "(reading, BGRX to yuv420p only)" - -pix_fmt yuv420p -f null
candidate "(reading, BGRX to yuv422p10 only)" - -pix_fmt yuv422p10le -f null
candidate "x264 ultrafast, quantiser 18 (chosen)" "$work/c0.mov" -c:v libx264 -preset ultrafast \
  -tune zerolatency -x264-params sliced-threads=0 -threads 2 -qp 18 -g 60 -pix_fmt yuv420p
candidate "x264 ultrafast, CRF 20" "$work/c1.mov" -c:v libx264 -preset ultrafast \
  -tune zerolatency -crf 20 -g 60 -pix_fmt yuv420p
candidate "x264 superfast, CRF 20" "$work/c2.mov" -c:v libx264 -preset superfast \
  -tune zerolatency -crf 20 -g 60 -pix_fmt yuv420p
candidate "ProRes 422 Proxy, quantiser 8" "$work/c3.mov" -c:v prores_ks -profile:v proxy \
  -qscale:v 8 -pix_fmt yuv422p10le
candidate "Motion JPEG, quality 5" "$work/c4.mov" -c:v mjpeg -q:v 5 -pix_fmt yuvj420p
rm -f "$work/raw.nut"
echo

screen_id=$("$orvelle" sources --json | /usr/bin/python3 -c 'import json,sys; print(json.load(sys.stdin)["displays"][0]["id"])')
ticks=$(getconf CLK_TCK)
expected=$((seconds * 60))

measure() { # name, then the command; prints "CPU XCPU" seconds; its output in $work/NAME.out
  local log x0 x1
  log=$(mktemp)
  x0=$(cpu_of_pid "$xvfb")
  local name=$1
  shift
  /usr/bin/time -f '%U %S' -o "$log" "$@" >"$work/$name.out" 2>"$work/$name.err" || true
  x1=$(cpu_of_pid "$xvfb")
  awk -v t="$ticks" -v x=$((x1 - x0)) '{ printf "%.2f %.2f\n", $1 + $2, x / t }' "$log"
}

load_before=$(cut -d ' ' -f 1 /proc/loadavg)
read -r ours_cpu ours_x <<<"$(measure ours "$orvelle" capture --display "$screen_id" \
  --seconds "$seconds" -o "$work/ours.mov" --json)"
read -r ffmpeg_cpu ffmpeg_x <<<"$(measure ffmpeg ffmpeg -v error -y -f x11grab -framerate 60 \
  -video_size 1920x1080 -draw_mouse 0 -i "$display+0,0" -t "$seconds" -fps_mode passthrough \
  -c:v libx264 -preset ultrafast -tune zerolatency -x264-params sliced-threads=0 -threads 2 \
  -qp 18 -g 60 -pix_fmt yuv420p "$work/ffmpeg.mov")"
load_after=$(cut -d ' ' -f 1 /proc/loadavg)

count_frames() {
  ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames \
    -of csv=p=0 "$1"
}
ours_frames=$(count_frames "$work/ours.mov")
ffmpeg_frames=$(count_frames "$work/ffmpeg.mov")
ours_size=$(stat -c %s "$work/ours.mov")
ffmpeg_size=$(stat -c %s "$work/ffmpeg.mov")

printf '1920x1080 at 60 fps for %s s (%s frames asked for); load average %s before, %s after\n' \
  "$seconds" "$expected" "$load_before" "$load_after"
printf '%-8s %8s %8s %10s %12s %10s %10s\n' tool frames dropped "cpu (s)" "cpu/frame" "X cpu (s)" "MB"
row() { # name frames cpu xcpu size
  awk -v n="$1" -v f="$2" -v e="$expected" -v c="$3" -v x="$4" -v s="$5" 'BEGIN {
    d = e - f; if (d < 0) d = 0
    printf "%-8s %8d %8d %10.2f %9.2f ms %10.2f %10.1f\n", n, f, d, c, c * 1000 / f, x, s / 1e6 }'
}
row orvelle "$ours_frames" "$ours_cpu" "$ours_x" "$ours_size"
row ffmpeg "$ffmpeg_frames" "$ffmpeg_cpu" "$ffmpeg_x" "$ffmpeg_size"
printf 'orvelle by its own count: %s dropped (%s by the capture clock, %s by the writer), writer lag at most %s s\n' \
  "$(json_field "$work/ours.out" droppedFrames)" "$(json_field "$work/ours.out" framesSkippedByCapture)" \
  "$(json_field "$work/ours.out" framesDroppedByWriter)" "$(json_field "$work/ours.out" writerLagMax)"
