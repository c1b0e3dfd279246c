// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/diff.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <vector>

#include <android-base/logging.h>

#include "tools/common/text.h"
#include "tools/workbench/difference.h"
#include "tools/workbench/exit_status.h"
#include "tools/workbench/inputs.h"
#include "tools/workbench/json.h"
#include "tools/workbench/list.h"
#include "tools/workbench/paragraph.h"

namespace android::vus::workbench {

namespace {

// In each direction; JSON has all.
constexpr size_t kMostShown = 20;

// A known device on which the policies do not agree, or a difference's example.
struct Verdicts {
    Judgement before;
    Judgement after;

    bool changed() const { return before.allowed != after.allowed; }
};

struct ChangedDevice {
    Device device;
    Verdicts verdicts;
};

Json::Value sideOf(const Judgement& judgement) {
    Json::Value value(Json::objectValue);
    value["allowed"] = judgement.allowed;
    value["reason"] = judgement.reason;
    value["lines"] = Json::Value(Json::arrayValue);
    for (const Rule& rule : judgement.matched) value["lines"].append(rule.line);
    return value;
}

const char* wordFor(bool admitted) {
    return admitted ? "admitted" : "refused";
}

// One comparison, from the files to the report.
class Diff {
  public:
    Diff(const DiffOptions& options, const Policy& before, const Policy& after, std::ostream& out)
          : options_(options),
            before_(before),
            after_(after),
            differences_(differences(ClosedForm(before), ClosedForm(after))),
            out_(out) {}

    // Returns what is wrong with the list of known devices; an empty text if nothing is.
    std::string addDevices(std::istream& in, const std::string& file) {
        return readDevices(in, file, [this](Device device) {
            ++known_;
            // Of a device that is left to the input subsystem no policy is asked.
            if (screeningOf(device) == Screening::kLeftToInput) return;
            Verdicts verdicts = judged(device.claim);
            if (verdicts.changed()) changed_.push_back({std::move(device), std::move(verdicts)});
        });
    }

    void write() const {
        switch (options_.format) {
            case ReportFormat::kText:
                return writeText();
            case ReportFormat::kJson:
                return writeJson();
            case ReportFormat::kHtml:
                return writeHtml();
        }
    }

    bool admitsMore() const {
        return std::any_of(differences_.begin(), differences_.end(),
                           [](const Difference& each) { return each.admitted; });
    }

  private:
    Verdicts judged(const Claim& claim) const {
        return {judge(claim, before_), judge(claim, after_)};
    }

    // Nothing is shown that the judge does not confirm.
    Verdicts confirmed(const Difference& difference) const {
        Verdicts verdicts = judged(difference.witness);
        CHECK_EQ(verdicts.after.allowed, difference.admitted) << describe(difference);
        CHECK_EQ(verdicts.before.allowed, !difference.admitted) << describe(difference);
        return verdicts;
    }

    void writeText() const {
        if (differences_.empty()) out_ << "no device is judged differently\n";
        writeDirection(true);
        writeDirection(false);
        if (options_.devices) writeDevices();
    }

    void writeDirection(bool admitted) const {
        size_t count = 0;
        for (const Difference& each : differences_) {
            if (each.admitted != admitted) continue;
            if (count == 0) {
                out_ << wordFor(admitted) << " now, " << wordFor(!admitted) << " before:\n";
            }
            if (++count <= kMostShown) writeDifference(each);
        }
        if (count > kMostShown) {
            out_ << "  and " << count - kMostShown << " more (--json has all)\n";
        }
    }

    void writeDifference(const Difference& difference) const {
        writeParagraph(out_, "  ", describe(difference));
        writeParagraph(out_, "    for example ", describe(exampleOf(difference.witness)));
        writeVerdicts(confirmed(difference));
    }

    void writeVerdicts(const Verdicts& verdicts) const {
        writeParagraph(out_, "      before: ", reasonOf(verdicts.before));
        writeParagraph(out_, "      now:    ", reasonOf(verdicts.after));
    }

    void writeDevices() const {
        out_ << knownDevicesText() << (changed_.empty() ? "\n" : ":\n");
        for (const ChangedDevice& each : changed_) {
            const std::string verdict =
                    std::string("  ") + wordFor(each.verdicts.after.allowed) + " now: ";
            writeParagraph(out_, verdict, describe(each.device));
            writeVerdicts(each.verdicts);
        }
    }

    void writeJson() const {
        Json::Value report(Json::objectValue);
        report["before"] = options_.before;
        report["after"] = options_.after;
        report["differences"] = Json::Value(Json::arrayValue);
        for (const Difference& each : differences_) {
            Json::Value value = valueOf(confirmed(each));
            value["change"] = wordFor(each.admitted);
            value["what"] = describe(each);
            value["device"] = toJson(exampleOf(each.witness));
            report["differences"].append(std::move(value));
        }
        if (options_.devices) addDevicesTo(&report);
        out_ << toJsonText(report);
    }

    void addDevicesTo(Json::Value* report) const {
        (*report)["knownDevices"] = static_cast<Json::UInt64>(known_);
        (*report)["devices"] = Json::Value(Json::arrayValue);
        for (const ChangedDevice& each : changed_) {
            Json::Value value = valueOf(each.verdicts);
            value["change"] = wordFor(each.verdicts.after.allowed);
            value["device"] = toJson(each.device);
            (*report)["devices"].append(std::move(value));
        }
    }

    static Json::Value valueOf(const Verdicts& verdicts) {
        Json::Value value(Json::objectValue);
        value["before"] = sideOf(verdicts.before);
        value["after"] = sideOf(verdicts.after);
        return value;
    }

    void writeHtml() const {
        HtmlReport report(out_, "What changes from " + options_.before + " to " + options_.after);
        if (differences_.empty()) {
            report.paragraph("No device is judged differently.");
        } else {
            writeDifferences(&report);
        }
        if (options_.devices) {
            report.paragraph(knownDevicesText());
            if (!changed_.empty()) writeDevices(&report);
        }
        report.end();
    }

    void writeDifferences(HtmlReport* report) const {
        report->beginTable("For every device that anybody could build",
                           {{"Now", ColumnKind::kChoice},
                            {"What", ColumnKind::kText},
                            {"For example", ColumnKind::kText},
                            {"Before", ColumnKind::kText},
                            {"Now, because", ColumnKind::kText}});
        for (const Difference& each : differences_) {
            const Verdicts verdicts = confirmed(each);
            report->row({nowCell(verdicts),
                         {describe(each)},
                         {describe(exampleOf(each.witness))},
                         {reasonOf(verdicts.before)},
                         {reasonOf(verdicts.after)}},
                        rowClass(verdicts));
        }
        report->endTable();
    }

    void writeDevices(HtmlReport* report) const {
        std::vector<HtmlColumn> columns = {{"Now", ColumnKind::kChoice}};
        for (const HtmlColumn& each : deviceColumns()) columns.push_back(each);
        columns.push_back({"Before", ColumnKind::kText});
        columns.push_back({"Now, because", ColumnKind::kText});
        report->beginTable("Known devices that are judged differently", columns);
        for (const ChangedDevice& each : changed_) {
            std::vector<HtmlCell> cells = {nowCell(each.verdicts)};
            for (HtmlCell& cell : deviceCells(each.device)) cells.push_back(std::move(cell));
            cells.push_back({reasonOf(each.verdicts.before)});
            cells.push_back({reasonOf(each.verdicts.after)});
            report->row(cells, rowClass(each.verdicts));
        }
        report->endTable();
    }

    static HtmlCell nowCell(const Verdicts& verdicts) {
        return {wordFor(verdicts.after.allowed), "", {}, /*strong=*/true};
    }

    static const char* rowClass(const Verdicts& verdicts) {
        return verdicts.after.allowed ? "allowed" : "refused";
    }

    // "1 of 5 known devices judged differently"
    std::string knownDevicesText() const {
        return std::to_string(changed_.size()) + " of " + std::to_string(known_) + " known device" +
               (known_ == 1 ? "" : "s") + " judged differently";
    }

    const DiffOptions& options_;
    const PolicyRules before_;
    const PolicyRules after_;
    const std::vector<Difference> differences_;
    std::ostream& out_;
    size_t known_ = 0;
    std::vector<ChangedDevice> changed_;
};

bool addDevices(const std::string& path, Diff* diff, std::ostream& err) {
    std::string error;
    if (path == "-") {
        error = diff->addDevices(std::cin, path);
    } else {
        std::ifstream file(path);
        if (file) {
            error = diff->addDevices(file, path);
        } else {
            error = "cannot read " + path;
        }
    }
    if (!error.empty()) err << "vusctl: " << printable(error) << "\n";
    return error.empty();
}

}  // namespace

int runDiff(const DiffOptions& options, std::ostream& out, std::ostream& err) {
    int status = kClean;
    const std::optional<Policy> before = readPolicy(options.before, err, &status);
    if (!before) return status;
    const std::optional<Policy> after = readPolicy(options.after, err, &status);
    if (!after) return status;
    Diff diff(options, *before, *after, out);
    if (options.devices && !addDevices(*options.devices, &diff, err)) return kFailed;
    diff.write();
    if (!options.noNewAccess || !diff.admitsMore()) return kClean;
    err << "vusctl: the new policy admits what the old one refused\n";
    return kRefused;
}

}  // namespace android::vus::workbench
