#!/usr/bin/env bash
# Speed and quality of transcription on a talk of about ten minutes spoken by flite from a known script
# (bench/transcription_script.txt), with pauses between sentences and hesitations ("Um,", "uh,") spoken
# the way people hesitate: drawn out (flite says them in a tenth of a second), between pauses, no two
# alike. Prints, for Morvane and for pocketsphinx's own command-line decoder on the same audio (same
# model), the word error rate against the script, how many of the hesitations come out as fillers, how
# far word start times fall from flite's word boundaries, and the real-time factor; FFmpeg decoding the
# file once gives the floor.
# Usage: bench/transcription.sh [--engine pocketsphinx|whisper]   (the talk is generated once into
# $MORVANE_BENCH_CACHE or build/bench-cache). Build first (scripts/build.sh).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
dir="$cache/transcription"
morvane="$root/build/bin/morvane"
score="$root/build/bin/bench_transcription_score"
engine="pocketsphinx"
[ "${1:-}" = "--engine" ] && engine="$2"
[ -x /usr/bin/time ] || { echo "transcription: /usr/bin/time is missing (scripts/setup.sh installs it)" >&2; exit 1; }

voice=slt
pace=1.2  # flite speaks fast; a tutorial is slower (about 150 words a minute)
gaps=(0.35 0.9 0.5 1.4 0.6 0.45 2.2 0.7 0.4 1.0)  # between sentences, some long enough to look at notes
holds=(1.5 2.25 1.75 2.5 2.0)                      # how much slower than flite's own a hesitation is said
pitches=(150 195 170)

# Appends "word<TAB>start<TAB>end<TAB>filler" rows for the words of `text` spoken in `wav` (flite's
# phone timings, "pau" skipped, each word taking as many phones as flite's lexicon gives it), shifted by
# `offset` seconds. Words whose phones can't be matched get "-" times.
reference_rows() {
  local text="$1" phones="$2" offset="$3" filler="$4" counts="" w
  for w in $text; do
    w="$(printf '%s' "$w" | tr 'A-Z' 'a-z' | tr -cd "a-z'")"
    [ -z "$w" ] && continue
    counts+="$w:$(t2p "$w" | wc -w) "
  done
  awk -v counts="$counts" -v phones="$phones" -v offset="$offset" -v filler="$filler" 'BEGIN {
    nw = split(counts, words, " "); np = split(phones, ph, " ")
    k = 0; prev = 0
    for (i = 1; i <= np; i++) { split(ph[i], p, ":"); if (p[1] == "pau") { prev = p[2]; continue }
      k++; name[k] = p[1]; start[k] = prev; stop[k] = p[2]; prev = p[2] }
    need = 0
    for (i = 1; i <= nw; i++) { split(words[i], wc, ":"); n[i] = wc[2] - 2; need += n[i]; word[i] = wc[1] }
    at = 1
    for (i = 1; i <= nw; i++) {
      if (need != k) { printf "%s\t-\t-\t%d\n", word[i], filler; continue }
      printf "%s\t%.3f\t%.3f\t%d\n", word[i], offset + start[at], offset + stop[at + n[i] - 1], filler
      at += n[i]
    }
  }'
}

generate() {
  local work
  work="$(mktemp -d "$cache/morvane-gen.XXXXXX")"
  trap 'rm -rf "$work"; trap - RETURN' RETURN
  local pieces=() rows="$work/reference.tsv" offset=0 n=0 line i=0 k=0
  : >"$rows"
  speak() {  # text, stretch, filler flag, pitch (Hz; flite's own when empty)
    local wav="$work/p$n.wav" phones pitch=()
    [ -n "${4:-}" ] && pitch=(--setf int_f0_target_mean="$4")
    phones="$(flite -voice "$voice" --setf duration_stretch="$2" "${pitch[@]}" -psdur -t "$1" -o "$wav")"
    reference_rows "$1" "$phones" "$offset" "$3" >>"$rows"
    pieces+=("$wav")
    offset="$(awk -v a="$offset" -v b="$(soxi -D "$wav")" 'BEGIN { printf "%.6f", a + b }')"
    n=$((n + 1))
  }
  while IFS= read -r line; do
    local chunk="" word
    for word in $line; do
      if [[ "$word" =~ ^[Uu][mh],$ ]]; then
        [ -n "$chunk" ] && speak "$chunk" "$pace" 0
        chunk=""
        # No two hesitations alike: held longer or shorter, pitched higher or lower.
        speak "$(printf '%s' "${word%,}" | tr 'A-Z' 'a-z')" "${holds[$((k % ${#holds[@]}))]}" 1 \
          "${pitches[$((k % ${#pitches[@]}))]}"
        k=$((k + 1))
      else
        chunk+="${chunk:+ }$word"
      fi
    done
    [ -n "$chunk" ] && speak "$chunk" "$pace" 0
    local gap="$work/g$n.wav"
    sox -n -r 16000 -c 1 -b 16 "$gap" trim 0 "${gaps[$((i % ${#gaps[@]}))]}"
    pieces+=("$gap")
    offset="$(awk -v a="$offset" -v b="$(soxi -D "$gap")" 'BEGIN { printf "%.6f", a + b }')"
    n=$((n + 1)); i=$((i + 1))
  done <"$root/bench/transcription_script.txt"
  sox "${pieces[@]}" "$work/talk.wav"
  # A recording as a phone or a camera would keep it: AAC at 48 kHz.
  ffmpeg -nostdin -y -loglevel error -i "$work/talk.wav" -c:a aac -b:a 128k -ar 48000 "$work/talk.m4a"
  mv "$work/talk.wav" "$dir/talk.wav"
  mv "$work/talk.m4a" "$dir/talk.m4a"
  mv "$rows" "$dir/reference.tsv"
}

mkdir -p "$dir"
if [ ! -f "$dir/reference.tsv" ]; then
  echo "transcription: speaking the script into $dir (once)" >&2
  generate
fi
seconds="$(soxi -D "$dir/talk.wav")"

source "$root/bench/measure.sh"
runs="${MORVANE_BENCH_RUNS:-1}"  # a run takes minutes
echo "talk: $dir/talk.m4a ($(awk -v s="$seconds" 'BEGIN { printf "%.1f", s / 60 }') min, $(wc -l <"$dir/reference.tsv") words); best of $runs runs, $(nproc) cores, load now: $(cut -d' ' -f1-3 /proc/loadavg)"

measure ffmpeg -nostdin -i "$dir/talk.m4a" -ac 1 -ar 16000 -f s16le -y /dev/null
row "ffmpeg decode-only" "$secs" "$mb"

measure "$morvane" transcribe "$dir/talk.m4a" --engine "$engine" -o "$dir/morvane.json"
mv_secs=$secs; mv_cpu=$cpu; row "morvane transcribe" "$secs" "$mb"

if command -v pocketsphinx_continuous >/dev/null; then
  measure pocketsphinx_continuous -infile "$dir/talk.wav" -time yes -logfn /dev/null
  ps_secs=$secs; ps_cpu=$cpu; row "pocketsphinx_continuous" "$secs" "$mb"
  pocketsphinx_continuous -infile "$dir/talk.wav" -time yes -logfn /dev/null >"$dir/pocketsphinx.txt" 2>/dev/null
fi

echo
echo "morvane ($engine): real-time factor $(ratio "$mv_secs" "$seconds") elapsed, $(ratio "$mv_cpu" "$seconds") CPU"
"$score" "$dir/reference.tsv" "$dir/morvane.json"
if [ -n "${ps_secs:-}" ]; then
  echo
  echo "pocketsphinx_continuous: real-time factor $(ratio "$ps_secs" "$seconds") elapsed, $(ratio "$ps_cpu" "$seconds") CPU"
  "$score" "$dir/reference.tsv" "$dir/pocketsphinx.txt"
fi
