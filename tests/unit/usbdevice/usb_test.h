// SPDX-License-Identifier: Apache-2.0

// The fixture of the USB tests: a sysfs of the test's own, built entry by entry, and what the code
// under test logs and prints.

#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "tests/support/usb_tree.h"
#include "tests/support/waiting.h"
#include "tests/support/world.h"

namespace android::vus {

// The attributes of a plain device, and of an interface without a function of note.
inline Attributes device_attributes() {
    return AttributesOf(FakeDevice{0x1234, 0xabcd, "Maker", "Product", {{0xff}}, 0, "0001"}, 2);
}

inline Attributes interface_attributes() {
    return AttributesOf(FakeInterface{0xff}, 0);
}

class UsbTest : public ::testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        MakeDir(kUsbDevicesDir);
        clear_map();
    }

    void TearDown() override {
        clear_map();
        UsbDevice::verbose_log = false;
        UsbDevice::print_verbosity = 2;
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
    }

    // The tree. Names are entries of the USB devices directory.
    static void link(const std::string& target, const std::string& path) {
        ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path << ": " << strerror(errno);
    }
    static void add_entry(const std::string& entry, Attributes attributes,
                          const Attributes& changes) {
        for (const auto& [name, value] : changes) attributes[name] = value;
        AddUsbEntry(entry, attributes);
    }
    static void add_bus(const std::string& entry, const Attributes& changes = {}) {
        add_entry(entry, device_attributes(), changes);
    }
    static void add_device(const std::string& entry, const Attributes& changes = {}) {
        add_entry(entry, device_attributes(), changes);
    }
    static void add_interface(const std::string& entry, const Attributes& changes = {}) {
        add_entry(entry, interface_attributes(), changes);
    }
    // The names in a directory, in the order in which the kernel lists them.
    static std::vector<std::string> listing(const std::string& path) {
        std::vector<std::string> names;
        DIR* const directory = opendir(path.c_str());
        if (directory == nullptr) return names;
        while (const dirent* entry = readdir(directory)) names.push_back(entry->d_name);
        closedir(directory);
        return names;
    }

    // One cycle's discovery and linking, without its end.
    static void discover() {
        for (const std::string& name : listing(kUsbDevicesDir)) {
            UsbDevice::inspect_bus_entry(name.c_str());
        }
    }
    static void discover_and_connect() {
        discover();
        UsbDevice::connect_devices();
    }

    // The nodes of the calling thread, in list order.
    static std::vector<usbdevice*> devices() { return nodes<usbdevice>(UsbDevice::device_list); }
    static std::vector<usbinterface*> interfaces() {
        return nodes<usbinterface>(UsbDevice::interface_list);
    }
    static usbdevice* device(const std::string& name) { return named(devices(), name); }
    static usbinterface* interface(const std::string& name) { return named(interfaces(), name); }
    static usbbusnode* bus(const std::string& name) {
        for (usbbusnode* bus = UsbDevice::bus_list; bus != nullptr; bus = bus->next) {
            if (bus->name == name) return bus;
        }
        return nullptr;
    }
    static std::vector<std::string> names_of(const std::vector<usbdevice*>& nodes) {
        std::vector<std::string> names;
        for (const usbdevice* node : nodes) names.push_back(node->name);
        return names;
    }
    // The names of a chain through next.
    template <typename Node>
    static std::vector<std::string> chain(const Node* first) {
        std::vector<std::string> names;
        for (; first != nullptr && names.size() < 1000; first = first->next) {
            names.push_back(first->name);
        }
        return names;
    }

    static void clear_map() {
        const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
        UsbDevice::deviceid_map.clear();
    }
    static void put_record(int id, const std::string& name, int category = 0,
                           uint32_t vendor = 0x1234) {
        usbinterface_custom record = {};
        name.copy(record.name, sizeof(record.name) - 1);
        record.category = category;
        record.idVendor = vendor;
        const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
        UsbDevice::deviceid_map.emplace(id, record);
    }
    // The map as id:name.
    static std::vector<std::string> map_names() {
        const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
        std::vector<std::string> names;
        for (const auto& [id, record] : UsbDevice::deviceid_map) {
            names.push_back(std::to_string(id) + ":" + record.name);
        }
        return names;
    }

    // Log lines since the last call, each as its severity's letter, a blank and the text. A text
    // with newlines is as many lines, as the library cuts it.
    std::vector<std::string> take_log() {
        const std::vector<std::string> lines = logs_.Lines();
        const auto first =
                lines.begin() + static_cast<ptrdiff_t>(std::exchange(taken_, lines.size()));
        return {first, lines.end()};
    }
    // Waits until other threads have logged a line that many times since the test began.
    void wait_for_line(const std::string& line, ptrdiff_t times = 1) {
        ASSERT_TRUE(Eventually([&] {
            const std::vector<std::string> lines = logs_.Lines();
            return std::count(lines.begin(), lines.end(), line) >= times;
        })) << line;
    }
    // The log lines of an action alone.
    std::vector<std::string> log_of(const std::function<void()>& action) {
        take_log();
        action();
        return take_log();
    }
    // What an action prints on a standard stream.
    static std::string output_of(FILE* stream, const std::function<void()>& action) {
        fflush(stream);
        const base::unique_fd file(memfd_create("output", MFD_CLOEXEC));
        const base::unique_fd saved(dup(fileno(stream)));
        dup2(file.get(), fileno(stream));
        action();
        fflush(stream);
        dup2(saved.get(), fileno(stream));
        return content_of(file.get());
    }
    static std::string stderr_of(const std::function<void()>& action) {
        return output_of(stderr, action);
    }
    static std::string stdout_of(const std::function<void()>& action) {
        return output_of(stdout, action);
    }
    // What an action writes to the descriptor that it is given.
    static std::string written_by(const std::function<void(int)>& action) {
        const base::unique_fd file(memfd_create("output", MFD_CLOEXEC));
        action(file.get());
        return content_of(file.get());
    }

  private:
    template <typename Node>
    static std::vector<Node*> nodes(listlinks& head) {
        std::vector<Node*> nodes;
        for (listlinks* at = head.next; at != &head; at = at->next) {
            nodes.push_back(reinterpret_cast<Node*>(at));
        }
        return nodes;
    }
    template <typename Node>
    static Node* named(const std::vector<Node*>& nodes, const std::string& name) {
        for (Node* node : nodes) {
            if (node->name == name) return node;
        }
        return nullptr;
    }
    static std::string content_of(int fd) {
        lseek(fd, 0, SEEK_SET);
        std::string content;
        char buffer[4096];
        for (ssize_t count; (count = read(fd, buffer, sizeof(buffer))) > 0;) {
            content.append(buffer, static_cast<size_t>(count));
        }
        return content;
    }

    LogCapture logs_;
    size_t taken_ = 0;
};

}  // namespace android::vus
