// SPDX-License-Identifier: Apache-2.0

// Loads any bytes as a policy, and holds the result to what every load guarantees.

#include <algorithm>
#include <string>
#include <string_view>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "fuzz/fuzzing.h"

namespace android::vus {
namespace {

struct Tables {
    std::string mode;
    std::vector<int32_t> classes;
    std::map<int32_t, std::string> names;
    std::multimap<int32_t, int32_t> vendors;

    bool operator==(const Tables& other) const {
        return mode == other.mode && classes == other.classes && names == other.names &&
               vendors == other.vendors;
    }
};

Tables Load(const char* path) {
    Util::createMapFromConfig(path);
    return {Util::configMode, Util::classList, Util::classMap, Util::vidPidMap};
}

void CheckClasses(const Tables& tables) {
    for (const int32_t code : tables.classes) {
        Require(Util::validateClass(static_cast<uint32_t>(code)));
        Require(!Util::validateRestrictedClass(static_cast<uint32_t>(code)));
        Require(tables.names.count(code) == 1);
    }
    for (const auto& [code, name] : tables.names) {
        Require(Util::getClassName(code) == name);
        Require(std::count(tables.classes.begin(), tables.classes.end(), code) != 0);
    }
}

void CheckVendors(const Tables& tables) {
    for (const auto& [vendor, product] : tables.vendors) {
        Require(vendor >= 0 && product >= Util::kWholeVendor);
        Require(Util::validateVidPid(vendor, product));
        if (product == Util::kWholeVendor) Require(Util::validateVid(vendor));
    }
    Require(!Util::validateVid(-1));
}

void CheckOutcome(const Tables& tables, const std::string& status) {
    const bool rules = tables.mode == "whitelist" || tables.mode == "blacklist";
    if (!Util::xml_parse_status) {
        Require(!status.empty());
    } else {
        Require(rules || tables.mode == "default");
        // A list without rules says so by writing the status that it found.
        Require(status.empty() ==
                (tables.mode == "default" || !tables.classes.empty() || !tables.vendors.empty()));
    }
    if (!rules) Require(tables.classes.empty() && tables.vendors.empty());
}

// The backup of a policy that was accepted must be accepted, too, and mean the same.
void CheckBackup(const Tables& tables) {
    Require(Util::copyFileContent(kPolicyFile, kPolicyBackupFile));
    Require(Load(kPolicyBackupFile) == tables);
    Require(Util::xml_parse_status);
}

}  // namespace
}  // namespace android::vus

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    android::vus::MakeDir(android::vus::kConfigDir);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus;  // NOLINT(google-build-using-namespace): the names under test
    WriteFile(kPolicyFile, std::string(reinterpret_cast<const char*>(data), size));
    WriteFile(kStatusFile, "");
    Util::configMode = "default";
    Util::statusMessage = "SUCCESS";
    const Tables tables = Load(kPolicyFile);
    CheckOutcome(tables, ReadFile(kStatusFile));
    CheckClasses(tables);
    CheckVendors(tables);
    if (Util::xml_parse_status) CheckBackup(tables);
    return 0;
}
