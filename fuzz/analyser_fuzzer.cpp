// SPDX-License-Identifier: Apache-2.0

// Two policies and a list of aliases, NUL between them, through everything that the analyser says
// of them. It ends the program by itself when the judge does not confirm what it is about to show;
// what it shows has to be fit for a terminal.

#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "fuzz/fuzzing.h"
#include "tests/support/world.h"
#include "tools/workbench/check.h"
#include "tools/workbench/diff.h"
#include "tools/workbench/difference.h"
#include "tools/workbench/surface_command.h"

namespace android::vus {
namespace {

constexpr char kOld[] = "/data/old.xml";
constexpr char kNew[] = "/data/new.xml";
constexpr char kAliases[] = "/data/modules.alias";

// The part before the next NUL is taken off.
std::string TakePart(std::string* input) {
    const size_t end = std::min(input->find('\0'), input->size());
    std::string part = input->substr(0, end);
    input->erase(0, std::min(end + 1, input->size()));
    return part;
}

void CheckOutput(const std::string& text) {
    Require(std::all_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) >= ' ' || c == '\n'; }));
    Require(text.find("\xC2\x9B") == std::string::npos);
}

void CheckAll() {
    using workbench::Format;
    for (const Format format : {Format::kText, Format::kJson, Format::kSarif}) {
        std::ostringstream out, err;
        const int status = workbench::runCheck({kOld, true, format, {}}, nullptr, out, err);
        Require(status == 0 || status == 1 || status == 5);
        CheckOutput(out.str());
    }
    using workbench::ReportFormat;
    for (const ReportFormat format :
         {ReportFormat::kText, ReportFormat::kJson, ReportFormat::kHtml}) {
        std::ostringstream out, err;
        const int status = workbench::runDiff({kOld, kNew, {}, true, format}, out, err);
        Require(status == 0 || status == 1);
        CheckOutput(out.str() + err.str());
    }
    for (const bool json : {false, true}) {
        std::ostringstream out, err;
        workbench::runSurface({kOld, kAliases, {}, json}, out, err);
        CheckOutput(out.str() + err.str());
    }
}

// No policy differs from itself, and a difference has two sides.
void CheckDifferences(const std::string& before, const std::string& after) {
    const auto one = parsePolicy(before), other = parsePolicy(after);
    const auto *old = std::get_if<Policy>(&one), *now = std::get_if<Policy>(&other);
    if (old == nullptr || now == nullptr) return;
    const workbench::ClosedForm left(*old), right(*now);
    Require(workbench::differences(left, left).empty());
    Require(workbench::differences(left, right).size() ==
            workbench::differences(right, left).size());
}

}  // namespace
}  // namespace android::vus

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus;  // NOLINT(google-build-using-namespace): the names under test
    std::string input(reinterpret_cast<const char*>(data), size);
    const std::string before = TakePart(&input), after = TakePart(&input);
    WriteFile(kOld, before);
    WriteFile(kNew, after);
    WriteFile(kAliases, input);
    CheckAll();
    CheckDifferences(before, after);
    return 0;
}
