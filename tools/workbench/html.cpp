// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/html.h"

#include <android-base/logging.h>

#include "tools/common/text.h"
#include "tools/workbench/digest.h"
#include "tools/workbench/html_assets.h"

namespace android::vus::workbench {

namespace {

const char* entityOf(char c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return "&#39;";
        default:
            return nullptr;
    }
}

const char* kindName(ColumnKind kind) {
    switch (kind) {
        case ColumnKind::kText:
            return "text";
        case ColumnKind::kWord:
            return "word";
        case ColumnKind::kNumber:
            return "number";
        case ColumnKind::kChoice:
            return "choice";
    }
    return "text";
}

std::string contentPolicy() {
    return "default-src 'none'; base-uri 'none'; form-action 'none'; style-src 'sha256-" +
           sha256Base64(kHtmlStyle) + "'; script-src 'sha256-" + sha256Base64(kHtmlScript) + "'";
}

void writeCell(std::ostream& out, const HtmlColumn& column, const HtmlCell& cell) {
    out << "<td class=\"" << kindName(column.kind) << "\"";
    if (!cell.key.empty()) out << " data-key=\"" << htmlEscaped(cell.key) << "\"";
    const char* const name = cell.strong ? "strong" : "span";
    out << "><" << name << ">" << htmlEscaped(cell.text) << "</" << name << ">";
    if (!cell.details.empty()) {
        out << "<ul>";
        for (const std::string& line : cell.details) out << "<li>" << htmlEscaped(line) << "</li>";
        out << "</ul>";
    }
    out << "</td>";
}

}  // namespace

std::string htmlEscaped(const std::string& text) {
    std::string escaped;
    for (const char c : printable(text)) {
        if (const char* const entity = entityOf(c)) {
            escaped += entity;
        } else {
            escaped += c;
        }
    }
    return escaped;
}

HtmlReport::HtmlReport(std::ostream& out, const std::string& title) : out_(out) {
    // The policy comes before what it is for.
    out_ << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         << "<meta http-equiv=\"Content-Security-Policy\" content=\"" << contentPolicy() << "\">\n"
         << "<meta name=\"referrer\" content=\"no-referrer\">\n"
         << "<meta name=\"viewport\" content=\"width=device-width\">\n"
         << "<title>" << htmlEscaped(title) << "</title>\n"
         << "<style>" << kHtmlStyle << "</style>\n"
         << "<script>" << kHtmlScript << "</script>\n"
         << "</head>\n<body>\n<h1>" << htmlEscaped(title) << "</h1>\n";
}

void HtmlReport::paragraph(const std::string& text) {
    out_ << "<p>" << htmlEscaped(text) << "</p>\n";
}

void HtmlReport::warning(const std::string& text) {
    out_ << "<p class=\"warning\" role=\"alert\">" << htmlEscaped(text) << "</p>\n";
}

void HtmlReport::beginTable(const std::string& caption, const std::vector<HtmlColumn>& columns) {
    columns_ = columns;
    out_ << "<table>\n<caption>" << htmlEscaped(caption) << "</caption>\n<thead><tr>";
    for (const HtmlColumn& column : columns_) {
        out_ << "<th scope=\"col\" data-kind=\"" << kindName(column.kind) << "\">"
             << htmlEscaped(column.title) << "</th>";
    }
    out_ << "</tr></thead>\n<tbody>\n";
}

void HtmlReport::row(const std::vector<HtmlCell>& cells, const std::string& verdict) {
    CHECK_EQ(cells.size(), columns_.size());
    out_ << "<tr class=\"" << htmlEscaped(verdict) << "\">";
    for (size_t at = 0; at < cells.size(); ++at) writeCell(out_, columns_[at], cells[at]);
    out_ << "</tr>\n";
}

void HtmlReport::endTable() {
    out_ << "</tbody>\n</table>\n";
}

void HtmlReport::end() {
    out_ << "</body>\n</html>\n";
}

}  // namespace android::vus::workbench
