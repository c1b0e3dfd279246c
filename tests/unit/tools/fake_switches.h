// SPDX-License-Identifier: Apache-2.0
//
// The kernel's switches, for tests of what is done with them: remembers what was switched.
// Thread-safe.

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tools/hotplug/switches.h"

namespace android::vus::hotplug {

class FakeSwitches : public Switches {
  public:
    // How often nothing can be heard again.
    std::atomic<int> failures{0};
    std::atomic<int> close_failures{0};  // and how often interfaces stay on

    // Called when an input device is let in.
    std::function<void()> when_let_in = [] {};

    // What was done so far, such as "close 1-2" or "unbind 0003:0627:0001.0001"; Take() forgets it.
    std::vector<std::string> Take() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(done_, {});
    }

    // Waits until that much is done, or for 10 s.
    std::vector<std::string> TakeAtLeast(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        noted_.wait_for(lock, std::chrono::seconds(10), [&] { return done_.size() >= count; });
        return std::exchange(done_, {});
    }

    bool close_interfaces(const Subject& device) override {
        Note("close " + device.name);
        return close_failures.fetch_sub(1) <= 0;
    }
    bool open_interfaces(const Subject& device) override { return Note("open " + device.name); }
    bool close_device(const Subject& device) override {
        return Note("close device " + device.name);
    }
    bool open_device(const Subject& device) override { return Note("open device " + device.name); }
    bool hush_input(const std::string& input) override { return Note("hush " + input); }
    bool unhush_input(const std::string& input) override {
        Note("unhush " + input);
        return failures.fetch_sub(1) <= 0;
    }
    bool unbind_hid(const std::string& hid_device) override {
        Note("unbind " + hid_device);
        return true;
    }
    void probe_hid(const std::string& hid_device) override { Note("probe " + hid_device); }
    bool open_held(const Subject& usb_device, const std::string& what) override {
        when_let_in();
        return Note("let in " + what + " of " + usb_device.name);
    }

  private:
    bool Note(const std::string& what) {
        const std::lock_guard<std::mutex> lock(mutex_);
        done_.push_back(what);
        noted_.notify_all();
        return true;
    }

    std::mutex mutex_;
    std::condition_variable noted_;
    std::vector<std::string> done_;
};

}  // namespace android::vus::hotplug
