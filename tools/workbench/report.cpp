// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/report.h"

#include <utility>

#include <android-base/strings.h>

#include "tools/workbench/walk.h"

namespace android::vus::workbench {

namespace {

std::string lineTexts(const Judgement& judgement) {
    std::vector<std::string> lines;
    for (const Rule& rule : judgement.matched) lines.push_back(lineOf(rule));
    return base::Join(lines, ", ");
}

// The first line; nothing if no rule decided.
std::string lineKey(const Judgement& judgement) {
    return judgement.matched.empty() ? "" : std::to_string(judgement.matched.front().line);
}

std::vector<std::string> detailLines(const Explanation& explanation) {
    std::vector<std::string> details = explanation.walk;
    for (const Remedy& remedy : explanation.remedies) {
        details.push_back("would be admitted: " + remedy.change);
        details.push_back("and with it: " + remedy.also);
    }
    return details;
}

// What the daemon says; of a device of which the policy may not be asked, that comes first.
std::string reasonText(const Explanation& explanation) {
    if (explanation.screening == Screening::kJudged) return explanation.judgement.reason;
    std::string screening = screeningText(explanation.screening);
    if (explanation.screening == Screening::kLeftToInput) return screening;
    return screening + " " + (explanation.judgement.allowed ? "allowed: " : "refused: ") +
           explanation.judgement.reason;
}

}  // namespace

std::vector<HtmlColumn> deviceColumns() {
    return {{"Type", ColumnKind::kChoice},
            {"Ids", ColumnKind::kWord},
            {"Classes", ColumnKind::kText},
            {"Name", ColumnKind::kText}};
}

std::vector<HtmlCell> deviceCells(const Device& device) {
    return {{device.type == DeviceType::kUsb ? "usb" : "input"},
            {idPair(device.claim.vendorId, device.claim.productId)},
            {classesOf(device)},
            {device.name}};
}

ExplanationReport::ExplanationReport(std::ostream& out, const std::string& policy)
      : report_(out, "What " + policy + " says of these devices") {
    std::vector<HtmlColumn> columns = {{"Number", ColumnKind::kNumber}};
    for (const HtmlColumn& each : deviceColumns()) columns.push_back(each);
    for (const HtmlColumn& each : {HtmlColumn{"Verdict", ColumnKind::kChoice},
                                   {"Rule", ColumnKind::kNumber},
                                   {"Reason", ColumnKind::kText}}) {
        columns.push_back(each);
    }
    report_.beginTable("Each device, with the rule that decides and what was looked at", columns);
}

void ExplanationReport::add(const Explanation& explanation) {
    const Judgement& judgement = explanation.judgement;
    std::vector<HtmlCell> cells = {{std::to_string(++count_)}};
    for (HtmlCell& each : deviceCells(explanation.device)) cells.push_back(std::move(each));
    cells.push_back({explanation.verdict(), "", {}, /*strong=*/true});
    cells.push_back({lineTexts(judgement), lineKey(judgement)});
    cells.push_back({reasonText(explanation), "", detailLines(explanation)});
    report_.row(cells, explanation.verdict());
}

void ExplanationReport::end(const std::string& sum, bool complete) {
    report_.endTable();
    if (!complete) {
        report_.warning("Not every device is here: the list could not be read to its end.");
    }
    report_.paragraph(sum);
    report_.end();
}

}  // namespace android::vus::workbench
