#!/usr/bin/env bash
# The export against a plain transcode: `orvelle export` of a take (zooms, pointer, wallpaper,
# mixed sound) side by side with `ffmpeg` re-encoding the same screen movie and its sound with
# the same encoder, preset and bit rate and no compositing. Reports wall times, their ratio
# (goal: at most 1.25) and peak memory (goal: flat in the movie's length), for H.264 in mp4
# at `high` and ProRes 422 Proxy in mov, with the load average and the CPU time each used,
# since the machine is shared and wall times move with the load.
# Takes: the 20 s sample take (1920x1080, 30 fps) and a 60 s 1920x1080 take at 60 fps.
# Usage: bench/export_vs_ffmpeg.sh BUILD_DIR [TAKE_NAMES...]   (sample, long)
set -euo pipefail
build=${1:-build/release}
shift || true
takes=("${@:-sample long}")
orvelle="$build/bin/orvelle"
media="$build/bench-media/export"
mkdir -p "$media"

make_take() { # name, then options of orvelle sample-take
  local name=$1
  shift
  if [[ ! -s "$media/$name/done" ]]; then
    rm -rf "${media:?}/$name"
    "$orvelle" sample-take "$media/$name" "$@" --json >"$media/$name.json" 2>/dev/null
    echo yes >"$media/$name/done"
  fi
}

json_field() { # file, field
  /usr/bin/python3 -c 'import json,sys; v=json.load(open(sys.argv[1]))[sys.argv[2]]; print(v)' "$1" "$2"
}

path_of() { # a file URL as a path
  /usr/bin/python3 -c 'import sys,urllib.parse; print(urllib.parse.unquote(urllib.parse.urlparse(sys.argv[1]).path))' "$1"
}

timed() { # wall seconds, CPU seconds and peak resident kB of a command: "WALL CPU KB"
  local log
  log=$(mktemp)
  /usr/bin/time -f '%e %U %S %M' -o "$log" "$@" >/dev/null 2>&1
  awk '{ printf "%s %.2f %s\n", $1, $2 + $3, $4 }' "$log"
  rm -f "$log"
}

printf '%-6s %-4s %6s | %8s %8s %6s | %8s %8s %6s | %8s %8s | %s\n' take kind frames \
  'orvelle' 'ffmpeg' 'ratio' 'cpu ours' 'cpu ff' 'ratio' 'MB ours' 'MB ff' 'load 1/5 min'
for take in ${takes[*]}; do
  case $take in
  sample) make_take sample ;;
  long) make_take long --width 1920 --fps 60 --duration 60 ;;
  *) echo "unknown take $take" >&2; exit 2 ;;
  esac
  manifest=$(path_of "$(json_field "$media/$take.json" manifestURL)")
  screen=$(path_of "$(json_field "$media/$take.json" screenURL)")
  microphone=$(path_of "$(json_field "$media/$take.json" microphoneURL)")
  for format in mp4 mov; do
    out="$media/$take-orvelle.$format"
    reference="$media/$take-ffmpeg.$format"
    "$orvelle" export "$manifest" -o "$out" --quality high --dry-run --json >"$media/settings.json"
    width=$(json_field "$media/settings.json" width)
    height=$(json_field "$media/settings.json" height)
    fps=$(json_field "$media/settings.json" fps)
    duration=$(json_field "$media/settings.json" duration)
    if [[ $format == mp4 ]]; then
      bitrate=$(json_field "$media/settings.json" videoBitRate)
      # a keyframe every 2 s, as the export writes them
      video=(-c:v libx264 -preset faster -profile:v high -pix_fmt yuv420p -b:v "$bitrate" -g $((fps * 2)))
    else
      video=(-c:v prores_ks -profile:v 0 -qscale:v 8 -pix_fmt yuv422p10le)
    fi
    read -r ours ours_cpu ours_kb < <(timed "$orvelle" export "$manifest" -o "$out" --quality high)
    read -r theirs theirs_cpu theirs_kb < <(timed ffmpeg -v error -y -i "$screen" -i "$microphone" \
      -map 0:v:0 -map 1:a:0 -t "$duration" -s "${width}x${height}" -r "$fps" "${video[@]}" \
      -c:a aac -b:a 192k -ar 48000 -ac 2 "$reference")
    frames=$(awk -v d="$duration" -v f="$fps" 'BEGIN { printf "%d", d * f + 0.999 }')
    load=$(cut -d' ' -f1,2 /proc/loadavg)
    awk -v t="$take" -v fm="$format" -v n="$frames" -v o="$ours" -v r="$theirs" \
      -v oc="$ours_cpu" -v rc="$theirs_cpu" -v ok="$ours_kb" -v rk="$theirs_kb" -v l="$load" \
      'BEGIN { printf "%-6s %-4s %6d | %7.1fs %7.1fs %6.2f | %7.1fs %7.1fs %6.2f | %8.0f %8.0f | %s\n",
               t, fm, n, o, r, o / r, oc, rc, oc / rc, ok / 1024, rk / 1024, l }'
  done
done
