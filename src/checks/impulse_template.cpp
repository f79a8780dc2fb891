#include "checks/impulse_template.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

namespace veltrane {
namespace {

using index = std::int64_t;

double max_of(const double* R, index first, index last) {  // inclusive; first <= last
    double m = R[first];
    for (index k = first + 1; k <= last; ++k) m = std::max(m, R[k]);
    return m;
}

void raise_to(double* E, index first, index last, double level) {  // inclusive; empty when last < first
    for (index k = first; k <= last; ++k) E[k] = std::max(E[k], level);
}

}  // namespace

std::uint64_t impulse_guard_samples(std::uint32_t sample_rate_hz) {
    return static_cast<std::uint64_t>(static_cast<double>(sample_rate_hz) * impulse_guard_sec);
}

void build_impulse_envelope(const double* R, std::size_t frame_len, const impulse_envelope_levels& lv, double* E) {
    const index n = static_cast<index>(frame_len);
    const index G = static_cast<index>(lv.guard);
    const double P = lv.peak_threshold;
    std::fill(E, E + n, lv.floor);
    if (G > 0) {
        const index edge = std::min(G, n);
        std::fill(E, E + edge, P);
        std::fill(E + (n - edge), E + n, P);
    }
    for (index k = 0; k < n; ++k) E[k] = std::max(E[k], lv.ratio * R[k]);
    for (index k = 0; k < n; ++k) {
        if (!(R[k] > P)) continue;
        const index s = k;
        while (k + 1 < n && R[k + 1] > P) ++k;
        const index e = k;
        const double peak = max_of(R, s, e);
        const double pre = s - 2 < 0 ? 0.0 : max_of(R, std::max<index>(s - 2 - G, 0), s - 2);
        const double post = e + 2 > n - 1 ? 0.0 : max_of(R, e + 2, std::min(e + 2 + G, n - 1));
        raise_to(E, std::max<index>(s - 2, 0), std::min(e + 2, n - 1), std::min(1.0, lv.ratio * peak));
        const double side = std::min(1.0, lv.ratio * std::max(pre, post));
        raise_to(E, std::max<index>(s - 2 - G, 0), std::max<index>(s - 2, 0) - 1, side);
        raise_to(E, e + 3, std::min(e + 3 + G, n) - 1, side);
        // The loop's increment resumes the scan after the sample that ended the run.
    }
}

frame_excess find_excess(const double* D, const double* E, std::size_t n) {
    frame_excess out;
    for (std::size_t k = 0; k < n; ++k) {
        const double x = D[k] - E[k];
        if (!(x > 0.0)) continue;
        if (out.count == 0 || x > out.worst) {
            out.worst = x;
            out.worst_index = k;
        }
        ++out.count;
    }
    return out;
}

impulse_template_result check_impulse_template(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                               double peak_threshold_db, double ratio, double noise_floor_db,
                                               std::int64_t frame_size) {
    impulse_template_result result;
    const std::int64_t start = offset < 0 ? -offset : 0;
    const std::int64_t end =
        std::min(static_cast<std::int64_t>(ref.frame_count), static_cast<std::int64_t>(dut.frame_count) - offset);
    const std::uint64_t covered = end > start ? static_cast<std::uint64_t>(end - start) : 0;
    const std::size_t channels = std::min<std::size_t>({ref.channels, dut.channels, 2});
    result.channel_count = channels;
    const impulse_envelope_levels levels{std::pow(10.0, noise_floor_db / 20.0), std::pow(10.0, peak_threshold_db / 20.0),
                                         ratio, impulse_guard_samples(ref.sample_rate)};
    const std::uint64_t frame = frame_size < 1 ? impulse_default_frame_size : static_cast<std::uint64_t>(frame_size);
    // A frame never holds more than the overlap, so the arrays need no more.
    const std::size_t capacity = static_cast<std::size_t>(std::min(frame, covered));
    for (std::size_t c = 0; c < channels && covered > 0; ++c) {
        impulse_template_channel& ch = result.channels[c];
        std::vector<double> R, D, E;
        try {
            R.resize(capacity);
            D.resize(capacity);
            E.resize(capacity);
        } catch (const std::bad_alloc&) {
            ch.unjudged = true;
            ch.pass = false;
            result.pass = false;
            continue;
        }
        for (std::uint64_t first = 0; first < covered; first += frame) {
            const std::size_t n = static_cast<std::size_t>(std::min(frame, covered - first));
            const std::uint64_t ref_frame = static_cast<std::uint64_t>(start) + first;
            const double* r = ref.samples.data() + ref_frame * ref.channels + c;
            const std::uint64_t dut_frame = static_cast<std::uint64_t>(static_cast<std::int64_t>(ref_frame) + offset);
            const double* d = dut.samples.data() + dut_frame * dut.channels + c;
            for (std::size_t k = 0; k < n; ++k) {
                R[k] = std::fabs(r[k * ref.channels]);
                D[k] = std::fabs(d[k * dut.channels]);
            }
            build_impulse_envelope(R.data(), n, levels, E.data());
            const frame_excess fx = find_excess(D.data(), E.data(), n);
            if (fx.count == 0) continue;
            ch.total_fails += fx.count;
            if (!ch.has_worst || fx.worst > ch.worst_diff) {
                ch.has_worst = true;
                ch.worst_sample = static_cast<std::uint32_t>(ref_frame + fx.worst_index);
                ch.worst_diff = fx.worst;
                ch.worst_ref_amp = R[fx.worst_index];
                ch.worst_dut_amp = D[fx.worst_index];
            }
        }
        ch.pass = ch.total_fails == 0;
        result.pass = result.pass && ch.pass;
    }
    return result;
}

}  // namespace veltrane
