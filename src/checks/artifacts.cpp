#include "checks/artifacts.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <cstring>
#include <new>
#include <optional>
#include <vector>

#include "checks/bit_compare.h"
#include "checks/order_statistics.h"
#include "checks/rank_bands.h"
#include "dsp/simd_lanes.h"
#include "util/memory.h"

namespace veltrane {
namespace {

constexpr double mad_to_sigma = 1.4826;  // 1 / 0.6745, the MAD of a unit normal distribution
constexpr double min_mad = 1e-12;        // keeps a flat neighbourhood's ratio finite
constexpr double float_full_scale_slack = 1e-9;  // float DUT: |x| within this of 1.0 is full scale
constexpr double integer_clip_level = 0.999;     // integer DUT: at or above this is clipped

// The counts of values below a and below b in v[0..n), four values side by side: the
// position of a value in a sorted window is the count of values below it, found without
// the unpredictable branches of a binary search. Built for the baseline instruction set
// and for AVX2, the better one chosen when the program starts.
__attribute__((target_clones("avx2", "default"))) void count_below(const double* v, std::size_t n, double a, double b,
                                                                   std::size_t& below_a, std::size_t& below_b) {
    using counts4 = decltype(lanes4{} < lanes4{});  // four 64-bit lanes of 0 or -1
    const lanes4 a4 = {a, a, a, a}, b4 = {b, b, b, b};
    counts4 ca = {0, 0, 0, 0}, cb = {0, 0, 0, 0};
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        lanes4 x;
        std::memcpy(&x, v + i, sizeof x);
        ca -= x < a4;
        cb -= x < b4;
    }
    std::size_t ra = static_cast<std::size_t>(ca[0] + ca[1] + ca[2] + ca[3]);
    std::size_t rb = static_cast<std::size_t>(cb[0] + cb[1] + cb[2] + cb[3]);
    for (; i < n; ++i) {
        ra += v[i] < a;
        rb += v[i] < b;
    }
    below_a = ra;
    below_b = rb;
}

// The window of the current sample as an ascending array: its neighbours and the sample
// itself, so that moving on to the next sample is one replacement (the value leaving at
// the left end by the one entering at the right) or, at the file's edges, one removal or
// insertion. Positions are counts of smaller values, and the elements between the old
// and the new place move by one in a single block move. Equal values are
// interchangeable: +0.0 and -0.0 compare equal and may trade places, which changes no
// median or deviation magnitude.
struct sorted_window {
    double* first = nullptr;  // the storage: four times the window's largest size
    double* last = nullptr;
    double* v = nullptr;      // the window's values, somewhere inside the storage
    std::size_t size = 0;

    sorted_window(double* storage, std::size_t capacity)
        : first(storage), last(storage + 4 * capacity), v(storage + capacity + capacity / 2) {}

    // The first position whose value is not below x: the count of values below it, taken
    // over the whole window side by side rather than by an unpredictable binary search.
    std::size_t position_of(double x) const {
        std::size_t below = 0, unused = 0;
        count_below(v, size, x, x, below, unused);
        return below;
    }
    // A value leaves from position p by moving the shorter side in: the values before it
    // one place up, or those after it one place down. A value slides in at position q the
    // same way, into the free place before or after the window. When the window drifts to
    // the end of its storage it is moved back to the middle, once in many samples. So a
    // window whose values trend up or down (the old value leaving at one end, the new one
    // entering at the other) moves nothing.
    void remove_at(std::size_t p) {
        if (p < size / 2) {
            std::memmove(v + 1, v, p * sizeof(double));
            ++v;
        } else {
            std::memmove(v + p, v + p + 1, (size - 1 - p) * sizeof(double));
        }
        --size;
    }
    void insert_at(std::size_t q, double x) {
        if (v == first || v + size == last) {
            double* centred = first + (last - first - static_cast<std::ptrdiff_t>(size)) / 2;
            std::memmove(centred, v, size * sizeof(double));
            v = centred;
        }
        if (q < size / 2) {
            --v;
            std::memmove(v, v + 1, q * sizeof(double));
        } else {
            std::memmove(v + q + 1, v + q, (size - q) * sizeof(double));
        }
        v[q] = x;
        ++size;
    }
    void replace(double old_value, double new_value) {
        std::size_t p = 0, q = 0;
        count_below(v, size, old_value, new_value, p, q);
        remove_at(p);
        insert_at(q - static_cast<std::size_t>(old_value < new_value), new_value);
    }
    void insert(double x) { insert_at(position_of(x), x); }
    void remove(double x) { remove_at(position_of(x)); }
};

// The neighbours of the current sample: the window without one copy of the sample's own
// value x, read by rank. Leaving out the first copy of x, rank t holds v[t + 1] when
// v[t] >= x and v[t] otherwise, so no search for x is needed. The local median is read
// by rank, and the MAD found by rank selection across the deviations either side of the
// median: those of the
// elements below the middle, read downward, and of the others, read upward, are two
// ascending sequences (subtraction is monotone), so they need no sorting.
struct neighbours {
    const double* v;
    std::size_t size;  // neighbour count: the window's size - 1
    double x;
    double operator[](std::size_t t) const { return v[t + static_cast<std::size_t>(v[t] >= x)]; }
};

constexpr double no_neighbour_sigma = 1.4826e-12;  // no neighbours: the clamped MAD's scale, as one constant

double window_median(const neighbours& w) {
    const std::size_t m = w.size, half = m / 2;
    if (m == 0) return 0.0;
    return m % 2 ? w[half] : (w[half - 1] + w[half]) / 2.0;
}

// A lower bound of the MAD, from two deviations: of the r + 1 smallest deviations (r the
// lower middle rank) one sequence holds at least floor(r / 2) + 1, so the deviation at
// rank r is at least the smaller of the two sequences' elements at index floor(r / 2).
double mad_lower_bound(const neighbours& w, double med) {
    const std::size_t m = w.size, half = m / 2;
    const std::size_t t = (m - 1) / 2 / 2;
    double bound = std::fabs(w[half + t] - med);  // the upper sequence always has more than t elements
    if (t < half) bound = std::min(bound, std::fabs(w[half - 1 - t] - med));
    return bound;
}

double window_mad(const neighbours& w, double med) {
    const std::size_t m = w.size;
    const std::size_t half = m / 2;
    // Lower sequence L[t] = |w[half - 1 - t] - med| (half values), upper sequence
    // U[t] = |w[half + t] - med| (m - half values).
    const std::size_t lower_len = half, upper_len = m - half;
    auto L = [&](std::size_t t) { return std::fabs(w[half - 1 - t] - med); };
    auto U = [&](std::size_t t) { return std::fabs(w[half + t] - med); };
    // Rank r (0-based) of the merged order: take i from L and r + 1 - i from U, with i the
    // smallest count for which L[i] is not below the last U taken.
    const std::size_t r = (m - 1) / 2;  // the lower middle rank; for odd m the middle
    std::size_t lo = r + 1 > upper_len ? r + 1 - upper_len : 0;
    std::size_t hi = std::min(lower_len, r + 1);
    while (lo < hi) {
        std::size_t i = lo + (hi - lo) / 2;
        std::size_t j = r + 1 - i;
        if (j > 0 && L(i) < U(j - 1))
            lo = i + 1;
        else
            hi = i;
    }
    const std::size_t i = lo, j = r + 1 - lo;
    const double at_r = i == 0 ? U(j - 1) : (j == 0 ? L(i - 1) : std::max(L(i - 1), U(j - 1)));
    if (m % 2 == 1) return at_r;
    // The next rank is the smaller of the next candidates of either sequence.
    double next;
    if (i == lower_len)
        next = U(j);
    else if (j == upper_len)
        next = L(i);
    else
        next = std::min(L(i), U(j));
    return (at_r + next) / 2.0;
}

double sigma_of(double mad) { return mad_to_sigma * std::max(mad, min_mad); }

// !(deviation / sigma > k), decided by a product where the quotient is clearly on one side
// (a relative 2^-40 covers the rounding of both sides) and by the quotient itself near k.
bool within_k(double deviation, double sigma, double k) {
    const double limit = k * sigma;
    if (deviation < limit * (1.0 - 0x1p-40)) return true;
    return !(deviation / sigma > k);
}

// Running figures of the candidate event being scanned and of the best event per class.
struct event_tracker {
    event_tracker(const artifact_settings& s, artifact_channel& c) : set(s), ch(c) {}
    const artifact_settings& set;
    artifact_channel& ch;
    bool in_run = false;
    std::uint64_t start = 0, length = 0, sc_run = 0, sc_longest = 0;
    double max_ratio = 0.0, max_global = 0.0;
    struct best {
        bool has = false;
        std::uint64_t start = 0, length = 0;
        double max_ratio = 0.0, max_global = 0.0;
    } worst_counted, worst_minor;

    void add(std::uint64_t frame, bool flagged, bool silence_or_clip, double local_ratio, double global_ratio) {
        if (!flagged) {
            close();
            return;
        }
        if (!in_run) {
            in_run = true;
            start = frame;
            length = sc_run = sc_longest = 0;
            max_ratio = max_global = 0.0;
        }
        max_ratio = std::max(max_ratio, local_ratio);  // ratios are never negative
        if (local_ratio > set.k) max_global = std::max(max_global, global_ratio);
        sc_run = silence_or_clip ? sc_run + 1 : 0;
        sc_longest = std::max(sc_longest, sc_run);
        ++length;
    }

    void close() {
        if (!in_run) return;
        in_run = false;
        if (length < static_cast<std::uint64_t>(std::max<std::int64_t>(set.min_run, 0))) return;
        if (ch.event_count == 0) {
            ch.first_event_start = start;
            ch.first_event_length = length;
        }
        ++ch.event_count;
        ch.samples_flagged += length;
        const bool counted = max_ratio > set.k * set.min_severity || max_global > set.min_global_severity * set.k ||
                             (sc_longest > 0 && static_cast<std::int64_t>(sc_longest) >= set.min_silence_clip_run);
        if (counted) ++ch.counted_event_count;
        best& b = counted ? worst_counted : worst_minor;
        if (!b.has || max_ratio > b.max_ratio) b = {true, start, length, max_ratio, max_global};
    }

    void finish() {
        close();
        ch.minor_event_count = ch.event_count - ch.counted_event_count;
        const best& b = worst_counted.has ? worst_counted : worst_minor;
        if (b.has) {
            ch.worst_event_start_frame = b.start;
            ch.worst_event_length = b.length;
            ch.worst_event_counted = worst_counted.has;
            ch.worst_event_deviation_ratio = b.max_ratio;
            if (set.k > 0.0) {
                ch.worst_event_severity = b.max_ratio / set.k;
                ch.worst_event_global_severity = b.max_global / set.k;
            }
        }
        ch.pass = ch.counted_event_count == 0;
    }
};

// Whole-channel scale of the differences: their median and the median of their
// distances from it, by rank bands (placed from a sample, filled in the pass that
// computes the differences, and one pass over them for the MAD), so the array keeps its
// frame order. The plain route, taken when a band misses, selects in the array itself
// and then computes the differences again, bit for bit the same, in frame order.
struct global_scale {
    double median = 0.0, mad = 0.0;
};

constexpr std::uint64_t banded_frames = 65536;  // below this the plain route is as quick
constexpr double ordinary_magnitude = 1e300;    // beyond it a difference may have overflowed

global_scale differences(const double* r0, const double* d0, std::size_t rs, std::size_t ds, std::uint64_t n,
                         double floor, double* diff, std::uint64_t& excluded) {
    std::optional<rank_band> med;
    try {
        if (n >= banded_frames) {
            std::vector<double> sample;
            sample.reserve(sample_count);
            for (const std::uint64_t at : sample_positions(n)) sample.push_back(d0[at * ds] - r0[at * rs]);
            const statistic st{statistic_kind::value};
            med.emplace(st, sorted_keys(std::move(sample), st), 0.5, n,
                        static_cast<std::size_t>(std::max<std::uint64_t>(n / 8, 65536)));
        }
    } catch (const std::bad_alloc&) {
        med.reset();
    }
    constexpr std::uint64_t block = 4096;
    bool ordinary = true;
    excluded = 0;
    for (std::uint64_t j0 = 0; j0 < n; j0 += block) {
        const std::uint64_t end = std::min(n, j0 + block);
        for (std::uint64_t j = j0; j < end; ++j) {
            const double r = r0[j * rs], d = d0[j * ds];
            diff[j] = d - r;
            excluded += (floor > std::fabs(r)) & (floor > std::fabs(d));
            ordinary &= std::fabs(diff[j]) <= ordinary_magnitude;
        }
        if (med) med->add(diff + j0, static_cast<std::size_t>(end - j0));
    }
    global_scale g;
    try {
        const std::optional<double> m = ordinary && med ? median_from(*med, n) : std::nullopt;
        med.reset();
        if (m) {
            std::vector<double> sample;
            sample.reserve(sample_count);
            for (const std::uint64_t at : sample_positions(n)) sample.push_back(diff[at]);
            const statistic st{statistic_kind::distance, *m};
            rank_band spread(st, sorted_keys(std::move(sample), st), 0.5, n,
                             static_cast<std::size_t>(std::max<std::uint64_t>(n / 8, 65536)));
            for (std::uint64_t j0 = 0; j0 < n; j0 += block)
                spread.add(diff + j0, static_cast<std::size_t>(std::min(block, n - j0)));
            if (const std::optional<double> mad = median_from(spread, n)) return {*m, *mad};
        }
    } catch (const std::bad_alloc&) {
    }
    g.median = median_by_selection(diff, n);
    g.mad = median_deviation_by_selection(diff, n, g.median);
    for (std::uint64_t j = 0; j < n; ++j) diff[j] = d0[j * ds] - r0[j * rs];
    return g;
}

artifact_channel check_channel(const wav_audio& ref, const wav_audio& dut, std::int64_t offset, const overlap_range& o,
                               std::uint32_t c, double floor, const artifact_settings& set) {
    artifact_channel ch;
    const std::uint64_t n = o.frames();
    if (n == 0) return ch;
    const std::uint64_t half = set.window_samples > 0 ? static_cast<std::uint64_t>(set.window_samples) / 2 : 0;
    std::unique_ptr<double[]> diff = allocate_work_array(n);
    std::unique_ptr<double[]> window = allocate_work_array(4 * (2 * half + 1));
    if (!diff || !window) return ch;

    const std::size_t rs = ref.channels, ds = dut.channels;
    const double* r0 = ref.samples.data() + static_cast<std::size_t>(o.start) * rs + c;
    const double* d0 = dut.samples.data() + static_cast<std::size_t>(o.start + offset) * ds + c;
    std::uint64_t excluded = 0;
    const global_scale g = differences(r0, d0, rs, ds, n, floor, diff.get(), excluded);
    const double global_sigma = mad_to_sigma * std::max(g.mad, min_mad);

    ch.samples_checked = n;
    ch.samples_excluded = excluded;
    const bool float_dut = wav_is_float(dut);
    event_tracker events(set, ch);
    // The window of sample j: indices max(0, j - half) to min(n - 1, j + half).
    sorted_window w(window.get(), 2 * half + 1);
    for (std::uint64_t j = 0; j <= std::min(half, n - 1); ++j) w.insert(diff[j]);
    for (std::uint64_t j = 0; j < n; ++j) {
        if (j > 0 && half > 0) {
            const bool leaving = j - 1 >= half, entering = j + half <= n - 1;
            if (leaving && entering)
                w.replace(diff[j - 1 - half], diff[j + half]);
            else if (leaving)
                w.remove(diff[j - 1 - half]);
            else if (entering)
                w.insert(diff[j + half]);
        }
        const double r = r0[j * rs], d = d0[j * ds];
        const double ra = std::fabs(r), da = std::fabs(d);
        if (floor > ra && floor > da) {  // below the floor: never flagged, its ratios unused
            events.add(static_cast<std::uint64_t>(o.start) + j, false, false, 0.0, 0.0);
            continue;
        }
        const bool clip = float_dut ? std::fabs(da - 1.0) < float_full_scale_slack && std::fabs(ra - 1.0) >= float_full_scale_slack
                                    : da >= integer_clip_level && ra < integer_clip_level;
        const bool dropout = !clip && d == 0.0 && r != 0.0;
        const neighbours nb{w.v, w.size - 1, diff[j]};
        const double med = window_median(nb);
        const double deviation = std::fabs(diff[j] - med);
        double local_ratio;
        if (nb.size == 0) {
            local_ratio = deviation / no_neighbour_sigma;
        } else if (!clip && !dropout && within_k(deviation, sigma_of(mad_lower_bound(nb, med)), set.k)) {
            // Not flagged: even the largest ratio the MAD allows stays within k (a smaller
            // MAD can only give a larger ratio, and rounding keeps that order), so the
            // exact ratio, which nothing else reads, is not needed.
            events.add(static_cast<std::uint64_t>(o.start) + j, false, false, 0.0, 0.0);
            continue;
        } else {
            local_ratio = deviation / sigma_of(window_mad(nb, med));
        }
        const double global_ratio = deviation / global_sigma;
        const bool flagged = clip || dropout || local_ratio > set.k;
        events.add(static_cast<std::uint64_t>(o.start) + j, flagged, clip || dropout, local_ratio, global_ratio);
    }
    events.finish();
    return ch;
}

}  // namespace

artifact_result check_artifacts(const wav_audio& ref, const wav_audio& dut, std::int64_t offset_frames,
                                const artifact_settings& settings) {
    artifact_result res;
    res.channel_count = ref.channels;
    const double floor = std::pow(10.0, settings.noise_floor_db / 20.0);
    overlap_range o = compute_overlap(ref.frame_count, dut.frame_count, static_cast<std::int32_t>(offset_frames));
    if (dut.channels != ref.channels) o.end = o.start;  // nothing to pair
    for (std::uint32_t c = 0; c < std::min<std::uint32_t>(ref.channels, 2); ++c) {
        res.channels[c] = check_channel(ref, dut, offset_frames, o, c, floor, settings);
        res.pass = res.pass && res.channels[c].pass;
    }
    return res;
}

}  // namespace veltrane
