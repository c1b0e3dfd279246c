// SPDX-License-Identifier: Apache-2.0
//
// A report as one HTML file: headings, paragraphs and tables.
//
// Whatever it is told is text, and is escaped here and nowhere else. The file needs no network: it
// forbids the browser any (Content-Security-Policy), and lets it run no script but the one that is
// written with it. That one sorts and filters; without it the tables can be read all the same, in
// the dark and in print.
//
// Written as it comes: memory is bounded by a row. It owns nothing, and the stream has to outlive
// it. One thread.

#pragma once

#include <stddef.h>

#include <ostream>
#include <string>
#include <vector>

namespace android::vus::workbench {

// `text` as the content of an element or of a quoted attribute: printable, see tools/common/text.h,
// and without a character that HTML gives a meaning.
std::string htmlEscaped(const std::string& text);

enum class ColumnKind {
    kText,
    kWord,    // short, and never broken
    kNumber,  // the same, and sorted as one
    kChoice,  // the same, and one of a few
};

struct HtmlColumn {
    const char* title;
    ColumnKind kind;
};

struct HtmlCell {
    std::string text;
    std::string key = {};                   // by which it is sorted, if not by its text
    std::vector<std::string> details = {};  // lines below it, which a reader may hide
    bool strong = false;                    // what the row is about
};

class HtmlReport {
  public:
    HtmlReport(std::ostream& out, const std::string& title);

    void paragraph(const std::string& text);
    // What a reader must not miss.
    void warning(const std::string& text);

    void beginTable(const std::string& caption, const std::vector<HtmlColumn>& columns);
    // As many cells as the table has columns. `verdict` says how the row looks: "allowed",
    // "refused", or any other word for neither.
    void row(const std::vector<HtmlCell>& cells, const std::string& verdict);
    void endTable();

    // Nothing may follow.
    void end();

  private:
    std::ostream& out_;
    std::vector<HtmlColumn> columns_;  // of the table that was begun
};

}  // namespace android::vus::workbench
