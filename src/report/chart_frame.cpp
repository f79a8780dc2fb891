#include "report/chart_frame.h"

namespace veltrane {

bool append_chart_frame_open(text_buf& buf, const char* scope_class, const char* title, const char* frame_id,
                             chart_kind kind, bool trace_toggle) {
    return text_buf_appendf(buf, "<div class=\"%s\">\n", scope_class) &&
           text_buf_appendf(buf,
                            "<div class=\"scope-head\"><span class=\"title\">%s</span>\n<div "
                            "class=\"zoom-toolbar\"><span class=\"zoom-hint\">scroll to zoom &middot; drag to pan "
                            "&middot; shift+drag to box-zoom</span>",
                            title) &&
           (!trace_toggle ||
            text_buf_appendf(buf,
                             "<div class=\"trace-toggle\" data-target=\"%s\"><button type=\"button\" "
                             "data-mode=\"both\" class=\"active\">Both</button><button type=\"button\" "
                             "data-mode=\"ref\">Ref</button><button type=\"button\" "
                             "data-mode=\"dut\">DUT</button></div>",
                             frame_id)) &&
           text_buf_appendf(buf,
                            "<button type=\"button\" class=\"zoom-reset\" data-zoom-target=\"%s\">Reset "
                            "zoom</button></div>\n</div>\n",
                            frame_id) &&
           text_buf_appendf(buf, "<div class=\"zoom-frame\" data-zoom-kind=\"%s\" id=\"%s\">\n",
                            kind == chart_kind::spectral ? "spectral" : "waveform", frame_id);
}

bool append_chart_frame_close(text_buf& buf, chart_legend legend) {
    return text_buf_append(buf, "<div class=\"zoom-box\" hidden></div>\n</div>\n<div class=\"legend-row\">\n") &&
           text_buf_append(buf, legend == chart_legend::signal
                                    ? "<span><span class=\"sw\" style=\"background:var(--ref)\"></span>Signal</span>\n"
                                    : "<span><span class=\"sw\" style=\"background:var(--ref)\"></span>Reference</span>\n"
                                      "<span><span class=\"sw\" style=\"background:var(--dut)\"></span>Device under "
                                      "test</span>\n") &&
           text_buf_append(buf, "</div>\n</div>\n");
}

}  // namespace veltrane
