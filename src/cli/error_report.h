#pragma once
// The analyze run's error summary and the ERROR report written when the two input files
// cannot be compared (unreadable, unsuitable formats, no alignment).
//
// Only the failures that make the files incomparable go through report_run_error; each
// is printed as "error: <message>" and collected in the run's summary, which becomes the
// error text of the ERROR page and of the error document.
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

namespace veltrane {

// What the error report needs from the command line, captured once the command line and
// both settings files have been accepted.
struct error_report_request {
    bool armed = false;    // set once the run may end in an error report
    std::string ref_path;  // --ref as typed
    std::string dut_path;  // --dut as typed
    std::string out_path;  // --out as typed
    bool json = false;     // --json was given
};

// One message is formatted into 1500 bytes (at most 1499 characters; longer ones are
// cut); the summary holds 1600 bytes (at most 1599 characters of messages joined by
// "; ", cut where it is full).
inline constexpr std::size_t run_error_message_size = 1500;
inline constexpr std::size_t run_error_summary_size = 1600;

struct run_error_summary {
    char text[run_error_summary_size] = {};
    std::size_t len = 0;
};

void run_error_summary_clear(run_error_summary& summary);
// Appends `message`, preceded by "; " when the summary is not empty, cut to what fits.
void run_error_summary_append(run_error_summary& summary, std::string_view message);
inline std::string_view run_error_summary_text(const run_error_summary& summary) {
    return std::string_view(summary.text, summary.len);
}

// The summary of the current analyze run (one run per process). cmd_analyze clears it
// when it starts.
run_error_summary& current_run_error_summary();

// Formats the message (cut to 1499 characters), prints "error: <message>\n" to `err` and
// appends the message to current_run_error_summary().
void report_run_error(std::ostream& err, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Size of the buffer the error document is built in; an entry that does not fit (a
// summary longer than 511 bytes after escaping, in practice) means no document.
inline constexpr std::size_t error_document_buffer_size = 4096;

// The flat JSON error document: veltrane_phase 2, status "error", overall_verdict
// "ERROR", error (the summary), ref_file, dut_file (the last without a trailing comma).
// False when an entry does not fit; `failure`, when given, then says which
// (json_failure_text).
bool build_error_document(const error_report_request& request, std::string_view error_text, std::string& document,
                          std::string* failure = nullptr);

// Writes the ERROR page (and with --json the error document) where the report would have
// gone, then prints "wrote an error report to <html> (overall: ERROR)" to `err`. Its
// own failures are warnings ("warning: could not write the error report '<path>'"); an
// unresolvable --out stays silent apart from the directory error. When the page was
// written but the document was not, the warning also names the value that did not fit
// (" (the \"error\" value is N bytes long after escaping, over the 511-byte limit)") and
// a document an earlier run left at that path is removed (stale_output_note). Never
// changes the run's exit status.
void write_error_report(const error_report_request& request, std::string_view error_text, std::ostream& err);

}  // namespace veltrane
