// SPDX-License-Identifier: Apache-2.0

// The fixture of the USB tests: a sysfs of the test's own, built entry by entry, and what the code
// under test logs and prints.

#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"

namespace android::vus {

using Attributes = std::map<std::string, std::string>;

// A device's attributes as the kernel writes them, of a plain device without a function of note.
inline Attributes device_attributes() {
    return {
            {"bDeviceClass", "00\n"},    {"bDeviceProtocol", "00\n"}, {"bDeviceSubClass", "00\n"},
            {"bMaxPacketSize0", "64\n"}, {"bMaxPower", "100mA\n"},    {"bNumConfigurations", "1\n"},
            {"bNumInterfaces", " 1\n"},  {"bcdDevice", "0100\n"},     {"bmAttributes", "a0\n"},
            {"configuration", "\n"},     {"devnum", "2\n"},           {"idProduct", "abcd\n"},
            {"idVendor", "1234\n"},      {"maxchild", "0\n"},         {"manufacturer", "Maker\n"},
            {"product", "Product\n"},    {"serial", "0001\n"},        {"version", " 2.00\n"},
            {"speed", "480\n"},          {"rx_lanes", "1\n"},         {"tx_lanes", "1\n"},
    };
}

inline Attributes interface_attributes() {
    return {
            {"bAlternateSetting", " 0\n"},  {"bInterfaceClass", "ff\n"},
            {"bInterfaceNumber", "00\n"},   {"bInterfaceProtocol", "00\n"},
            {"bInterfaceSubClass", "00\n"}, {"bNumEndpoints", "02\n"},
            {"authorized", "1\n"},
    };
}

class UsbTest : public ::testing::Test {
  protected:
    void SetUp() override {
        struct statfs fs;
        ASSERT_EQ(statfs("/sys", &fs), 0);
        ASSERT_EQ(fs.f_type, TMPFS_MAGIC) << "/sys is not the sandbox's own";
        for (const auto& entry : std::filesystem::directory_iterator("/sys")) {
            std::filesystem::remove_all(entry);
        }
        std::filesystem::create_directories(kUsbDevicesDir);
        clear_map();
        android::base::SetLogger([this](android::base::LogId, android::base::LogSeverity severity,
                                        const char*, const char*, unsigned int,
                                        const char* message) { log(severity, message); });
    }

    void TearDown() override {
        android::base::SetLogger([](android::base::LogId, android::base::LogSeverity, const char*,
                                    const char*, unsigned int, const char*) {});
        clear_map();
        UsbDevice::verbose_log = false;
        UsbDevice::print_verbosity = 2;
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
    }

    // The tree. Names are entries of the USB devices directory.
    static std::string path_of(const std::string& entry, const std::string& name = "") {
        return std::string(kUsbDevicesDir) + "/" + entry + (name.empty() ? "" : "/" + name);
    }
    static void write_file(const std::string& path, const std::string& content) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream file(path, std::ios::binary);
        file << content;
        ASSERT_TRUE(file.flush().good()) << path;
    }
    static void make_dir(const std::string& path) { std::filesystem::create_directories(path); }
    static void link(const std::string& target, const std::string& path) {
        ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path << ": " << strerror(errno);
    }
    static void add_entry(const std::string& entry, Attributes attributes,
                          const Attributes& changes) {
        for (const auto& [name, value] : changes) attributes[name] = value;
        make_dir(path_of(entry));
        for (const auto& [name, value] : attributes) write_file(path_of(entry, name), value);
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
    static std::string read_file(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
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

    // Log lines since the last call, each as its severity's letter, a blank and the text. The text
    // of a line with newlines is one call of the logger a line, as the library cuts it.
    std::vector<std::string> take_log() {
        const std::lock_guard<std::mutex> lock(log_mutex_);
        return std::exchange(log_, {});
    }
    // Waits for a line that another thread logs.
    void wait_for_line(const std::string& line) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        bool found = false;
        while (!found && std::chrono::steady_clock::now() < deadline) {
            for (const std::string& logged : take_log()) found = found || logged == line;
            std::this_thread::yield();
        }
        ASSERT_TRUE(found) << line;
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
    void log(android::base::LogSeverity severity, const char* message) {
        const std::lock_guard<std::mutex> lock(log_mutex_);
        log_.push_back(std::string(1, "VDIWEFF"[severity]) + " " + message);
    }

    std::mutex log_mutex_;
    std::vector<std::string> log_;
};

}  // namespace android::vus
