// SPDX-License-Identifier: Apache-2.0

// What an interface became, told by its class and by what the kernel put into its directory.

#include <stdio.h>
#include <string.h>

#include <string>
#include <utility>
#include <vector>

#include "android/vus/paths.h"
#include "android/vus/plain_log.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

using usb::DirectoryReader;
using usb::trace;

namespace {

constexpr uint32_t kStorageClass = 8;
constexpr char kNoCategoryPath[] = "empty";
constexpr size_t kCategoryScanPathSize = 256;

bool is_dot_or_dotdot(const char* name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// The next entry that is not "." or "..", or null at the end.
const dirent64* next_entry(DirectoryReader* directory) {
    const dirent64* entry = directory->next();
    while (entry != nullptr && is_dot_or_dotdot(entry->d_name)) entry = directory->next();
    return entry;
}

// A directory in which the kernel names the function that an interface became.
struct FunctionDirectory {
    const char* name;
    int32_t category;
    const char* entered_text;
    bool entered_is_trace;
    const char* found_text;
};

constexpr FunctionDirectory kFunctionDirectories[] = {
        {"net", kCategoryNetwork, " new path of dir:", false,
         "updating the devcategory path for network and return:"},
        {"tty", kCategoryTty, " new path of dir in tty:", true,
         "updating the devcategory path for tty and return:"},
};

// One scan of an interface's directory for what the interface became.
//
// The path is extended in place and never restored (kept: oddity 28): once a directory was entered
// without a result, later ones are looked up below it and as a rule not found. Which of several
// functions an interface is reported as depends on it.
class CategoryScan {
  public:
    CategoryScan(usbinterface* interface, std::vector<std::string>* lines)
          : interface_(*interface), lines_(lines) {
        usb::copy_text(path_, kUsbDevicesDir);
        extend(interface_.name);
    }

    void run() {
        DirectoryReader directory = enter("Cannot open directory \n");
        while (const dirent64* entry = next_entry(&directory)) {
            trace("Entered while with dir is :", entry->d_name);
            if (decides(directory, *entry)) return;
        }
    }

    const char* path() const { return path_; }
    bool opened_all() const { return opened_all_; }

  private:
    void log(std::string line) {
        logText(line);
        if (lines_ != nullptr) lines_->push_back(std::move(line));
    }

    // Whether the entry settles the category.
    bool decides(const DirectoryReader& directory, const dirent64& entry) {
        for (const FunctionDirectory& function : kFunctionDirectories) {
            if (strcmp(entry.d_name, function.name) != 0) continue;
            interface_.category = function.category;
            return directory.is_directory(entry) && finds_function(function);
        }
        // The kernel's links to suppliers and consumers have a ':' in their names too: only a
        // directory of the interface's own is its HID device.
        return strchr(entry.d_name, ':') != nullptr && directory.is_directory(entry) &&
               finds_vendor_hid(entry.d_name);
    }

    bool finds_function(const FunctionDirectory& function) {
        extend(function.name);
        if (function.entered_is_trace) {
            trace(function.entered_text, path_);
        } else {
            log(std::string(function.entered_text) + path_);
        }
        DirectoryReader directory = enter("Cannot open directory \n");
        while (const dirent64* entry = next_entry(&directory)) {
            if (!directory.is_directory(*entry)) continue;
            usb::copy_text(interface_.category_path, entry->d_name);
            trace(function.found_text, entry->d_name);
            return true;
        }
        return false;
    }

    // An HID device that the input subsystem does not serve is its vendor's own. One whose
    // directory cannot be read counts as such.
    bool finds_vendor_hid(const char* name) {
        extend(name);
        log(std::string(" new path of subdir for HID:") + path_);
        DirectoryReader directory = enter("Cannot open subdir \n");
        while (const dirent64* entry = next_entry(&directory)) {
            if (strcmp(entry->d_name, "input") != 0) continue;
            if (!directory.is_directory(*entry)) continue;
            trace("input device found");
            return false;
        }
        log("vendor HID device found");
        interface_.category = kCategoryVendorHid;
        return true;
    }

    // A path that does not fit is cut, and then as a rule not found.
    void extend(const char* name) {
        const size_t length = strlen(path_);
        snprintf(path_ + length, sizeof(path_) - length, "/%s", name);
    }

    DirectoryReader enter(const char* failure_text) {
        DirectoryReader directory(path_);
        if (!directory.ok()) {
            opened_all_ = false;
            log(std::string(failure_text) + path_);
        }
        return directory;
    }

    usbinterface& interface_;
    std::vector<std::string>* const lines_;
    bool opened_all_ = true;
    char path_[kCategoryScanPathSize];
};

}  // namespace

bool usb::classify(usbinterface* interface, std::vector<std::string>* lines) {
    CategoryScan scan(interface, lines);
    trace("path of dir:", scan.path());
    interface->category = kCategoryNone;
    trace("Other category default to none");
    copy_text(interface->category_path, kNoCategoryPath);
    if (interface->bInterfaceClass == kStorageClass) {
        interface->category = kCategoryStorage;
        copy_text(interface->category_path, "sdcard");
        return true;
    }
    scan.run();
    return scan.opened_all();
}

void UsbDevice::populate_category_device(usbinterface* interface) {
    usb::classify(interface, nullptr);
}

}  // namespace android::vus
