#!/usr/bin/env bash
# Regenerates the WAV files in tests/data/interop/ with sox and ffmpeg, so the reader is
# checked against files written by other programs. The tests use only the committed
# files; this script is needed only to rebuild them (apt-get install sox ffmpeg).
#
# The sox files hold the same undithered signal (1 kHz left, 1.5 kHz right, peak 0.9 of
# full scale), so a test can compare the decoded formats with one another.
# manifest.txt lists for each file: rate, channels, format_code, frames, extensible
# (0/1) and the expected outcome ("ok" or the failure reason of the reader).
set -euo pipefail
cd "$(dirname "$0")/.."
out=tests/data/interop
mkdir -p "$out"
rm -f "$out"/*.wav

frames=300
# sox: -D disables dither; "synth ${frames}s" makes exactly that many sample frames.
sox_gen() {  # rate channels encoding bits type file
    local tones="sine 1000"
    [ "$2" = 2 ] && tones="sine 1000 sine 1500"
    sox -D -r "$1" -c "$2" -n -e "$3" -b "$4" -t "$5" "$out/$6" synth "${frames}s" $tones vol 0.9
}
# ffmpeg: lavfi sine tones (peak 1/8 of full scale), cut to exactly $frames samples.
# -fflags +bitexact keeps the encoder version out of the LIST chunk so reruns give
# identical files.
ffmpeg_gen() {  # rate channels codec file [extra options...]
    local rate=$1 ch=$2 codec=$3 file=$4
    shift 4
    local graph="sine=frequency=1000:sample_rate=$rate"
    if [ "$ch" = 2 ]; then
        graph="sine=frequency=1000:sample_rate=$rate[l];sine=frequency=1500:sample_rate=$rate[r];[l][r]join=inputs=2:channel_layout=stereo"
    fi
    ffmpeg -v error -y -f lavfi -i "$graph" -af "atrim=end_sample=$frames" \
        -fflags +bitexact -c:a "$codec" "$@" "$out/$file"
}

sox_gen 44100 1 signed-integer 16 wavpcm sox_s16_mono_plain.wav
sox_gen 48000 2 signed-integer 16 wav    sox_s16_stereo.wav
sox_gen 48000 2 signed-integer 24 wavpcm sox_s24_stereo_plain.wav
sox_gen 48000 2 signed-integer 24 wav    sox_s24_stereo_ext.wav
sox_gen 96000 1 signed-integer 32 wav    sox_s32_mono_ext.wav
# sox writes float as a plain tag-3 chunk with a "fact" chunk even for "wav".
sox_gen 48000 2 floating-point 32 wav    sox_f32_stereo.wav
sox_gen 22050 1 floating-point 64 wav    sox_f64_mono.wav
sox_gen 8000  1 unsigned-integer 8 wav   sox_u8_mono.wav
sox_gen 8000  1 u-law 8 wav              sox_ulaw_mono.wav

ffmpeg_gen 48000 1 pcm_s16le ffmpeg_s16_mono_bext.wav -rf64 never -write_bext 1
ffmpeg_gen 48000 2 pcm_s16le ffmpeg_s16_stereo.wav -rf64 never
ffmpeg_gen 44100 2 pcm_s24le ffmpeg_s24_stereo_ext.wav -rf64 never
ffmpeg_gen 48000 2 pcm_s32le ffmpeg_s32_stereo_ext.wav
# ffmpeg writes every format above 16 bits as an extensible chunk.
ffmpeg_gen 48000 2 pcm_f32le ffmpeg_f32_stereo_ext.wav
ffmpeg_gen 48000 1 pcm_f64le ffmpeg_f64_mono_ext.wav
ffmpeg -v error -y -f lavfi -i "sine=frequency=1000:sample_rate=48000" \
    -af "atrim=end_sample=$frames,pan=3c|c0=c0|c1=c0|c2=c0" -fflags +bitexact \
    -c:a pcm_s24le "$out/ffmpeg_s24_3ch_ext.wav"

ls -l "$out"
