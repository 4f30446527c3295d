#!/usr/bin/env bash
# The export against two `ffmpeg` runs with the same encoder, preset and bit rate:
#   transcode  re-encodes the take's screen movie and its sound, with no compositing;
#   re-encode  re-encodes our own finished movie, so the encoder sees content of the same
#              difficulty: that is the floor the export stands on, since decoding, rendering,
#              conversion and mixing should hide behind the encoder (goal: at most 1.10).
# Wall times, their ratios, the CPU time each used and peak memory (goal: flat in the
# movie's length), for H.264 in mp4 at `high` and ProRes 422 Proxy in mov. The machine is
# shared, so the three run back to back REPS times (default 3) in turn, each figure is the
# median of its runs, and the load average is printed beside them.
# Takes: the 20 s sample take (1920x1080, 30 fps) and a 60 s 1920x1080 take at 60 fps.
# Usage: bench/export_vs_ffmpeg.sh BUILD_DIR [TAKE_NAMES...]   (sample, long)
#        FORMATS="mp4" REPS=5 bench/export_vs_ffmpeg.sh build/release sample
set -euo pipefail
build=${1:-build/release}
shift || true
takes=("${@:-sample long}")
formats=${FORMATS:-mp4 mov}
reps=${REPS:-3}
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

median() { # of the numbers on standard input
  sort -g | awk '{ v[NR] = $1 } END { print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

printf '%-6s %-4s %6s | %7s %9s %9s | %7s %7s | %6s %6s %6s | %s\n' take kind frames \
  'orvelle' 'transcode' 're-encode' 'ratio t' 'ratio r' 'cpu us' 'cpu re' 'MB us' \
  'load 1/5 min, before .. after'
for take in ${takes[*]}; do
  case $take in
  sample) make_take sample ;;
  long) make_take long --width 1920 --fps 60 --duration 60 ;;
  *) echo "unknown take $take" >&2; exit 2 ;;
  esac
  manifest=$(path_of "$(json_field "$media/$take.json" manifestURL)")
  screen=$(path_of "$(json_field "$media/$take.json" screenURL)")
  microphone=$(path_of "$(json_field "$media/$take.json" microphoneURL)")
  for format in $formats; do
    out="$media/$take-orvelle.$format"
    reference="$media/$take-ffmpeg.$format"
    reencoded="$media/$take-reencoded.$format"
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
    audio=(-c:a aac -b:a 192k -ar 48000 -ac 2)
    load_before=$(cut -d' ' -f1,2 /proc/loadavg)
    runs=$(mktemp)
    for ((rep = 0; rep < reps; ++rep)); do
      read -r ours ours_cpu ours_kb < <(timed "$orvelle" export "$manifest" -o "$out" --quality high)
      read -r transcode _ _ < <(timed ffmpeg -v error -y -i "$screen" -i "$microphone" \
        -map 0:v:0 -map 1:a:0 -t "$duration" -s "${width}x${height}" -r "$fps" "${video[@]}" \
        "${audio[@]}" "$reference")
      read -r reencode reencode_cpu _ < <(timed ffmpeg -v error -y -i "$out" \
        -map 0:v:0 -map '0:a:0?' "${video[@]}" "${audio[@]}" "$reencoded")
      echo "$ours $ours_cpu $ours_kb $transcode $reencode $reencode_cpu" >>"$runs"
    done
    load_after=$(cut -d' ' -f1,2 /proc/loadavg)
    column() { cut -d' ' -f"$1" "$runs" | median; }
    frames=$(awk -v d="$duration" -v f="$fps" 'BEGIN { printf "%d", d * f + 0.999 }')
    # each run's own ratio, then their median: both tools saw the same load
    ratio_t=$(awk '{ print $1 / $4 }' "$runs" | median)
    ratio_r=$(awk '{ print $1 / $5 }' "$runs" | median)
    awk -v t="$take" -v fm="$format" -v n="$frames" -v o="$(column 1)" -v tr="$(column 4)" \
      -v re="$(column 5)" -v rt="$ratio_t" -v rr="$ratio_r" -v oc="$(column 2)" \
      -v rc="$(column 6)" -v ok="$(column 3)" -v l="$load_before .. $load_after" \
      'BEGIN { printf "%-6s %-4s %6d | %6.1fs %8.1fs %8.1fs | %7.2f %7.2f | %5.1fs %5.1fs %6.0f | %s\n",
               t, fm, n, o, tr, re, rt, rr, oc, rc, ok / 1024, l }'
    rm -f "$runs"
  done
done
