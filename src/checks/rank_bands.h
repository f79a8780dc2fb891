#pragma once
// Order statistics of whole channels in one or two passes and small working memory: a
// band of keys around the ranks asked for is placed from a sorted sample of the keys, one
// pass counts the keys below it and keeps the values inside it, and the ranks are
// selected among those. Used for level fidelity's median, MAD and p99 of dB errors, which
// are taken on magnitude ratios (the logarithm computed only near the ranks), and for
// artifact detection's median and MAD of the difference signal.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace veltrane {

// The signed level error of a magnitude ratio q = |DUT| / |reference| in dB; equal
// magnitudes (q exactly 1) give exactly 0.0.
inline double error_of(double q) { return q == 1.0 ? 0.0 : 20.0 * std::log10(q); }

// The computed logarithm is monotone up to a few units in the last place of its result
// (below 1e-12 dB for any ratio between 1e-150 and 1e150), while two ratios a relative
// 2^-30 apart have errors 20 log10(1 + 2^-30) = 8.1e-9 dB apart. So ratios further apart
// than this guard are ordered like their errors; only ratios within it of a deciding
// value need their error computed.
constexpr double ratio_guard = 0x1p-30;
constexpr double ratio_min = 1e-150, ratio_max = 1e150;  // beyond these the guard does not hold

// What is ranked. On magnitude ratios q: the signed error (key q), the magnitude |error|
// (key max(q, 1/q)), the deviation |error - median| (key max(q/c, c/q), c the ratio of
// the median); these keys order the ratios like their values up to the guard. On plain
// values x: the value itself and its distance |x - c| from a centre, exact keys.
enum class statistic_kind { signed_error, magnitude, deviation, value, distance };

struct statistic {
    statistic_kind kind;
    double centre = 1.0;     // deviation: 10^(median / 20); distance: the centre
    double centre_db = 0.0;  // deviation: the median in dB
    double key(double x) const {
        switch (kind) {
        case statistic_kind::signed_error: return x;
        case statistic_kind::magnitude: return x >= 1.0 ? x : 1.0 / x;
        case statistic_kind::deviation: return x >= centre ? x / centre : centre / x;
        case statistic_kind::value: return x;
        case statistic_kind::distance: return std::fabs(x - centre);
        }
        return x;
    }
    double value(double x) const {
        switch (kind) {
        case statistic_kind::signed_error: return error_of(x);
        case statistic_kind::magnitude: return std::fabs(error_of(x));
        case statistic_kind::deviation: return std::fabs(error_of(x) - centre_db);
        case statistic_kind::value: return x;
        case statistic_kind::distance: return std::fabs(x - centre);
        }
        return x;
    }
    bool on_ratios() const { return kind != statistic_kind::value && kind != statistic_kind::distance; }
    bool two_sided() const { return kind == statistic_kind::magnitude || kind == statistic_kind::deviation || kind == statistic_kind::distance; }
};

constexpr double infinity = std::numeric_limits<double>::infinity();

// How many of x[0..n) lie in [lo, hi], and in (lo, hi): four values compared side by side
// (built for the baseline instruction set and for AVX2, chosen when the program starts).
std::size_t count_inside(const double* x, std::size_t n, double lo, double hi);
std::size_t count_strictly_inside(const double* x, std::size_t n, double lo, double hi);

// A band of keys [key_lo, key_hi] expected to hold the ranks of a statistic, placed from
// a sorted sample of keys, and what one pass over the values finds of it: how many keys
// lie below it and the values inside it. The pass tests values against thresholds (one
// or two intervals, no division); the thresholds round a little, so the rank (with its
// guard) must sit clearly inside the band, else resolve gives nothing and the caller
// takes its plain route.
class rank_band {
public:
    rank_band(const statistic& st, const std::vector<double>& sorted_sample, double fraction, std::uint64_t offered,
         std::size_t cap)
        : st_(st), cap_(cap) {
        const double s = static_cast<double>(sorted_sample.size());
        // Five standard deviations of a sample rank either side, and a few ranks more.
        const double margin = 5.0 * std::sqrt(s * fraction * (1.0 - fraction)) + 8.0;
        const double from = fraction * s - margin, to = fraction * s + margin;
        if (from >= 0.0) key_lo_ = sorted_sample[static_cast<std::size_t>(from)];
        if (to < s - 1.0) key_hi_ = sorted_sample[static_cast<std::size_t>(to) + 1];
        // Two-sided keys never go below their bottom (1 for ratios, 0 for distances).
        const double bottom = st.on_ratios() ? 1.0 : 0.0;
        // A sample that is one value across the band (a tie, as in identical or scaled
        // files) gives a band around that value, whose few distinct members are counted.
        degenerate_ = key_lo_ == key_hi_ || (st.two_sided() && key_hi_ <= bottom);
        if (degenerate_) {
            const double k = st.two_sided() ? std::max(key_hi_, bottom) : key_hi_;
            // Widened a little, so that the tie sits strictly inside (with its guard).
            const double room = st.on_ratios() ? k * 4.0 * ratio_guard : std::fabs(k) * 0x1p-40 + 1e-300;
            key_lo_ = k - room;
            key_hi_ = k + room;
        }
        // A two-sided band reaching the bottom has nothing below it.
        if (st.two_sided() && key_lo_ <= bottom) key_lo_ = -infinity;
        if (!st.two_sided()) {
            up_lo_ = key_lo_;
            up_hi_ = key_hi_;
            below_hi_ = key_lo_;
        } else if (st.on_ratios()) {
            const double c = st.kind == statistic_kind::deviation ? st.centre : 1.0;
            const double lo = std::max(key_lo_, bottom);
            up_lo_ = c * lo;
            up_hi_ = c * key_hi_;
            down_lo_ = c / key_hi_;
            down_hi_ = c / lo;
            below_lo_ = down_hi_;
            below_hi_ = up_lo_;
        } else {
            const double c = st.centre, lo = std::max(key_lo_, bottom);
            up_lo_ = c + lo;
            up_hi_ = c + key_hi_;
            down_lo_ = c - key_hi_;
            down_hi_ = c - lo;
            below_lo_ = down_hi_;
            below_hi_ = up_lo_;
        }
        if (degenerate_) {
            distinct_.reserve(64);
        } else {
            const double share = (std::min(to, s) - std::max(from, 0.0)) / s;
            const double expected = share * 1.25 * static_cast<double>(offered) + 64.0;
            members_.resize(std::min<std::size_t>(cap_, static_cast<std::size_t>(expected)) + 1);
        }
    }

    // Offers a block of values: counts those keyed below the band and keeps those inside.
    void add(const double* q, std::size_t count) {
        below_ += count_strictly_inside(q, count, below_lo_, below_hi_);
        if (degenerate_) {
            for (std::size_t i = 0; i < count; ++i)
                if (inside(q[i])) add_distinct(q[i]);
            return;
        }
        if (overflow_) return;
        while (count_ + count >= members_.size()) {
            if (!grow()) return;
        }
        double* out = members_.data();
        std::size_t kept = count_;
        for (std::size_t i = 0; i < count; ++i) {
            out[kept] = q[i];
            kept += inside(q[i]);
        }
        count_ = kept;
    }

    // The value of the statistic at `rank` (0-based, ascending, among all values offered).
    // Empty when the band does not hold the rank with its whole guard clearly inside.
    std::optional<double> resolve(std::uint64_t rank) const {
        if (overflow_) return std::nullopt;
        // (key, value, count) of the members: one entry a member, or a distinct member with its count.
        std::vector<entry> entries;
        if (degenerate_) {
            for (const auto& [q, n] : distinct_) entries.push_back({st_.key(q), q, n});
        } else {
            entries.resize(count_);
            for (std::size_t i = 0; i < count_; ++i) entries[i] = {st_.key(members_[i]), members_[i], 1};
        }
        std::uint64_t total = 0;
        for (const entry& e : entries) total += e.count;
        if (rank < below_ || rank - below_ >= total) return std::nullopt;
        const double key_k = select_weighted(entries, rank - below_, [](const entry& e) { return e.key; });
        // Ratio keys need their guard inside the band, with room for the rounding of the
        // thresholds on q; exact keys need the rank's key strictly inside it (a member on
        // the edge might have been counted as below or above).
        const double guard = st_.on_ratios() ? ratio_guard : 0.0;
        const double g_lo = key_k * (1.0 - guard), g_hi = key_k * (1.0 + guard);
        const double c = st_.kind == statistic_kind::distance ? std::fabs(st_.centre) : 0.0;
        auto room = [&](double edge) { return st_.on_ratios() ? edge * 0x1p-40 : (c + std::fabs(edge)) * 0x1p-50; };
        if (key_lo_ > -infinity && !(g_lo - key_lo_ > room(key_lo_))) return std::nullopt;
        if (key_hi_ < infinity && !(key_hi_ - g_hi > room(key_hi_))) return std::nullopt;
        // Every member keyed below the guard has a smaller value than the rank's, every one
        // keyed above it a larger; inside it the values are computed and ranked.
        std::uint64_t under = below_;
        std::vector<entry> values;
        for (const entry& e : entries) {
            if (e.key < g_lo)
                under += e.count;
            else if (e.key <= g_hi)
                values.push_back({st_.value(e.q), e.q, e.count});
        }
        return select_weighted(values, rank - under, [](const entry& e) { return e.key; });
    }

private:
    struct entry {
        double key, q;
        std::uint64_t count;
    };
    // The field `f` of the entry holding weighted rank `rank`; reorders the entries.
    template <class F>
    static double select_weighted(std::vector<entry>& es, std::uint64_t rank, F f) {
        const bool unit = std::all_of(es.begin(), es.end(), [](const entry& e) { return e.count == 1; });
        auto less = [&](const entry& a, const entry& b) { return f(a) < f(b); };
        if (unit) {
            const auto at = es.begin() + static_cast<std::ptrdiff_t>(rank);
            std::nth_element(es.begin(), at, es.end(), less);
            return f(*at);
        }
        std::sort(es.begin(), es.end(), less);  // a few distinct members
        for (const entry& e : es) {
            if (rank < e.count) return f(e);
            rank -= e.count;
        }
        return f(es.back());
    }
    bool inside(double q) const { return ((q >= up_lo_) & (q <= up_hi_)) | ((q >= down_lo_) & (q <= down_hi_)); }
    // Doubles the member store up to the cap; past it (or without memory) the band is
    // given up and the pass goes on without it.
    bool grow() {
        try {
            if (members_.size() <= cap_) {
                members_.resize(std::min(cap_ + 1, members_.size() * 2));
                return true;
            }
        } catch (const std::bad_alloc&) {
        }
        overflow_ = true;
        members_ = {};
        return false;
    }
    void add_distinct(double q) {
        for (auto& [v, n] : distinct_)
            if (v == q) {
                ++n;
                return;
            }
        if (distinct_.size() == 64)
            overflow_ = true;
        else
            distinct_.push_back({q, 1});  // reserved: never allocates here
    }

    statistic st_;
    std::size_t cap_;
    double key_lo_ = -infinity, key_hi_ = infinity;
    // Members: q in [up_lo, up_hi] or [down_lo, down_hi]; below: below_lo < q < below_hi.
    double up_lo_ = infinity, up_hi_ = -infinity, down_lo_ = infinity, down_hi_ = -infinity, below_lo_ = -infinity, below_hi_ = -infinity;
    bool degenerate_ = false, overflow_ = false;
    std::uint64_t below_ = 0;
    std::vector<double> members_;
    std::size_t count_ = 0;
    std::vector<std::pair<double, std::uint64_t>> distinct_;
};

// A fixed pseudo-random set of sample_count positions in [0, n), the same every run, in
// ascending order: visited in address order, the scattered reads cost fewer page walks.
constexpr std::size_t sample_count = 16384;
std::vector<std::uint64_t> sample_positions(std::uint64_t n);

// The keys of a sample, ascending.
std::vector<double> sorted_keys(std::vector<double> xs, const statistic& st);

// The median (both middle ranks for an even count) of n values offered to a band.
std::optional<double> median_from(const rank_band& b, std::uint64_t n);

}  // namespace veltrane
