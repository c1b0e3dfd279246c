// SPDX-License-Identifier: Apache-2.0

// Runs any bytes as cases of a policy test: a result each, and a report that is XML.

#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include <tinyxml2.h>

#include "fuzz/fuzzing.h"
#include "tools/common/text.h"
#include "tools/workbench/cases.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus;             // NOLINT(google-build-using-namespace)
    using namespace android::vus::workbench;  // NOLINT(google-build-using-namespace)
    static const Policy policy = std::get<Policy>(
            parsePolicy("<usbconfig mode=\"whitelist\"><class>USB_CLASS_AUDIO</class>"
                        "<vid vendorid=\"1\"><pid>2</pid></vid><vid vendorid=\"3\"/></usbconfig>"));
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    Cases cases;
    const std::string error = readCases(in, "cases", &cases);
    Require(printable(error) == error);
    CaseRunner runner(policy);
    std::vector<CaseResult> results;
    for (const Case& test : cases.cases) results.push_back(runner.run(test));
    Require(runner.untouched().size() <= rulesOf(policy).size());
    const std::string report = toJunit(results, "cases");
    tinyxml2::XMLDocument document;
    Require(document.Parse(report.data(), report.size()) == tinyxml2::XML_SUCCESS);
    return 0;
}
