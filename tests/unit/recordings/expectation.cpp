// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/recordings/expectation.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <ostream>

#include "android/vus/paths.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"

namespace android::vus {

namespace fs = std::filesystem;

namespace {

constexpr int32_t kStorageClass = 8;
constexpr size_t kLongestText = 63;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

int32_t Number(const std::string& entry, const std::string& attribute, int base) {
    try {
        return static_cast<int32_t>(std::stoul(ReadFile(UsbPath(entry, attribute)), nullptr, base));
    } catch (const std::logic_error&) {
        return 0;
    }
}

uint32_t Hex(const std::string& entry, const std::string& attribute) {
    return static_cast<uint32_t>(Number(entry, attribute, 16));
}

std::string Text(const std::string& entry, const std::string& attribute) {
    std::string text = ReadFile(UsbPath(entry, attribute));
    if (text.size() > kLongestText) return "";
    while (!text.empty() && text.back() == '\n') text.pop_back();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text.substr(0, text.find('\0'));
}

std::vector<fs::directory_entry> Listing(const std::string& path) {
    std::error_code none;
    return {fs::directory_iterator(path, none), fs::directory_iterator()};
}

bool IsOwnDirectory(const fs::directory_entry& entry) {
    return fs::is_directory(entry.symlink_status());
}

std::string FirstDirectory(const std::string& path) {
    for (const auto& entry : Listing(path)) {
        if (IsOwnDirectory(entry)) return entry.path().filename();
    }
    return "";
}

bool HasInput(const std::string& path) {
    const auto listing = Listing(path);
    return std::any_of(listing.begin(), listing.end(), [](const auto& entry) {
        return entry.path().filename() == "input" && IsOwnDirectory(entry);
    });
}

// A directory that was entered and gave nothing hides all that come after it: they are looked for
// below it.
void Classify(ExpectedRecord* record) {
    record->category_path = "empty";
    if (record->code == kStorageClass) {
        record->category = kCategoryStorage;
        record->category_path = "sdcard";
        return;
    }
    std::string place = UsbPath(record->name);
    for (const auto& entry : Listing(place)) {
        const std::string name = entry.path().filename();
        const bool is_function = name == "net" || name == "tty";
        if (is_function) record->category = name == "net" ? kCategoryNetwork : kCategoryTty;
        if (!IsOwnDirectory(entry)) continue;
        if (is_function) {
            place += "/" + name;
            const std::string function = FirstDirectory(place);
            if (function.empty()) continue;
            record->category_path = function;
            return;
        }
        if (name.find(':') == std::string::npos) continue;
        place += "/" + name;
        if (HasInput(place)) continue;
        record->category = kCategoryVendorHid;
        return;
    }
}

ExpectedRecord Record(const std::string& interface) {
    const std::string device = DeviceOf(interface);
    ExpectedRecord record;
    record.name = interface;
    record.code = Hex(interface, "bInterfaceClass");
    record.subclass = Hex(interface, "bInterfaceSubClass");
    record.protocol = Hex(interface, "bInterfaceProtocol");
    record.number = Hex(interface, "bInterfaceNumber");
    record.busnum = std::stoi(device);
    record.devnum = Number(device, "devnum", 10);
    record.id = record.busnum * 1000 + record.devnum;
    record.vendor = Hex(device, "idVendor");
    record.product = Hex(device, "idProduct");
    record.manufacturer = Text(device, "manufacturer");
    record.product_name = Text(device, "product");
    Classify(&record);
    return record;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ExpectedRecord& record) {
    return out << record.id << " " << record.name << " class " << record.code << "/"
               << record.subclass << "/" << record.protocol << " number " << record.number
               << " device " << record.busnum << ":" << record.devnum << " " << record.vendor << ":"
               << record.product << " \"" << record.manufacturer << "\" \"" << record.product_name
               << "\" category " << record.category << " " << record.category_path;
}

ExpectedRecord FromMap(int32_t id, const usbinterface_custom& record) {
    ExpectedRecord result;
    result.id = id;
    result.name = record.name;
    result.code = record.bInterfaceClass;
    result.subclass = record.bInterfaceSubClass;
    result.protocol = record.bInterfaceProtocol;
    result.number = record.bInterfaceNumber;
    result.busnum = record.busnum;
    result.devnum = record.devnum;
    result.vendor = record.idVendor;
    result.product = record.idProduct;
    result.manufacturer = record.manufacturer;
    result.product_name = record.product;
    result.category = record.category;
    result.category_path = record.category_path;
    return result;
}

std::vector<std::string> ListedEntries() {
    std::vector<std::string> names;
    for (const auto& entry : Listing(kUsbDevicesDir)) names.push_back(entry.path().filename());
    return names;
}

bool IsDeviceName(const std::string& entry) {
    return IsDigit(entry[0]) && entry.find(':') == std::string::npos;
}

bool IsInterfaceName(const std::string& entry) {
    return IsDigit(entry[0]) && entry.find(':') != std::string::npos;
}

std::string DeviceOf(const std::string& interface) {
    return interface.substr(0, interface.find(':'));
}

std::string ParentOf(const std::string& device) {
    const size_t dot = device.rfind('.');
    return dot == std::string::npos ? "" : device.substr(0, dot);
}

std::string DriverOf(const std::string& entry) {
    std::error_code none;
    return fs::read_symlink(UsbPath(entry, "driver"), none).filename();
}

std::vector<ExpectedRecord> ExpectedMap() {
    const std::vector<std::string> entries = ListedEntries();
    std::vector<ExpectedRecord> records;
    for (const std::string& entry : entries) {
        if (!IsInterfaceName(entry)) continue;
        if (std::find(entries.begin(), entries.end(), DeviceOf(entry)) == entries.end()) continue;
        records.push_back(Record(entry));
    }
    std::stable_sort(records.begin(), records.end(),
                     [](const auto& a, const auto& b) { return a.id < b.id; });
    return records;
}

}  // namespace android::vus
