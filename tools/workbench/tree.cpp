// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/tree.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <vector>

#include <android-base/strings.h>

#include "tools/common/input_sources.h"
#include "tools/common/text.h"
#include "tools/workbench/sysfs_entry.h"

namespace android::vus::workbench {

namespace {

namespace fs = std::filesystem;

constexpr int32_t kHubClass = 9;
constexpr int kLongBits = 64;  // of a word of the kernel's bitmaps; see Bitmap

bool isOwnDirectory(const fs::path& path) {
    std::error_code error;
    return fs::is_directory(fs::symlink_status(path, error));
}

// A set of event codes as the kernel prints it: words in hexadecimal, the highest first. Of how
// many bits a word is, the text does not say; recordings are of 64-bit machines.
class Bitmap {
  public:
    explicit Bitmap(const std::string& text) {
        for (const std::string& word : base::Split(text, " ")) {
            words_.insert(words_.begin(), strtoull(word.c_str(), nullptr, 16));
        }
    }
    bool has(unsigned bit) const {
        const size_t word = bit / kLongBits;
        return word < words_.size() && (words_[word] >> (bit % kLongBits) & 1) != 0;
    }

  private:
    std::vector<unsigned long long> words_;
};

int32_t sourcesOf(const fs::path& input) {
    const fs::path capabilities = input / "capabilities";
    std::map<unsigned, Bitmap> events;
    const std::pair<unsigned, const char*> kinds[] = {{1, "key"}, {2, "rel"}, {3, "abs"}};
    for (const auto& [type, name] : kinds) events.emplace(type, sysfsText(capabilities, name));
    const Bitmap properties(sysfsText(input, "properties"));
    return input_sources({[&events](unsigned type, unsigned code) {
                              const auto found = events.find(type);
                              return found != events.end() && found->second.has(code);
                          },
                          [&properties](unsigned code) { return properties.has(code); }});
}

// One sysfs.
class TreeReader {
  public:
    explicit TreeReader(const fs::path& root)
          : devices_(root / "bus/usb/devices"), inputs_(root / "class/input") {}

    bool present() const {
        std::error_code error;
        return fs::is_directory(devices_, error) || fs::is_directory(inputs_, error);
    }

    std::vector<Device> read() const {
        std::vector<Device> devices;
        for (const auto& [name, path] : sysfsEntries(devices_)) {
            if (name.find(':') == std::string::npos) readUsb(name, path, &devices);
        }
        for (const auto& [name, path] : sysfsEntries(inputs_)) {
            if (base::StartsWith(name, "input")) readInput(name, path, &devices);
        }
        std::stable_sort(devices.begin(), devices.end(), [](const Device& one, const Device& two) {
            return std::pair(one.type, one.id) < std::pair(two.type, two.id);
        });
        return devices;
    }

  private:
    static void readUsb(const std::string& name, const fs::path& path,
                        std::vector<Device>* devices) {
        Device device;
        const int32_t number_on_bus = sysfsNumber(path, "devnum", 10);
        if (number_on_bus == 0) return;
        device.id = sysfsNumber(path, "busnum", 10) * 1000 + number_on_bus;
        device.claim = {sysfsNumber(path, "bDeviceClass", 16),
                        {},
                        sysfsNumber(path, "idVendor", 16),
                        sysfsNumber(path, "idProduct", 16)};
        readInterfaces(name, path, &device);
        if (isHub(device.claim)) return;
        device.vendorName = printable(sysfsText(path, "manufacturer"));
        device.productName = printable(sysfsText(path, "product"));
        device.serial = printable(sysfsText(path, "serial"));
        device.name = device.productName.empty()
                              ? idPair(device.claim.vendorId, device.claim.productId)
                              : device.productName;
        devices->push_back(std::move(device));
    }

    static bool isHub(const Claim& claim) {
        const std::vector<int32_t>& classes = claim.interfaceClasses;
        if (classes.empty()) return claim.deviceClass == kHubClass;
        return std::all_of(classes.begin(), classes.end(),
                           [](int32_t code) { return code == kHubClass; });
    }

    // In the order of their numbers.
    static void readInterfaces(const std::string& name, const fs::path& path, Device* device) {
        std::map<int32_t, int32_t> classes;
        device->vendorHid = false;
        for (const auto& [entry, interface] : sysfsEntries(path)) {
            if (!base::StartsWith(entry, name + ":")) continue;
            if (sysfsText(interface, "bInterfaceClass").empty()) continue;
            classes[sysfsNumber(interface, "bInterfaceNumber", 16)] =
                    sysfsNumber(interface, "bInterfaceClass", 16);
            if (hasHidWithoutInput(interface)) device->vendorHid = true;
        }
        for (const auto& [at, code] : classes) device->claim.interfaceClasses.push_back(code);
    }

    static bool hasHidWithoutInput(const fs::path& interface) {
        for (const auto& [entry, path] : sysfsEntries(interface)) {
            if (entry.find(':') == std::string::npos || !isOwnDirectory(path)) continue;
            if (!isOwnDirectory(path / "input")) return true;
        }
        return false;
    }

    static void readInput(const std::string& name, const fs::path& path,
                          std::vector<Device>* devices) {
        Device device;
        device.type = DeviceType::kInput;
        device.claim.deviceClass = sourcesOf(path);
        if (device.claim.deviceClass == 0) return;
        device.id = static_cast<int32_t>(strtol(name.c_str() + strlen("input"), nullptr, 10));
        device.claim.vendorId = sysfsNumber(path / "id", "vendor", 16);
        device.claim.productId = sysfsNumber(path / "id", "product", 16);
        device.name = printable(sysfsText(path, "name"));
        device.productName = device.name;
        device.serial = printable(sysfsText(path, "uniq"));
        devices->push_back(std::move(device));
    }

    const fs::path devices_, inputs_;
};

}  // namespace

std::string readTree(const std::string& dir, const std::function<void(Device)>& take) {
    for (const fs::path& root : {fs::path(dir) / "sys", fs::path(dir)}) {
        const TreeReader reader(root);
        if (!reader.present()) continue;
        for (Device& device : reader.read()) take(std::move(device));
        return "";
    }
    return printable(dir) + ": holds no sysfs: neither bus/usb/devices nor class/input is there";
}

}  // namespace android::vus::workbench
