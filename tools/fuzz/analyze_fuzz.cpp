// Fuzz harness from bytes to outputs: two small WAV images and a DUT file name go through
// what an analyze run does in memory (decoding, the format checks, alignment and its
// diagnosis, settings resolution, length mismatch, every check of the table of checks, the
// verdict, the results document and the report page, or the error document and ERROR
// page when the files cannot be compared). Nothing is written to disk.
//
// Input layout: byte 0 switches (bit 0 bit accuracy, bit 1 --bitexact, bit 2
// --no-bitexact), byte 1 the name length N, bytes 2-3 the reference image length R
// (little-endian), then N bytes of DUT name, R bytes of reference image, and the rest is
// the DUT image. The name may hold any byte, so the JSON escaping and the island
// escaping see control bytes, stray UTF-8 and markup.
//
// Invariants besides the sanitizers': every JSON document produced is valid JSON, and
// the page's results island is exactly the escaped document and holds no '<', '>' or '&'.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "align/align.h"
#include "audio/wav.h"
#include "checks/gating.h"
#include "checks/run_results.h"
#include "cli/error_report.h"
#include "cli/results_json.h"
#include "config/run_config.h"
#include "json_check.h"
#include "report/error_page.h"
#include "report/report_inputs.h"
#include "report/report_page.h"
#include "report/text_buf.h"

namespace {

using namespace veltrane;

void require(bool condition) {
    if (!condition) std::abort();
}

constexpr std::string_view ref_name = "ref.wav";
constexpr std::string_view timestamp = "2024-03-05 14:07:09 UTC";
constexpr std::string_view island_open = "<script type=\"application/json\" id=\"veltrane-results\">\n";

bool rates_and_channels_ok(const wav_audio& a) {
    return a.sample_rate >= 22050 && a.sample_rate <= 192000 && (a.channels == 1 || a.channels == 2);
}

// The ERROR outputs: the error document must be valid JSON whenever it fits, and the
// page must build.
void error_outputs(const std::string& dut_name, const std::string& message) {
    error_report_request request;
    request.armed = true;
    request.ref_path = std::string(ref_name);
    request.dut_path = dut_name;
    request.json = true;
    std::string document;
    if (build_error_document(request, message, document)) require(fuzz::is_valid_json(document));
    text_buf buf;
    text_buf_init(buf);
    append_error_page(buf, error_page_info{request.ref_path, dut_name, message, "0.7.1-beta"}, timestamp);
    text_buf_free(buf);
}

void report_outputs(const run_inputs& run, const run_results& results) {
    const gating_summary verdict = collect_gating_failures(results);
    std::string results_json;
    if (!build_results_json(run, results, verdict, results_json)) return;
    require(fuzz::is_valid_json(results_json));
    const report_inputs in{&run, &results, &verdict, results_json, "0.7.1-beta", {}};
    text_buf buf;
    text_buf_init(buf);
    if (append_report_page(buf, in, timestamp)) {
        const std::string_view page = text_buf_view(buf);
        const std::size_t open = page.find(island_open);
        require(open != std::string_view::npos);
        const std::size_t from = open + island_open.size();
        const std::size_t close = page.find("\n</script>\n", from);
        require(close != std::string_view::npos);
        const std::string_view island = page.substr(from, close - from);
        require(island.find_first_of("<>&") == std::string_view::npos);
        require(island == escape_script_close(results_json));
        require(fuzz::is_valid_json(island));
    }
    text_buf_free(buf);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 4) return 0;
    const std::uint8_t switches = data[0];
    const std::size_t name_len = data[1];
    const std::size_t ref_len = static_cast<std::size_t>(data[2]) | (static_cast<std::size_t>(data[3]) << 8);
    if (4 + name_len + ref_len > size) return 0;
    const std::string dut_name(reinterpret_cast<const char*>(data + 4), name_len);
    const std::span<const std::uint8_t> ref_bytes(data + 4 + name_len, ref_len);
    const std::span<const std::uint8_t> dut_bytes(data + 4 + name_len + ref_len, size - 4 - name_len - ref_len);

    wav_audio ref;
    wav_audio dut;
    wav_decode_result read = wav_decode(ref_bytes, ref);
    if (read.ok()) read = wav_decode(dut_bytes, dut);
    if (!read.ok()) {
        const std::string reason = read.error_text.empty() ? wav_error_text() : read.error_text;
        error_outputs(dut_name, "failed to read --dut '" + dut_name + "' (" + reason + ")");
        return 0;
    }
    if (!rates_and_channels_ok(ref) || !rates_and_channels_ok(dut) || ref.channels != dut.channels ||
        ref.sample_rate != dut.sample_rate) {
        error_outputs(dut_name, "--ref and --dut cannot be compared");
        return 0;
    }

    const config_layer no_file;
    const defaults_record no_defaults;
    const alignment_settings align_cfg = resolve_alignment_settings(no_file, no_defaults, ref.sample_rate);
    run_results results;
    results.align = align_channels(ref, dut, align_cfg.max_search_samples, align_cfg.min_confidence,
                              static_cast<std::int32_t>(align_cfg.agreement_tolerance_samples),
                              align_cfg.low_level_threshold_db);
    if (!results.align.aligned) {
        const auto diagnosis = diagnose_alignment(ref, dut, results.align, align_cfg.max_search_samples,
                                                  align_cfg.min_confidence);
        error_outputs(dut_name, compose_alignment_message(results.align, diagnosis, ref.sample_rate,
                                                          align_cfg.min_confidence, align_cfg.max_search_samples,
                                                          static_cast<std::int32_t>(align_cfg.agreement_tolerance_samples)));
        return 0;
    }

    command_line_overrides cl;
    cl.bitaccuracy = (switches & 1) != 0;
    cl.bitexact = (switches & 2) != 0;
    cl.no_bitexact = (switches & 4) != 0;
    const std::uint64_t overlap = compute_overlap(ref.frame_count, dut.frame_count, results.align.file_offset).frames();
    const settings_resolution resolved =
        resolve_check_settings(cl, no_file, no_defaults, ref.sample_rate, overlap);
    if (resolved.error_message) return 0;
    const run_config& cfg = resolved.config;

    record_length_mismatch(results,
                           compute_length_mismatch(ref.frame_count, dut.frame_count, results.align.file_offset,
                                                   cfg.number(param_id::general_length_mismatch_tolerance_pct)));
    run_checks(check_context{ref, dut, results.align.file_offset, cfg}, results);
    report_outputs(run_inputs{std::string(ref_name), dut_name, &ref, &dut, &cfg}, results);
    return 0;
}
