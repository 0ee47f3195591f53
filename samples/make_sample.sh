#!/usr/bin/env bash
# Makes the bundled sample: about a minute of a talking-head-like recording. A figure sways in front of a
# slowly changing backdrop while a synthetic voice (flite) talks through cutting a video by its words,
# with what a real take has: "um" and "uh" fillers, a false start, a sentence said twice (a retake) and
# long pauses. Built at build time, so no binary media lives in the repository.
# Usage: samples/make_sample.sh OUTPUT.mp4   (needs flite, sox and ffmpeg; scripts/setup.sh installs them)
set -euo pipefail
out="${1:?usage: make_sample.sh OUTPUT.mp4}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# Each line: seconds of silence after the phrase, then the phrase.
script=(
  "0.6|Hi everyone, today I'm going to show you how to cut a video by its words."
  "2.2|It takes about a minute."
  "0.9|Um,"
  "1.2|so the first"
  "0.4|so the first thing you do is drop your recording on the window."
  "0.5|The app transcribes it on your own machine,"
  "0.3|uh,"
  "2.6|no upload needed."
  "0.7|Then you pick a cut."
  "0.5|Like, clean up removes the filler and the long pauses."
  "1.4|Uh,"
  "0.5|then you pick a cut."
  "0.6|Clean up removes the filler and the long pauses."
  "3.0|It keeps your best take and drops the rest."
  "0.8|You can also strike single words in the transcript, uh, and they are gone from the cut."
  "0.6|Um, when you like the rough cut, you accept it and export."
  "1.0|That's all there is to it."
)

# -R everywhere (and a seed for the backdrop): every build makes the same sample, so every run hears the same
# words.
pieces=()
n=0
for line in "${script[@]}"; do
  pause="${line%%|*}"
  text="${line#*|}"
  n=$((n + 1))
  flite -voice slt -t "$text" -o "$work/say$n.wav"
  sox -R -n -r 16000 -c 1 -b 16 "$work/pause$n.wav" trim 0 "$pause"
  pieces+=("$work/say$n.wav" "$work/pause$n.wav")
done
# A breath of room tone at the start, then the take; 48 kHz as cameras record.
sox -R -n -r 16000 -c 1 -b 16 "$work/lead.wav" trim 0 0.8
sox -R "$work/lead.wav" "${pieces[@]}" -r 48000 "$work/voice.wav"
seconds="$(soxi -D "$work/voice.wav")"

# The picture: a warm figure swaying in front of a slow gradient, 640x360 at 30 fps, a key frame every
# two seconds.
ffmpeg -nostdin -y -loglevel error \
  -f lavfi -i "gradients=s=640x360:r=30:c0=0x203040:c1=0x405878:speed=0.004:seed=1:d=$seconds" \
  -f lavfi -i "color=c=0xD8A07A:s=150x190:r=30:d=$seconds,format=yuva420p,geq=lum='lum(X,Y)':cb='cb(X,Y)':cr='cr(X,Y)':a='if(lt(pow((X-75)/75,2)+pow((Y-95)/95,2),1),255,0)'" \
  -f lavfi -i "color=c=0x2A3A5A:s=260x140:r=30:d=$seconds" \
  -i "$work/voice.wav" \
  -filter_complex "[0][2]overlay=x=190+14*sin(2*PI*t/5):y=250+4*sin(2*PI*t/3):eval=frame[b];[b][1]overlay=x=245+16*sin(2*PI*t/5):y=70+6*sin(2*PI*t/2.3):eval=frame,format=yuv420p[v]" \
  -map "[v]" -map 3:a -c:v libx264 -preset veryfast -crf 26 -g 60 -keyint_min 60 -sc_threshold 0 \
  -c:a aac -b:a 96k -ac 1 -ar 48000 -shortest -movflags +faststart "$work/talk.mp4"
mv "$work/talk.mp4" "$out"
