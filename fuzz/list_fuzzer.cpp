// SPDX-License-Identifier: Apache-2.0

// Reads any bytes as a list of devices: what is taken goes round, what is wrong is said on one line
// that is fit for a terminal, and the report on it is a row for each device, whatever they are
// called.

#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include <tinyxml2.h>

#include "fuzz/fuzzing.h"
#include "tools/common/text.h"
#include "tools/workbench/explain.h"
#include "tools/workbench/list.h"
#include "tools/workbench/report.h"

namespace android::vus::workbench {
namespace {

const char* NameOf(const tinyxml2::XMLNode* node) {
    return node == nullptr || node->ToElement() == nullptr ? "" : node->ToElement()->Name();
}

// The elements of a row are those that were written for it.
void CheckRow(const tinyxml2::XMLNode& row) {
    Require(NameOf(&row) == std::string("tr"));
    size_t cells = 0;
    for (const auto* cell = row.FirstChild(); cell != nullptr; cell = cell->NextSibling()) {
        Require(NameOf(cell) == std::string("td"));
        for (const auto* part = cell->FirstChild(); part != nullptr; part = part->NextSibling()) {
            const std::string name = NameOf(part);
            Require(name == "span" || name == "strong" || name == "ul");
        }
        ++cells;
    }
    Require(cells == 8);
}

void CheckReport(const std::vector<Device>& devices) {
    static const Policy policy = std::get<Policy>(
            parsePolicy("<usbconfig mode=\"whitelist\"><class>USB_CLASS_AUDIO</class>"
                        "<vid vendorid=\"1\"><pid>2</pid></vid></usbconfig>"));
    const Explainer explainer(policy);
    std::ostringstream out;
    ExplanationReport report(out, "policy");
    const size_t begin = out.str().find("<tbody>");
    for (const Device& device : devices) report.add(explainer.explain(device));
    report.end("all", true);
    const std::string page = out.str();
    const std::string end = "</tbody>";
    const std::string body = page.substr(begin, page.find(end) + end.size() - begin);
    tinyxml2::XMLDocument document;
    Require(document.Parse(body.data(), body.size()) == tinyxml2::XML_SUCCESS);
    size_t rows = 0;
    for (const auto* row = document.RootElement()->FirstChild(); row != nullptr;
         row = row->NextSibling()) {
        CheckRow(*row);
        ++rows;
    }
    Require(rows == devices.size());
}

}  // namespace
}  // namespace android::vus::workbench

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus;             // NOLINT(google-build-using-namespace)
    using namespace android::vus::workbench;  // NOLINT(google-build-using-namespace)
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<Device> devices;
    const std::string error = readDevices(in, "list", [&devices](Device device) {
        devices.push_back(std::move(device));
    });
    Require(printable(error) == error);
    std::stringstream again;
    for (const Device& device : devices) {
        const std::string text = describe(device);
        Require(printable(text) == text);
        writeDevice(again, device);
    }
    CheckReport(devices);
    size_t at = 0;
    const std::string none = readDevices(again, "again", [&](const Device& device) {
        Require(at < devices.size() && device == devices[at]);
        ++at;
    });
    Require(none.empty() && at == devices.size());
    return 0;
}
