#!/usr/bin/env python3
"""Writes tests/data/wav_corpus/: small WAV files, most of them malformed, each with the
reason the reader must give for it ("ok" when it must decode). The files seed the fuzzer
and a unit test checks every one against manifest.txt. The expected reasons are written
here by hand from the chunk rules, not taken from the reader."""
import os
import struct

OUT = os.path.join(os.path.dirname(__file__), '..', '..', 'tests', 'data', 'wav_corpus')


def chunk(cid, body, size=None, pad=True):
    out = cid + struct.pack('<I', len(body) if size is None else size) + body
    if pad and len(body) % 2:
        out += b'\0'
    return out


def riff(*chunks, riff_size=None):
    body = b''.join(chunks)
    return b'RIFF' + struct.pack('<I', len(body) + 4 if riff_size is None else riff_size) + b'WAVE' + body


def fmt(tag=1, channels=1, rate=8000, bits=16):
    block = channels * (bits // 8)
    return struct.pack('<HHIIHH', tag, channels, rate, rate * block, block, bits)


def fmt_ext(channels=2, rate=48000, bits=24, sub=1, mask=3, length=40):
    body = fmt(0xFFFE, channels, rate, bits) + struct.pack('<HHIH', 22, bits, mask, sub)
    body += bytes.fromhex('000000001000800000aa00389b71')
    return body[:length]


def s16(*values):
    return struct.pack('<%dh' % len(values), *values)


NAN32 = struct.pack('<I', 0x7FC00000)
INF64 = struct.pack('<Q', 0x7FF0000000000000)
DATA = s16(1, -1, 32767, -32768)

CASES = [
    ('ok_plain_16_mono', riff(chunk(b'fmt ', fmt()), chunk(b'data', DATA)), 'ok'),
    ('ok_fmt_after_data', riff(chunk(b'data', DATA), chunk(b'fmt ', fmt())), 'ok'),
    ('ok_riff_size_zero', riff(chunk(b'fmt ', fmt()), chunk(b'data', DATA), riff_size=0), 'ok'),
    ('ok_unknown_size_ffffffff', riff(b'JUNK\xff\xff\xff\xff', chunk(b'fmt ', fmt()), chunk(b'data', DATA)), 'ok'),
    ('ok_odd_data_without_pad', riff(chunk(b'fmt ', fmt(bits=24)), chunk(b'data', b'\x01\x02\x03', pad=False)), 'ok'),
    ('ok_trailing_seven_bytes', riff(chunk(b'fmt ', fmt()), chunk(b'data', DATA)) + b'abcdefg', 'ok'),
    ('ok_empty_data', riff(chunk(b'fmt ', fmt(channels=2)), chunk(b'data', b'')), 'ok'),
    ('ok_extensible_26_bytes', riff(chunk(b'fmt ', fmt_ext(channels=1, bits=16, length=26)), chunk(b'data', DATA)), 'ok'),
    ('ok_fmt_odd_size_17', riff(chunk(b'fmt ', fmt() + b'\x00'), chunk(b'data', DATA)), 'ok'),
    ('ok_odd_unknown_with_pad', riff(chunk(b'LIST', b'abcde'), chunk(b'fmt ', fmt()), chunk(b'data', DATA)), 'ok'),
    ('ok_float_subnormal', riff(chunk(b'fmt ', fmt(3, 1, 8000, 32)), chunk(b'data', struct.pack('<II', 1, 0x80000000))), 'ok'),
    ('bad_eleven_bytes', b'RIFF\x04\x00\x00\x00WAV', 'bad_riff_header'),
    ('bad_rifx', b'RIFX' + riff(chunk(b'fmt ', fmt()), chunk(b'data', DATA))[4:], 'bad_riff_header'),
    ('bad_fmt_15_bytes', riff(chunk(b'fmt ', fmt()[:15]), chunk(b'data', DATA)), 'fmt_too_short'),
    ('bad_fmt_cut_by_eof', riff(chunk(b'data', DATA), chunk(b'fmt ', fmt()[:10], size=16)), 'fmt_too_short'),
    # Sizes of 16 to 40 bytes are read whole: a 40-byte claim needs 40 bytes.
    ('bad_fmt_claims_40_bytes', riff(chunk(b'data', DATA), chunk(b'fmt ', fmt(), size=40)), 'fmt_too_short'),
    ('bad_extensible_24_bytes', riff(chunk(b'fmt ', fmt_ext(length=24)), chunk(b'data', b'\0' * 6)), 'unsupported_format'),
    ('bad_extensible_subformat_2', riff(chunk(b'fmt ', fmt_ext(sub=2)), chunk(b'data', b'\0' * 6)), 'unsupported_format'),
    ('bad_tag_adpcm', riff(chunk(b'fmt ', fmt(tag=2)), chunk(b'data', DATA)), 'unsupported_format'),
    ('bad_second_fmt', riff(chunk(b'fmt ', fmt()), chunk(b'fmt ', fmt(tag=7)), chunk(b'data', DATA)), 'unsupported_format'),
    ('bad_no_data', riff(chunk(b'fmt ', fmt())), 'missing_chunk'),
    ('bad_no_fmt', riff(chunk(b'data', DATA)), 'missing_chunk'),
    # The data size skips past the "fmt " chunk, so the walk never sees it.
    ('bad_data_hides_fmt', riff(chunk(b'data', DATA, size=100), chunk(b'fmt ', fmt())), 'missing_chunk'),
    ('bad_8_bit', riff(chunk(b'fmt ', fmt(bits=8)), chunk(b'data', b'\x80\x80')), 'unsupported_bits'),
    ('bad_20_bit', riff(chunk(b'fmt ', fmt(bits=20)), chunk(b'data', DATA)), 'unsupported_bits'),
    ('bad_int_64', riff(chunk(b'fmt ', fmt(bits=64)), chunk(b'data', DATA)), 'unsupported_bits'),
    ('bad_float_24', riff(chunk(b'fmt ', fmt(3, 1, 8000, 24)), chunk(b'data', DATA[:6])), 'unsupported_bits'),
    ('bad_float_16', riff(chunk(b'fmt ', fmt(3, 1, 8000, 16)), chunk(b'data', DATA)), 'unsupported_bits'),
    ('bad_zero_channels', riff(chunk(b'fmt ', fmt(channels=0)), chunk(b'data', DATA)), 'zero_channels_or_rate'),
    ('bad_zero_rate', riff(chunk(b'fmt ', fmt(rate=0)), chunk(b'data', DATA)), 'zero_channels_or_rate'),
    ('bad_partial_frame', riff(chunk(b'fmt ', fmt(channels=2)), chunk(b'data', DATA[:7])), 'partial_frame'),
    ('bad_data_claims_4gib', riff(chunk(b'fmt ', fmt()), chunk(b'data', DATA, size=0xFFFFFFF0)), 'truncated_data'),
    ('bad_unknown_claims_2gib', riff(chunk(b'fmt ', fmt()), chunk(b'data', DATA), chunk(b'LIST', b'xy', size=0x7FFFFFFE)),
     'truncated_chunk'),
    ('bad_odd_unknown_at_eof', riff(chunk(b'fmt ', fmt()), chunk(b'data', DATA), chunk(b'LIST', b'abcde', pad=False)),
     'truncated_chunk'),
    ('bad_nan_float32', riff(chunk(b'fmt ', fmt(3, 2, 8000, 32)), chunk(b'data', b'\0' * 12 + NAN32)), 'non_finite_sample'),
    ('bad_inf_float64_ext', riff(chunk(b'fmt ', fmt_ext(channels=1, bits=64, sub=3, mask=4)), chunk(b'data', INF64)),
     'non_finite_sample'),
]


def main():
    os.makedirs(OUT, exist_ok=True)
    for name in os.listdir(OUT):
        if name.endswith('.wav'):
            os.remove(os.path.join(OUT, name))
    lines = ['# Malformed and borderline WAV files (tools/fuzz/make_wav_corpus.py) and the',
             '# reason the reader must give for each ("ok": it decodes).']
    for name, data, expected in CASES:
        with open(os.path.join(OUT, name + '.wav'), 'wb') as f:
            f.write(data)
        lines.append('%s.wav %s' % (name, expected))
    with open(os.path.join(OUT, 'manifest.txt'), 'w') as f:
        f.write('\n'.join(lines) + '\n')


if __name__ == '__main__':
    main()
