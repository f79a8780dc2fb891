#include "cli/error_report.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ostream>

#include "cli/output_paths.h"
#include "cli/usage.h"
#include "report/error_page.h"
#include "util/files.h"
#include "util/json_writer.h"

namespace veltrane {

void run_error_summary_clear(run_error_summary& summary) {
    summary.text[0] = '\0';
    summary.len = 0;
}

void run_error_summary_append(run_error_summary& summary, std::string_view message) {
    auto put = [&summary](std::string_view piece) {
        std::size_t room = run_error_summary_size - 1 - summary.len;
        std::size_t n = piece.size() < room ? piece.size() : room;
        std::memcpy(summary.text + summary.len, piece.data(), n);
        summary.len += n;
        summary.text[summary.len] = '\0';
    };
    if (summary.len > 0) put("; ");
    put(message);
}

run_error_summary& current_run_error_summary() {
    static run_error_summary summary;
    return summary;
}

void report_run_error(std::ostream& err, const char* format, ...) {
    char message[run_error_message_size];
    std::va_list args;
    va_start(args, format);
    int n = std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    if (n < 0) message[0] = '\0';
    err << "error: " << message << "\n";
    run_error_summary_append(current_run_error_summary(), message);
}

bool build_error_document(const error_report_request& request, std::string_view error_text, std::string& document,
                          std::string* failure) {
    char buffer[error_document_buffer_size];
    json_writer w = make_json_writer(buffer, sizeof buffer);
    bool ok = json_begin(w) && json_add_int(w, "veltrane_phase", 2, true) &&
              json_add_string(w, "status", "error", true) && json_add_string(w, "overall_verdict", "ERROR", true) &&
              json_add_string(w, "error", error_text, true) && json_add_string(w, "ref_file", request.ref_path, true) &&
              json_add_string(w, "dut_file", request.dut_path, false) && json_end(w);
    if (!ok) {
        if (failure) *failure = json_failure_text(w);
        document.clear();
        return false;
    }
    document.assign(buffer, static_cast<std::size_t>(w.len));
    return true;
}

void write_error_report(const error_report_request& request, std::string_view error_text, std::ostream& err) {
    output_paths paths;
    if (!resolve_output_paths(request.out_path, request.dut_path, request.json, paths, err)) return;

    error_page_info info{request.ref_path, request.dut_path, std::string(error_text), std::string(program_version)};
    if (!write_error_page(paths.html_path, info)) {
        err << "warning: could not write the error report '" << paths.html_path << "'\n";
        return;
    }
    if (request.json) {
        std::string document;
        std::string overflow;
        const bool built = build_error_document(request, error_text, document, &overflow);
        if (!built || !write_text_file(paths.json_path, document)) {
            // The page just written is this run's; a document an earlier run left beside it
            // would contradict it, so it goes.
            err << "warning: could not write the error report '" << paths.json_path << "'";
            if (!built) err << " (" << overflow << ")";
            err << stale_output_note(paths.json_path) << "\n";
            return;
        }
    }
    err << "wrote an error report to " << paths.html_path << " (overall: ERROR)\n";
}

}  // namespace veltrane
