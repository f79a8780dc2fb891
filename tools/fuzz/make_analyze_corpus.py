#!/usr/bin/env python3
"""Writes the seed inputs of the analyze harness into tools/fuzz/corpus/analyze/: small WAV
pairs (aligned, delayed, inverted, silent, mismatched) with hostile DUT names, in the
harness's layout: switches byte, name length byte, reference length (16-bit little
endian), name, reference image, DUT image."""
import os
import random
import struct

OUT = os.path.join(os.path.dirname(__file__), 'corpus', 'analyze')


def wav(rate, channels, bits, frames, is_float=False):
    """Interleaved samples (lists of floats in [-1, 1]) to a plain WAV image."""
    if is_float:
        body = b''.join(struct.pack('<f', s) for s in frames)
        tag = 3
    else:
        scale = (1 << (bits - 1)) - 1
        codes = [max(-scale, min(scale, int(round(s * scale)))) for s in frames]
        if bits == 16:
            body = b''.join(struct.pack('<h', c) for c in codes)
        else:  # 24
            body = b''.join(struct.pack('<i', c)[:3] for c in codes)
        tag = 1
    block = channels * bits // 8
    fmt = struct.pack('<HHIIHH', tag, channels, rate, rate * block, block, bits)
    chunks = b'fmt ' + struct.pack('<I', len(fmt)) + fmt + b'data' + struct.pack('<I', len(body)) + body
    return b'RIFF' + struct.pack('<I', len(chunks) + 4) + b'WAVE' + chunks


def noise(n, seed, amp=0.5):
    rng = random.Random(seed)
    return [rng.uniform(-amp, amp) for _ in range(n)]


def seed(name, switches, dut_name, ref, dut):
    data = bytes([switches, len(dut_name)]) + struct.pack('<H', len(ref)) + dut_name + ref + dut
    with open(os.path.join(OUT, name), 'wb') as f:
        f.write(data)


def main():
    os.makedirs(OUT, exist_ok=True)
    mono = noise(800, 1)
    seed('identical_mono16', 0, b'take1.wav', wav(22050, 1, 16, mono), wav(22050, 1, 16, mono))
    left, right = noise(600, 2), noise(600, 3)
    stereo = [v for pair in zip(left, right) for v in pair]
    delayed = [0.0] * 10 + stereo[:-10]
    seed('delayed_stereo24_markup_name', 1, b'x</SCRIPT><img src=x onerror=alert(1)>.wav',
         wav(48000, 2, 24, stereo), wav(48000, 2, 24, delayed))
    seed('inverted_float_control_bytes', 2, b'a\x01\x1b[31m\x08.wav',
         wav(44100, 1, 32, mono, True), wav(44100, 1, 32, [-v for v in mono], True))
    seed('rate_mismatch_comment_name', 0, b'<!--<script>.wav', wav(22050, 1, 16, mono), wav(44100, 1, 16, mono))
    seed('silent_latin1_name', 4, b'\xe9t\xe9 & "q".wav', wav(22050, 1, 16, [0.0] * 500),
         wav(22050, 1, 16, [0.0] * 500))
    seed('one_bit_off', 3, b'caps/take3.wav', wav(22050, 1, 16, mono), wav(22050, 1, 16, mono[:-1] + [mono[-1] + 0.001]))


if __name__ == '__main__':
    main()
