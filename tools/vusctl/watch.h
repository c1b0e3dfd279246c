// SPDX-License-Identifier: Apache-2.0
//
// EventPrinter: a callback that prints what it hears, a line an event. Thread-safe: the daemon
// calls on any binder thread.

#pragma once

#include <mutex>
#include <ostream>

#include "android/vus/BnVUsbServiceCallback.h"

namespace android::vus::ctl {

class EventPrinter : public BnVUsbServiceCallback {
  public:
    EventPrinter(std::ostream& out, bool json) : out_(out), json_(json) {}

    binder::Status onDeviceAdded(const DeviceInfo& info) override;
    binder::Status onDeviceRemoved(const DeviceInfo& info) override;

  private:
    void print(const char* event, const DeviceInfo& info);

    std::mutex mutex_;
    std::ostream& out_;
    const bool json_;
};

}  // namespace android::vus::ctl
