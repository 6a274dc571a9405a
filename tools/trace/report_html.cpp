// SPDX-License-Identifier: MIT
// The report as a page: the page is fixed (report.html, report.css, report.js), the report stands in
// it as JSON.
#include "report.h"

namespace vektrace {

// What precedes the report in the page and what follows it; made when the program is built.
extern const char page_before[];
extern const char page_after[];

std::string format_html(const Report &report)
{
    std::string page = page_before;
    // In JSON, only strings have this character; without it, no text can end the script element.
    for (char c : format_json(report)) {
        if (c == '<') {
            page += "\\u003c";
        } else {
            page += c;
        }
    }
    return page + page_after;
}

} // namespace vektrace
