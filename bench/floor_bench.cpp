// SPDX-License-Identifier: Apache-2.0
//
// What the kernel alone takes for the attributes that a decision needs, whatever program reads
// them: no tree, no numbers, no log, one buffer for all. A decision cannot be quicker than the
// quicker of these.

#include <dirent.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>

#include "android/vus/paths.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"

namespace android::vus {
namespace {

using base::unique_fd;

const std::vector<std::string> kBusAttributes = {"devnum",   "bDeviceClass", "idProduct",
                                                 "idVendor", "maxchild",     "speed",
                                                 "rx_lanes", "tx_lanes"};
const std::vector<std::string> kDeviceAttributes =
        {"bDeviceClass",      "bDeviceProtocol", "bDeviceSubClass", "bMaxPacketSize0",
         "bMaxPower",         "bNumInterfaces",  "bcdDevice",       "bmAttributes",
         "configuration",     "devnum",          "idProduct",       "idVendor",
         "maxchild",          "manufacturer",    "product",         "serial",
         "version",           "speed",           "rx_lanes",        "tx_lanes",
         "bNumConfigurations"};
const std::vector<std::string> kInterfaceAttributes = {"bAlternateSetting",  "bInterfaceClass",
                                                       "bInterfaceNumber",   "bInterfaceProtocol",
                                                       "bInterfaceSubClass", "bNumEndpoints"};

struct Entry {
    std::string path;
    std::vector<std::string> attributes;
    std::vector<std::string> attribute_paths;
    bool is_interface;
};

std::vector<Entry> Entries() {
    std::vector<Entry> entries;
    for (const auto& file : std::filesystem::directory_iterator(kUsbDevicesDir)) {
        const std::string name = file.path().filename();
        Entry entry = {file.path(), kDeviceAttributes, {}, false};
        if (name.compare(0, 3, "usb") == 0) entry.attributes = kBusAttributes;
        if (name.find(':') != std::string::npos) {
            entry.attributes = kInterfaceAttributes;
            entry.is_interface = true;
        }
        for (const std::string& attribute : entry.attributes) {
            entry.attribute_paths.push_back(entry.path + "/" + attribute);
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

char buffer[4096];

size_t ReadAll(int fd) {
    if (fd < 0) return 0;
    const ssize_t count = read(fd, buffer, sizeof(buffer));
    close(fd);
    return count > 0 ? static_cast<size_t>(count) : 0;
}

size_t ReadBelowDirectory(int directory, const Entry& entry) {
    size_t bytes = 0;
    for (const std::string& attribute : entry.attributes) {
        bytes += ReadAll(openat(directory, attribute.c_str(), O_RDONLY | O_CLOEXEC));
    }
    return bytes;
}

int OpenDirectory(int parent, const char* path) {
    return openat(parent, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// Lists a directory, and those that tell what an interface became if it holds one.
size_t ListFunctions(int fd) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(fdopendir(fd), closedir);
    size_t names = 0;
    while (const dirent* entry = readdir(directory.get())) {
        ++names;
        const bool is_function = strcmp(entry->d_name, "net") == 0 ||
                                 strcmp(entry->d_name, "tty") == 0 ||
                                 strchr(entry->d_name, ':') != nullptr;
        if (is_function && entry->d_type == DT_DIR) {
            names += ListFunctions(OpenDirectory(dirfd(directory.get()), entry->d_name));
        }
    }
    return names;
}

template <typename Read>
void Floor(benchmark::State& state, const Read& read) {
    EmptyWorld();
    UsbTree::Office(static_cast<int32_t>(state.range(0)));
    const std::vector<Entry> entries = Entries();
    size_t attributes = 0;
    for (const Entry& entry : entries) attributes += entry.attributes.size();
    for (auto _ : state) {
        size_t bytes = 0;
        for (const Entry& entry : entries) bytes += read(entry);
        benchmark::DoNotOptimize(bytes);
        if (bytes == 0) state.SkipWithError("nothing was read");
    }
    state.counters["attributes"] = static_cast<double>(attributes);
}

void BM_FloorByPath(benchmark::State& state) {
    Floor(state, [](const Entry& entry) {
        size_t bytes = 0;
        for (const std::string& path : entry.attribute_paths) {
            bytes += ReadAll(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        }
        return bytes;
    });
}
BENCHMARK(BM_FloorByPath)->Arg(5)->Arg(30)->Arg(127)->Unit(benchmark::kMicrosecond);

void BM_FloorByOpenat(benchmark::State& state) {
    Floor(state, [](const Entry& entry) {
        const unique_fd directory(open(entry.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        return ReadBelowDirectory(directory.get(), entry);
    });
}
BENCHMARK(BM_FloorByOpenat)->Arg(5)->Arg(30)->Arg(127)->Unit(benchmark::kMicrosecond);

// The attributes and everything else that a decision has to ask the kernel: each entry's driver,
// and what is in the directory of each interface.
void BM_FloorOfAllQuestions(benchmark::State& state) {
    Floor(state, [](const Entry& entry) {
        const unique_fd directory(open(entry.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        size_t bytes = ReadBelowDirectory(directory.get(), entry);
        if (readlinkat(directory.get(), "driver", buffer, sizeof(buffer)) > 0) ++bytes;
        if (entry.is_interface) bytes += ListFunctions(OpenDirectory(directory.get(), "."));
        return bytes;
    });
}
BENCHMARK(BM_FloorOfAllQuestions)->Arg(5)->Arg(30)->Arg(127)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace android::vus
