// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the watcher share: a process with a watcher at work, and the means to know how
// far it is.

#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "service_fixture.h"
#include "tests/support/child_process.h"

namespace android::vus {

inline constexpr char kAudioPolicy[] =
        "<usbconfig mode='whitelist'><class>USB_CLASS_AUDIO</class></usbconfig>\n";
inline constexpr char kVideoPolicy[] =
        "<usbconfig mode='whitelist'><class>USB_CLASS_VIDEO</class></usbconfig>\n";
inline constexpr char kBadPolicy[] = "<usbconfig mode='open'/>\n";
inline constexpr char kReloaded[] = "Admin usb_device_config.xml config file call parsing";
inline constexpr char kRestored[] = "Parsing failure, copying backup file content";
inline constexpr char kReset[] = "usb_host_reset entered:";

class WatcherTest : public ServiceTest {
  protected:
    void StartWatcher() {
        VUsbService::registerFileObserverViaThread();
        ASSERT_TRUE(WaitFor([&] { return Logged("registered successfully file observer"); }));
    }

    // Runs `scenario` in a process with a watcher at work.
    void InWatchedProcess(const std::function<void()>& scenario) {
        ExpectPassesInChild([&] {
            ASSERT_NO_FATAL_FAILURE(StartWatcher());
            scenario();
        });
    }

    // Returns once every event up to now has been handled.
    void DrainEvents() {
        const std::string marker = "marker" + std::to_string(++markers_);
        WriteFile(std::string(kConfigDir) + "/" + marker, "");
        ASSERT_TRUE(WaitFor([&] { return Logged(ClosedEvent(marker)); })) << marker;
    }

    // Keeps the watcher at its next line `moment` until the gate opens: what happens meanwhile
    // waits in one queue.
    void HoldAt(const std::string& moment, Gate* gate) {
        base::SetLogger([this, moment, gate,
                         done = std::make_shared<std::atomic<bool>>(
                                 false)](base::LogId, base::LogSeverity severity, const char*,
                                         const char*, unsigned, const char* message) {
            logs_.Add(severity, message);
            if (message == moment && !done->exchange(true)) gate->Wait();
        });
    }

    static std::string ClosedEvent(const std::string& name) {
        return "CLOSE_WRITE event triggered on filename " + std::string(kConfigDir) + "/" + name;
    }

    // Our own inotify descriptor, found by what it is.
    static int InotifyDescriptor() {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            if (std::filesystem::read_symlink(entry, error) == "anon_inode:inotify") {
                return std::stoi(entry.path().filename());
            }
        }
        return -1;
    }

  private:
    int markers_ = 0;
};

}  // namespace android::vus
