// SPDX-License-Identifier: Apache-2.0
//
// What explain and diff share in what they report: the formats, and for a browser (html.h) the
// looks of devices and explanations.

#pragma once

#include <stddef.h>

#include <ostream>
#include <string>
#include <vector>

#include "tools/workbench/device.h"
#include "tools/workbench/explain.h"
#include "tools/workbench/html.h"

namespace android::vus::workbench {

enum class ReportFormat { kText, kJson, kHtml };

// What a table says of a device: its type, ids, classes and name.
std::vector<HtmlColumn> deviceColumns();
std::vector<HtmlCell> deviceCells(const Device& device);

// The explanations of a list, a row each, written as they come: a list may be of any length. One
// thread; the stream has to outlive it.
class ExplanationReport {
  public:
    ExplanationReport(std::ostream& out, const std::string& policy);

    void add(const Explanation& explanation);
    // Ends it. `sum` says how many there were. A report of a list that could not be read to its end
    // is not `complete`, and must not look so.
    void end(const std::string& sum, bool complete);

  private:
    HtmlReport report_;
    size_t count_ = 0;
};

}  // namespace android::vus::workbench
