// SPDX-License-Identifier: Apache-2.0
//
// Reporter: what is told to the daemon, device by device.
//
// A report can take as long as a device keeps the kernel waiting (20 s were seen), so each device
// has a queue and, while that holds something, a thread of its own: the reports of one device stay
// in order, and no device waits for another. The reporter owns its threads and waits for them when
// it is destroyed.
//
// Thread-safe.

#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "android/vus/DeviceInfo.h"
#include "android/vus/IVUsbService.h"

namespace android::vus::hotplug {

class Reporter {
  public:
    // `entry` is what the device is called in the printed lines and the key of its queue.
    // `print` gets a line for each report, if it is set.
    explicit Reporter(std::function<void(const std::string&)> print) : print_(std::move(print)) {}
    ~Reporter();
    Reporter(const Reporter&) = delete;
    Reporter& operator=(const Reporter&) = delete;

    // The service to report to; null while there is none, and reports are then dropped, because
    // whoever connects to it again reports everything that is present.
    void set_service(const sp<IVUsbService>& service);

    // Asks for the device's verdict, and remembers it for the report of its removal.
    void judge(const std::string& entry, const DeviceInfo& info);
    // Reports the removal of a device that was judged; does nothing for any other.
    void removed(const std::string& entry);

    // Whether the device was judged and has not been reported removed since.
    bool knows(const std::string& entry);

    // Waits until every report has been made.
    void drain();

  private:
    using Report = std::function<void(IVUsbService&)>;

    void enqueue(const std::string& entry, Report report);
    void work(const std::string& entry);
    void make_report(const Report& report);
    void print(const std::string& entry, const DeviceInfo& info, const std::string& answer);

    const std::function<void(const std::string&)> print_;
    std::mutex mutex_;  // everything below
    std::condition_variable idle_;
    sp<IVUsbService> service_;
    std::map<std::string, DeviceInfo> judged_;
    std::map<std::string, std::deque<Report>> queues_;  // an entry here has a thread at work
};

}  // namespace android::vus::hotplug
