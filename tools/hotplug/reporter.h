// SPDX-License-Identifier: Apache-2.0
//
// Reporter: what is told to the daemon, device by device.
//
// Reading a device and reporting it can take as long as the device keeps the kernel waiting (20 s
// were seen), so each device has a queue and, while that holds something, a thread of its own: what
// concerns one device stays in order, and no device waits for another. The reporter owns its
// threads and waits for them when it is destroyed.
//
// What was last reported of a device is remembered: its removal is reported with the same record,
// and a device that has become another one meanwhile is reported as removed first, because the
// daemon keeps the first record of an id.
//
// Thread-safe.

#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "android/vus/DeviceInfo.h"
#include "android/vus/IVUsbService.h"

namespace android::vus::hotplug {

class Reporter {
  public:
    // Reads a device; nothing if it has gone, or is none that is reported.
    using Read = std::function<std::optional<DeviceInfo>()>;

    // `print` gets a line for each report, if it is set.
    explicit Reporter(std::function<void(const std::string&)> print) : print_(std::move(print)) {}
    ~Reporter();
    Reporter(const Reporter&) = delete;
    Reporter& operator=(const Reporter&) = delete;

    // The service to report to. Null while there is none: reports are dropped then and what was
    // reported is forgotten, because a new service knows of nothing and must be told of everything.
    // A report that waits in a queue is still made to the service that was there when it was asked
    // for.
    void set_service(const sp<IVUsbService>& service);

    // Asks for the device's verdict. `device` is what it is called in the printed lines.
    void judge(const std::string& device, Read read);
    // Reports the removal of a device that was reported; does nothing for any other.
    void removed(const std::string& device);
    // Reports the removal of every device that is not among those present.
    void keep_only(const std::set<std::string>& present);

    // Waits until every report has been made.
    void drain();

  private:
    using Report = std::function<void(IVUsbService&)>;

    void report_judged(IVUsbService& service, const std::string& device, const Read& read);
    void report_removed(IVUsbService& service, const std::string& device);
    std::optional<DeviceInfo> reported(const std::string& device);
    void remember(const std::string& device, const DeviceInfo& info, const IVUsbService& service);

    void enqueue(const std::string& device, Report report);
    void work(const std::string& device);
    void print(const std::string& device, const DeviceInfo& info, const std::string& answer);

    const std::function<void(const std::string&)> print_;
    std::mutex mutex_;  // everything below
    std::condition_variable idle_;
    sp<IVUsbService> service_;
    std::map<std::string, DeviceInfo> reported_;  // to the present service
    std::map<std::string, std::deque<std::function<void()>>>
            queues_;  // an entry here has a thread at work
};

}  // namespace android::vus::hotplug
