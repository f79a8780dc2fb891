#pragma once
// The table of checks: for every check of an analyze run its id, display name, report
// anchor and tab label, the prefix of its keys in the results document, when it runs,
// when it gates the overall verdict, where it stands in the run and on the page, and the
// step that runs it. The verdict, the run driver, the report's navigation, card list and
// Configuration card all read this one table; no display name of a check is typed
// anywhere else.
//
// Rows are in the order of the verdict's failure list and of the results document.
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "config/params.h"

namespace veltrane {

struct check_context;
struct run_results;

// Ids in table order; the results record keeps one status per id.
enum class check_id : std::uint8_t {
    length_mismatch,
    bitexact,
    bit_accuracy,
    levelfidelity,
    artifact,
    spectral,
    distortion,
    loudness,
    time_domain,
    impulse_template,
    count_
};
inline constexpr std::size_t check_count = static_cast<std::size_t>(check_id::count_);

// When a check gates the overall verdict, once it has run.
enum class gate_rule : std::uint8_t {
    always,     // every run that reaches the verdict
    never,      // reported, never part of the verdict
    by_switch,  // when its gating parameter is true
};

// Whether the report shows the check's card and navigation link when it did not run.
enum class shown_rule : std::uint8_t { always, when_ran };

// Runs the check on the run's inputs, stores its record in `out` and returns its verdict.
using check_runner = bool (*)(const check_context& ctx, run_results& out);

struct check_info {
    check_id id;
    std::string_view key;           // "levelfidelity": the verdict's failure list
    std::string_view display_name;  // "Level Fidelity"
    std::string_view anchor;        // "level": the card's element id and the link target
    std::string_view tab_label;     // the navigation link's text
    std::string_view json_prefix;   // "levelfidelity_": keys of the results document
    std::optional<param_id> enabled_by;  // none: runs on every run that reaches the checks
    gate_rule gates;
    std::optional<param_id> gating_switch;  // with gate_rule::by_switch
    shown_rule shown;
    std::uint8_t run_rank;   // position in the run, 0 first (length mismatch runs before all)
    std::uint8_t page_rank;  // position of the card on the page
    check_runner run;        // null for length mismatch, which the driver computes itself
};

// All rows, in table order (the order of check_id).
std::span<const check_info> check_table();
const check_info& check_row(check_id id);

}  // namespace veltrane
