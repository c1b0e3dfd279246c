// SPDX-License-Identifier: Apache-2.0

// Reads USB trees made of any bytes, judges and switches their interfaces, and prints them; and has
// the workbench record them.
//
// The input is a list of entries, one a line, below the USB devices directory:
//   1-1/devnum=2$     a file; "$" stands for a line feed
//   1-1:1.0/net/      a directory
//   1-1/driver>a/b    a symbolic link
// What cannot be made, because of a name or of what is there already, is left out.

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "fuzz/fuzzing.h"
#include "tools/common/text.h"
#include "tools/workbench/list.h"
#include "tools/workbench/tree.h"

namespace android::vus {
namespace {

constexpr size_t kMaxEntries = 200;

// Neither a path nor the target of a link may lead out of the tree: root could write to the host's
// files through it.
bool StaysBelow(const std::string& path) {
    if (path.empty() || path.front() == '/' || path.find('\0') != std::string::npos) return false;
    return ("/" + path + "/").find("/../") == std::string::npos;
}

void MakeParents(const std::string& path) {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
}

void MakeEntry(const std::string& line) {
    const size_t end = line.find_first_of("=>");
    const std::string name = line.substr(0, end);
    if (!StaysBelow(name)) return;
    const std::string path = std::string(kUsbDevicesDir) + "/" + name;
    MakeParents(path);
    if (end == std::string::npos) return;
    std::string content = line.substr(end + 1);
    if (line[end] == '>') {
        if (StaysBelow(content)) (void)!symlink(content.c_str(), path.c_str());
        return;
    }
    std::replace(content.begin(), content.end(), '$', '\n');
    const base::unique_fd file(
            open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file.get() >= 0) base::WriteStringToFd(content, file);
}

void MakeTree(std::string_view input) {
    RemoveTree(kUsbDevicesDir);
    MakeDir(kUsbDevicesDir);
    for (size_t entries = 0; entries < kMaxEntries && !input.empty(); ++entries) {
        const size_t end = std::min(input.find('\n'), input.size());
        MakeEntry(std::string(input.substr(0, end)));
        input.remove_prefix(std::min(end + 1, input.size()));
    }
}

// A record of the map with what it says of its interface, for comparison.
using Record = std::tuple<int32_t, std::string, uint32_t, int32_t, std::string>;

std::vector<Record> Map() {
    const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
    std::vector<Record> records;
    for (const auto& [id, record] : UsbDevice::deviceid_map) {
        Require(strnlen(record.name, sizeof(record.name)) < sizeof(record.name));
        Require(strnlen(record.product, sizeof(record.product)) < sizeof(record.product));
        Require(strnlen(record.manufacturer, sizeof(record.manufacturer)) <
                sizeof(record.manufacturer));
        Require(strnlen(record.category_path, sizeof(record.category_path)) <
                sizeof(record.category_path));
        records.emplace_back(id, record.name, record.bInterfaceClass, record.category,
                             record.category_path);
    }
    return records;
}

void CheckRecord(const Record& record) {
    const auto& [id, name, usb_class, category, path] = record;
    Require(!name.empty() && !path.empty());
    Require(category == 0 || category == 1 || category == 2 || category == 4 || category == 8);
    Require((category == 4) == (usb_class == 8));
    if (category == 4) Require(path == "sdcard");
    if (category == 8) Require(UsbDevice::check_vendor_hid(id));
    Require(!UsbDevice::get_deviceid_data(id).empty());
}

// The workbench reads such trees, too: what it takes is fit for a terminal, and goes round.
void CheckRecording() {
    std::stringstream list;
    std::vector<workbench::Device> devices;
    const std::string error =
            workbench::readTree(workbench::kLiveTree, [&](const workbench::Device& device) {
                for (const std::string& text :
                     {device.name, device.vendorName, device.productName, device.serial}) {
                    Require(printable(text) == text);
                }
                workbench::writeDevice(list, device);
                devices.push_back(device);
            });
    Require(error.empty());
    size_t at = 0;
    const std::string none =
            workbench::readDevices(list, "list", [&](const workbench::Device& device) {
                Require(at < devices.size() && device == devices[at++]);
            });
    Require(none.empty() && at == devices.size());
}

void CheckNothingIsLeft() {
    Require(UsbDevice::bus_list == nullptr);
    Require(UsbDevice::device_list.next == &UsbDevice::device_list);
    Require(UsbDevice::interface_list.next == &UsbDevice::interface_list);
}

}  // namespace
}  // namespace android::vus

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus;  // NOLINT(google-build-using-namespace): the names under test
    MakeTree({reinterpret_cast<const char*>(data), size});
    CheckRecording();
    UsbDevice::create_usb_device_map();
    CheckNothingIsLeft();
    const std::vector<Record> records = Map();
    for (const Record& record : records) CheckRecord(record);

    // The dump reads the same tree again and must find the same.
    const android::base::unique_fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    UsbDevice::dump_print_test(null.get());
    CheckNothingIsLeft();
    Require(Map() == records);

    UsbDevice::get_displaylink_soc_path();
    for (const Record& record : records) {
        UsbDevice::update_status(std::get<0>(record), 0);
        UsbDevice::update_deviceid_map(std::get<0>(record), false);
    }
    Require(Map().empty());
    return 0;
}
