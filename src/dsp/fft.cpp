#include "dsp/fft.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace veltrane {
namespace {

// 2 pi rounded to double; the same value as 2.0 * M_PI (doubling is exact).
constexpr double two_pi = 6.283185307179586476925286766559;

// Stages of length up to 2^table_bits take their twiddles from a table filled by the
// per-block recurrence; all of them are run on one cache-sized chunk of 2^table_bits
// values at a time. 2^12 complex values are 64 KiB for the chunk and 64 KiB (less one
// entry) for the tables of all stages 2 .. 2^12 together, so both stay in L2.
constexpr unsigned table_bits = 12;
constexpr std::uint64_t table_span = std::uint64_t{1} << table_bits;

// Stages are run up to three at a time on groups of 2^3 values held in registers, so one
// pass over memory does the work of three stages. Longer stages get their twiddles chunk
// by chunk from running recurrences (twiddle_chunk values of j per chunk; it divides
// every half length beyond the tables).
constexpr unsigned max_fused_stages = 3;
static_assert(max_fused_stages == 3, "the pass dispatch below handles 1, 2 or 3 stages");
constexpr std::uint64_t twiddle_chunk = 64;

using cplx = complex_value;

// Complex products are written as x.re * y + (-x.im, x.im) * swap(y): the real part
// x.re*y.re + (-x.im)*y.im equals x.re*y.re - x.im*y.im bit for bit (negation is exact
// and a - b is defined as a + (-b)), and the two halves then have the same shape, which
// lets the compiler compute both in one pair of packed multiplies and one packed add.

// One step of the twiddle recurrence: w * (c + i s).
inline cplx rotate(cplx w, double c, double s) {
    const double nwi = -w.im;
    return {w.re * c + nwi * s, w.re * s + w.im * c};
}

// t = w * b, u = a; a = u + t, b = u - t.
inline void butterfly(cplx& a, cplx& b, cplx w) {
    const double nwi = -w.im;
    const double tr = w.re * b.re + nwi * b.im;
    const double ti = w.re * b.im + w.im * b.re;
    const double ur = a.re;
    const double ui = a.im;
    a.re = ur + tr;
    a.im = ui + ti;
    b.re = ur - tr;
    b.im = ui - ti;
}

// Bit-reversal reordering, swap by swap, with a reversed counter standing for the
// reversed index. Fine while the array fits in cache.
void bit_reverse_direct(cplx* a, std::uint64_t n) {
    std::uint64_t j = 0;
    for (std::uint64_t i = 0; i < n; ++i) {
        if (i < j) std::swap(a[i], a[j]);
        std::uint64_t bit = n >> 1;
        while ((j & bit) != 0) {
            j ^= bit;
            bit >>= 1;
        }
        j |= bit;
    }
}

std::uint64_t reverse_bits(std::uint64_t v, unsigned bits) {
    std::uint64_t r = 0;
    for (unsigned k = 0; k < bits; ++k) {
        r = (r << 1) | (v & 1);
        v >>= 1;
    }
    return r;
}

// The same permutation for large arrays, tile by tile. Write an index as
// hi (tile_bits) | mid | lo (tile_bits); its reverse is rev(lo) | rev(mid) | rev(hi). The
// values with middle part m form a 32 x 32 tile of rows of 32 contiguous values; they
// trade places with the tile of rev(m), transposed. Both tiles are copied out and written
// back whole rows at a time, so every cache line is read once and written once instead
// of being fetched again for each scattered swap. Only the order of the moves differs
// from swap by swap; the result is the same permutation.
constexpr unsigned tile_bits = 5;
constexpr std::uint64_t tile = std::uint64_t{1} << tile_bits;
constexpr unsigned tiled_reverse_min_bits = 16;

void bit_reverse_tiled(cplx* a, unsigned bits) {
    const unsigned mid_bits = bits - 2 * tile_bits;
    const std::uint64_t row_stride = std::uint64_t{1} << (bits - tile_bits);
    std::uint64_t rev_tile[tile];
    for (std::uint64_t k = 0; k < tile; ++k) rev_tile[k] = reverse_bits(k, tile_bits);
    cplx first[tile][tile];
    cplx second[tile][tile];
    const std::uint64_t mids = std::uint64_t{1} << mid_bits;
    for (std::uint64_t m = 0; m < mids; ++m) {
        const std::uint64_t m_rev = reverse_bits(m, mid_bits);
        if (m_rev < m) continue;
        cplx* tile_m = a + (m << tile_bits);
        cplx* tile_r = a + (m_rev << tile_bits);
        for (std::uint64_t hi = 0; hi < tile; ++hi)
            for (std::uint64_t lo = 0; lo < tile; ++lo) first[hi][lo] = tile_m[hi * row_stride + lo];
        if (m_rev != m) {
            for (std::uint64_t hi = 0; hi < tile; ++hi)
                for (std::uint64_t lo = 0; lo < tile; ++lo) second[hi][lo] = tile_r[hi * row_stride + lo];
        }
        const cplx(*source_for_m)[tile] = (m_rev == m) ? first : second;
        for (std::uint64_t hi = 0; hi < tile; ++hi)
            for (std::uint64_t lo = 0; lo < tile; ++lo)
                tile_m[hi * row_stride + lo] = source_for_m[rev_tile[lo]][rev_tile[hi]];
        if (m_rev != m) {
            for (std::uint64_t hi = 0; hi < tile; ++hi)
                for (std::uint64_t lo = 0; lo < tile; ++lo)
                    tile_r[hi * row_stride + lo] = first[rev_tile[lo]][rev_tile[hi]];
        }
    }
}

// A fused pass runs stages i = 0 .. stages-1, the first with half length q, on groups
// of 2^stages values: value m of the group at position j sits at j + m*q in its block
// of q * 2^stages values. Stage i pairs m with m + 2^i (bit i of m clear) using the
// twiddle at position j + (m mod 2^i)*q of that stage's per-block sequence. This is
// exactly the work of the stages one after another: each butterfly sees the same
// inputs and the same twiddle, only independent butterflies change order. The twiddles
// arrive as one pointer per (stage i, r = m mod 2^i), at index 2^i - 1 + r.

// Runs `stages` stages on the groups at j = t for t = 0 .. count - 1 (base already
// offset to the first j). The loops over the group are unrolled completely so that the
// group stays in registers.
template <unsigned stages>
inline void run_groups(cplx* base, std::uint64_t q, std::uint64_t count, const cplx* const* tw) {
    constexpr unsigned group = 1u << stages;
    const cplx* w[group - 1];
#pragma GCC unroll 16
    for (unsigned k = 0; k < group - 1; ++k) w[k] = tw[k];
    for (std::uint64_t t = 0; t < count; ++t) {
        cplx x[group];
#pragma GCC unroll 16
        for (unsigned m = 0; m < group; ++m) x[m] = base[t + m * q];
#pragma GCC unroll 4
        for (unsigned i = 0; i < stages; ++i) {
            const unsigned step = 1u << i;
#pragma GCC unroll 8
            for (unsigned p = 0; p < group / 2; ++p) {
                const unsigned r = p & (step - 1);
                const unsigned top = ((p >> i) << (i + 1)) | r;
                butterfly(x[top], x[top + step], w[step - 1 + r][t]);
            }
        }
#pragma GCC unroll 16
        for (unsigned m = 0; m < group; ++m) base[t + m * q] = x[m];
    }
}

// How many stages the next pass takes: three while at least three remain; the one or
// two left over go first, where their twiddles are shared by the most blocks.
// Calls f with the pass's stage count (1, 2 or 3) as a compile-time constant, so each
// pass shape is its own specialised loop.
template <class F>
void with_stage_count(unsigned stages, F&& f) {
    if (stages == 3)
        f(std::integral_constant<unsigned, 3>{});
    else if (stages == 2)
        f(std::integral_constant<unsigned, 2>{});
    else
        f(std::integral_constant<unsigned, 1>{});
}

unsigned stages_for_pass(unsigned remaining) {
    const unsigned odd = remaining % max_fused_stages;
    return odd != 0 ? odd : max_fused_stages;
}

// One pass of `stages` stages over `count` values (whole blocks) with twiddles from the
// stage tables: table_for[i] holds the L_i / 2 twiddles of stage i.
template <unsigned stages>
void run_table_pass(cplx* a, std::uint64_t count, std::uint64_t q, const cplx* const* table_for) {
    constexpr unsigned group = 1u << stages;
    const cplx* tw[group - 1];
    for (unsigned i = 0; i < stages; ++i)
        for (unsigned r = 0; r < (1u << i); ++r) tw[(1u << i) - 1 + r] = table_for[i] + r * q;
    for (std::uint64_t block = 0; block < count; block += q * group) run_groups<stages>(a + block, q, q, tw);
}

// Stages 2 .. span (span = min(n, table_span)) on every chunk of span values. The
// twiddles of stage L sit at table[L/2 - 1 .. L - 2]: the recurrence run once for L/2
// steps, which is the sequence every block of that stage would produce.
void run_table_stages(cplx* a, std::uint64_t n, std::uint64_t span, double sign, cplx* table) {
    for (std::uint64_t len = 2; len <= span; len <<= 1) {
        const double theta = sign * two_pi / static_cast<double>(len);
        const double s = std::sin(theta);
        const double c = std::cos(theta);
        cplx* tw = table + (len / 2 - 1);
        cplx w{1.0, 0.0};
        for (std::uint64_t j = 0; j < len / 2; ++j) {
            tw[j] = w;
            w = rotate(w, c, s);
        }
    }
    const unsigned span_bits = static_cast<unsigned>(std::countr_zero(span));
    for (std::uint64_t base = 0; base < n; base += span) {
        cplx* chunk = a + base;
        unsigned done = 0;
        while (done < span_bits) {
            const unsigned stages = stages_for_pass(span_bits - done);
            const std::uint64_t q = std::uint64_t{1} << done;
            const cplx* table_for[max_fused_stages];
            for (unsigned i = 0; i < stages; ++i) table_for[i] = table + ((q << i) - 1);
            with_stage_count(stages, [&](auto count) { run_table_pass<count()>(chunk, span, q, table_for); });
            done += stages;
        }
    }
}

// One pass of `stages` stages (first half length q) over the whole array, for stages too
// long for the tables. Each (stage i, r) twiddle position j + r*q is followed by a running
// recurrence (a "cursor"), started by walking the sequence from 1 + 0i; the cursors are
// advanced a chunk of j at a time into small buffers, and each chunk of twiddles then
// serves every block of the pass.
template <unsigned stages>
void run_cursor_pass(cplx* a, std::uint64_t n, std::uint64_t q, double sign) {
    constexpr unsigned group = 1u << stages;
    constexpr unsigned cursor_count = group - 1;
    double c[stages];
    double s[stages];
    unsigned stage_of[cursor_count];
    cplx cursor[cursor_count];
    for (unsigned i = 0; i < stages; ++i) {
        const double theta = sign * two_pi / static_cast<double>((2 * q) << i);
        s[i] = std::sin(theta);
        c[i] = std::cos(theta);
        cplx w{1.0, 0.0};
        const unsigned first = (1u << i) - 1;
        for (unsigned r = 0; r < (1u << i); ++r) {
            cursor[first + r] = w;
            stage_of[first + r] = i;
            if (r + 1 < (1u << i))
                for (std::uint64_t k = 0; k < q; ++k) w = rotate(w, c[i], s[i]);
        }
    }

    cplx buffer[cursor_count][twiddle_chunk];
    const cplx* tw[cursor_count];
    for (unsigned k = 0; k < cursor_count; ++k) tw[k] = buffer[k];
    const std::uint64_t group_span = q * group;
    for (std::uint64_t j0 = 0; j0 < q; j0 += twiddle_chunk) {
        // Cursor-inner order keeps the independent recurrences in flight together.
        for (std::uint64_t t = 0; t < twiddle_chunk; ++t) {
            for (unsigned k = 0; k < cursor_count; ++k) {
                buffer[k][t] = cursor[k];
                cursor[k] = rotate(cursor[k], c[stage_of[k]], s[stage_of[k]]);
            }
        }
        for (std::uint64_t block = 0; block < n; block += group_span)
            run_groups<stages>(a + block + j0, q, twiddle_chunk, tw);
    }
}

// The twiddles of stages 2 .. span laid out as run_table_stages lays them out: stage L at
// table[L/2 - 1 .. L - 2].
void fill_stage_tables(cplx* table, std::uint64_t span, double sign) {
    for (std::uint64_t len = 2; len <= span; len <<= 1) {
        const double theta = sign * two_pi / static_cast<double>(len);
        const double s = std::sin(theta);
        const double c = std::cos(theta);
        cplx* tw = table + (len / 2 - 1);
        cplx w{1.0, 0.0};
        for (std::uint64_t j = 0; j < len / 2; ++j) {
            tw[j] = w;
            w = rotate(w, c, s);
        }
    }
}

// Stages 2 .. span from ready tables; the passes of run_table_stages.
void apply_stage_tables(cplx* a, std::uint64_t n, std::uint64_t span, const cplx* table) {
    const unsigned span_bits = static_cast<unsigned>(std::countr_zero(span));
    for (std::uint64_t base = 0; base < n; base += span) {
        cplx* chunk = a + base;
        unsigned done = 0;
        while (done < span_bits) {
            const unsigned stages = stages_for_pass(span_bits - done);
            const std::uint64_t q = std::uint64_t{1} << done;
            const cplx* table_for[max_fused_stages];
            for (unsigned i = 0; i < stages; ++i) table_for[i] = table + ((q << i) - 1);
            with_stage_count(stages, [&](auto count) { run_table_pass<count()>(chunk, span, q, table_for); });
            done += stages;
        }
    }
}

// The q values of every cursor of a run_cursor_pass, cursor after cursor: the same
// starting walk and the same steps, kept instead of consumed chunk by chunk.
template <unsigned stages>
void fill_cursor_sequences(cplx* out, std::uint64_t q, double sign) {
    constexpr unsigned group = 1u << stages;
    constexpr unsigned cursor_count = group - 1;
    double c[stages];
    double s[stages];
    unsigned stage_of[cursor_count];
    cplx cursor[cursor_count];
    for (unsigned i = 0; i < stages; ++i) {
        const double theta = sign * two_pi / static_cast<double>((2 * q) << i);
        s[i] = std::sin(theta);
        c[i] = std::cos(theta);
        cplx w{1.0, 0.0};
        const unsigned first = (1u << i) - 1;
        for (unsigned r = 0; r < (1u << i); ++r) {
            cursor[first + r] = w;
            stage_of[first + r] = i;
            if (r + 1 < (1u << i))
                for (std::uint64_t k = 0; k < q; ++k) w = rotate(w, c[i], s[i]);
        }
    }
    for (unsigned k = 0; k < cursor_count; ++k)
        for (std::uint64_t j = 0; j < q; ++j) {
            out[k * q + j] = cursor[k];
            cursor[k] = rotate(cursor[k], c[stage_of[k]], s[stage_of[k]]);
        }
}

// run_cursor_pass with the cursors' values read from their kept sequences.
template <unsigned stages>
void run_sequence_pass(cplx* a, std::uint64_t n, std::uint64_t q, const cplx* seq) {
    constexpr unsigned group = 1u << stages;
    constexpr unsigned cursor_count = group - 1;
    const cplx* tw[cursor_count];
    const std::uint64_t group_span = q * group;
    for (std::uint64_t j0 = 0; j0 < q; j0 += twiddle_chunk) {
        for (unsigned k = 0; k < cursor_count; ++k) tw[k] = seq + k * q + j0;
        for (std::uint64_t block = 0; block < n; block += group_span)
            run_groups<stages>(a + block + j0, q, twiddle_chunk, tw);
    }
}

}  // namespace

bool fft_plan_init(fft_plan& plan, std::uint64_t n, bool inverse) {
    plan = fft_plan{};
    if (n < 2 || !std::has_single_bit(n)) return false;
    const double sign = inverse ? 1.0 : -1.0;
    const std::uint64_t span = n < table_span ? n : table_span;
    std::uint64_t sequence_values = 0;
    for (std::uint64_t q = span; q < n;) {
        const unsigned stages = stages_for_pass(static_cast<unsigned>(std::countr_zero(n / q)));
        sequence_values += ((std::uint64_t{1} << stages) - 1) * q;
        q <<= stages;
    }
    try {
        plan.table.resize(span - 1);
        plan.sequences.resize(sequence_values);
    } catch (const std::bad_alloc&) {
        plan = fft_plan{};
        return false;
    }
    fill_stage_tables(plan.table.data(), span, sign);
    cplx* seq = plan.sequences.data();
    for (std::uint64_t q = span; q < n;) {
        const unsigned stages = stages_for_pass(static_cast<unsigned>(std::countr_zero(n / q)));
        with_stage_count(stages, [&](auto count) { fill_cursor_sequences<count()>(seq, q, sign); });
        seq += ((std::uint64_t{1} << stages) - 1) * q;
        q <<= stages;
    }
    plan.n = n;
    plan.inverse = inverse;
    return true;
}

void fft_inplace(std::span<complex_value> data, const fft_plan& plan) {
    const std::uint64_t n = plan.n;
    if (n < 2 || data.size() != n) return;
    cplx* a = data.data();
    const unsigned bits = static_cast<unsigned>(std::countr_zero(n));
    if (bits >= tiled_reverse_min_bits)
        bit_reverse_tiled(a, bits);
    else
        bit_reverse_direct(a, n);
    const std::uint64_t span = n < table_span ? n : table_span;
    apply_stage_tables(a, n, span, plan.table.data());
    const cplx* seq = plan.sequences.data();
    for (std::uint64_t q = span; q < n;) {
        const unsigned stages = stages_for_pass(static_cast<unsigned>(std::countr_zero(n / q)));
        with_stage_count(stages, [&](auto count) { run_sequence_pass<count()>(a, n, q, seq); });
        seq += ((std::uint64_t{1} << stages) - 1) * q;
        q <<= stages;
    }
    if (plan.inverse) {
        const double scale = 1.0 / static_cast<double>(n);
        for (std::uint64_t i = 0; i < n; ++i) {
            a[i].re *= scale;
            a[i].im *= scale;
        }
    }
}

std::uint64_t next_pow2(std::uint64_t n) {
    if (n < 2) return 1;
    if (n > (std::uint64_t{1} << 63)) return 0;
    return std::bit_ceil(n);
}

void fft_inplace(std::span<complex_value> data, bool inverse) {
    const std::uint64_t n = data.size();
    if (n < 2 || !std::has_single_bit(n)) return;
    cplx* a = data.data();
    const unsigned bits = static_cast<unsigned>(std::countr_zero(n));
    if (bits >= tiled_reverse_min_bits)
        bit_reverse_tiled(a, bits);
    else
        bit_reverse_direct(a, n);

    const double sign = inverse ? 1.0 : -1.0;
    const std::uint64_t span = n < table_span ? n : table_span;
    {
        cplx table[table_span - 1];
        run_table_stages(a, n, span, sign, table);
    }
    for (std::uint64_t q = span; q < n;) {
        const unsigned stages = stages_for_pass(static_cast<unsigned>(std::countr_zero(n / q)));
        with_stage_count(stages, [&](auto count) { run_cursor_pass<count()>(a, n, q, sign); });
        q <<= stages;
    }

    if (inverse) {
        // n is a power of two, so 1/n is exact and x * (1/n) is the correctly rounded
        // x / n: the same value as the division.
        const double scale = 1.0 / static_cast<double>(n);
        for (std::uint64_t i = 0; i < n; ++i) {
            a[i].re *= scale;
            a[i].im *= scale;
        }
    }
}

}  // namespace veltrane
