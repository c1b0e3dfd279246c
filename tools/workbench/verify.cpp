// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/verify.h"

#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include <android-base/strings.h>

#include "tools/common/text.h"
#include "tools/workbench/sysfs_entry.h"
#include "tools/workbench/tree.h"

namespace android::vus::workbench {

namespace {

namespace fs = std::filesystem;

using Key = std::pair<DeviceType, int32_t>;

std::string driverOf(const fs::path& interface) {
    std::error_code error;
    const fs::path target = fs::read_symlink(interface / "driver", error);
    return error ? "" : printable(target.filename().string());
}

// The interfaces of each attached USB device, by the device's id and then by name.
std::map<int32_t, std::map<std::string, fs::path>> readInterfaces(const std::string& root) {
    std::map<int32_t, std::map<std::string, fs::path>> interfaces;
    for (const auto& [name, device] : sysfsEntries(fs::path(root) / "bus/usb/devices")) {
        if (name.find(':') != std::string::npos) continue;
        const int32_t number = sysfsNumber(device, "devnum", 10);
        if (number == 0) continue;
        auto& found = interfaces[sysfsNumber(device, "busnum", 10) * 1000 + number];
        for (const auto& [entry, path] : sysfsEntries(device)) {
            if (base::StartsWith(entry, name + ":")) found.emplace(entry, path);
        }
    }
    return interfaces;
}

void compareInterfaces(const ListedDevice& listed,
                       const std::map<std::string, fs::path>& interfaces,
                       std::vector<Mismatch>* differences) {
    for (const auto& [name, path] : interfaces) {
        const bool authorized = sysfsText(path, "authorized") != "0";
        const std::string driver = driverOf(path);
        const std::string who = printable(name);
        if (listed.allowed && !authorized) {
            differences->push_back({listed.device, "allowed, but " + who + " is switched off"});
        }
        if (listed.allowed) continue;
        if (authorized) {
            differences->push_back({listed.device, "refused, but " + who + " is authorized"});
        }
        if (!driver.empty()) {
            differences->push_back(
                    {listed.device, "refused, but " + who + " is bound to " + driver});
        }
    }
}

}  // namespace

std::vector<Mismatch> verify(const std::vector<ListedDevice>& listed, const std::string& root) {
    std::vector<Mismatch> differences;
    std::map<Key, Device> attached;
    readTree(root, [&attached](Device device) {
        const Key key = {device.type, device.id.value_or(0)};
        attached.emplace(key, std::move(device));
    });
    const auto interfaces = readInterfaces(root);
    std::set<Key> known;
    for (const ListedDevice& each : listed) {
        const Key key = {each.device.type, each.device.id.value_or(0)};
        known.insert(key);
        const bool usb = each.device.type == DeviceType::kUsb;
        const auto found = interfaces.find(key.second);
        const bool present = usb ? found != interfaces.end() : attached.count(key) != 0;
        if (!present) {
            differences.push_back({each.device, "listed, but not attached"});
        } else if (usb) {
            compareInterfaces(each, found->second, &differences);
        }
    }
    for (const auto& [key, device] : attached) {
        if (known.count(key) != 0 || screeningOf(device) != Screening::kJudged) continue;
        differences.push_back({device, "attached, but not listed"});
    }
    return differences;
}

}  // namespace android::vus::workbench
