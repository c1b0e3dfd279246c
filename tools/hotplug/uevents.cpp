// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/uevents.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <iterator>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <cutils/uevent.h>

#include "android/vus/insistently.h"
#include "android/vus/paths.h"
#include "tools/hotplug/sysfs_paths.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

// The kernel's variables fit into 2 kB, of which the path, which is in front of them again, is one.
constexpr size_t kMessageBytes = 8192;
// Bus and device numbers have three digits.
constexpr int kHighestNumber = 999;

constexpr char kSysfs[] = "/sys";

bool is_heard(std::string_view subsystem) {
    return subsystem == kDriversSubsystem ||
           std::find(std::begin(kReportedSubsystems), std::end(kReportedSubsystems), subsystem) !=
                   std::end(kReportedSubsystems);
}

// Empty if the message does not have it; the first one counts.
std::string_view variable(std::string_view message, std::string_view name) {
    while (!message.empty()) {
        const std::string_view line = message.substr(0, message.find('\0'));
        if (line.size() > name.size() && line[name.size()] == '=' &&
            line.substr(0, name.size()) == name) {
            return line.substr(name.size() + 1);
        }
        message.remove_prefix(std::min(message.size(), line.size() + 1));
    }
    return {};
}

int32_t number(std::string_view message, std::string_view name) {
    int value = 0;
    (void)base::ParseInt(std::string(variable(message, name)), &value, 0, kHighestNumber);
    return value;
}

const char* directory_of(std::string_view subsystem) {
    if (subsystem == "usb") return kUsbDevicesDir;
    return subsystem == "hid" ? kHidDevicesDir : kInputClassDir;
}

}  // namespace

std::optional<Event> parse_uevent(std::string_view message) {
    const std::string_view subsystem = variable(message, "SUBSYSTEM");
    if (!is_heard(subsystem)) return std::nullopt;
    const std::string_view action = variable(message, "ACTION");
    const std::string_view path = variable(message, "DEVPATH");
    if (action.empty() || path.empty() || path[0] != '/') return std::nullopt;
    const int32_t device = number(message, "DEVNUM");
    return Event{std::string(action), std::string(subsystem), kSysfs + std::string(path),
                 device == 0 ? 0 : number(message, "BUSNUM") * 1000 + device,
                 action == "bind" ? std::string(variable(message, "DRIVER")) : ""};
}

std::optional<std::vector<std::string>> present_devices(const std::string& subsystem) {
    const std::string directory = directory_of(subsystem);
    const auto names = try_directory_entries(directory);
    if (!names) return std::nullopt;
    std::vector<std::string> paths;
    for (const std::string& name : *names) {
        if (name[0] == '.') continue;
        std::string path;
        const std::string link = directory + "/" + name;
        if (insistently([&] { return base::Realpath(link, &path) ? 0 : -1; }) == 0) {
            paths.push_back(path);
        } else if (!has_gone(errno)) {
            return std::nullopt;
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

bool UeventSocket::open() {
    socket_.reset(uevent_open_socket(kWishedBytes, /*passcred=*/true));
    return socket_.ok() && fcntl(socket_.get(), F_SETFL, O_NONBLOCK) == 0;
}

int UeventSocket::room_bytes() const {
    int bytes = 0;
    socklen_t size = sizeof(bytes);
    if (getsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &bytes, &size) != 0) return 0;
    return bytes / 2;  // the kernel doubles it, for what it needs itself
}

UeventSocket::Heard UeventSocket::hear(Event* event) {
    char message[kMessageBytes];
    const ssize_t length = uevent_kernel_multicast_recv(fd(), message, sizeof(message));
    if (length < 0) {
        if (errno == EAGAIN) return Heard::kNothing;
        if (errno == ENOBUFS) return Heard::kLost;
        // EIO: another process has sent it, not the kernel.
        return errno == EIO || errno == EINTR ? Heard::kOther : Heard::kFailed;
    }
    const auto parsed = parse_uevent({message, static_cast<size_t>(length)});
    if (!parsed) return Heard::kOther;
    *event = *parsed;
    return Heard::kEvent;
}

}  // namespace android::vus::hotplug
