// SPDX-License-Identifier: Apache-2.0
//
// Session: a daemon under one policy, from the moment it was found until it dies or the policy is
// another one; and what it knew before it was told anything: a reporter may have told it, and died.
// Thread-safe.

#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "android/vus/DeviceInfo.h"
#include "android/vus/IVUsbService.h"
#include "android/vus/mutex.h"

namespace android::vus::hotplug {

class Session {
  public:
    explicit Session(const sp<IVUsbService>& service)
          : Session(service, std::make_shared<List>()) {}

    IVUsbService& service() { return *service_; }

    // The same daemon under another policy. Does not wait for it, whatever it is doing.
    std::shared_ptr<Session> under_another_policy();
    bool is_with_daemon_of(const Session& other) const { return service_ == other.service_; }

    // The record that the daemon had under that key (see Subject) before this session, once.
    std::optional<DeviceInfo> take_listed(const std::string& key);
    // The same without taking it.
    std::optional<DeviceInfo> listed(const std::string& key);
    // The keys of those records that were not taken.
    std::set<std::string> listed();

    // Whether the daemon has refused a USB device to which it has just answered "no", which it also
    // says of one that it leaves to the input side: that one it does not list.
    bool lists(const DeviceInfo& device);

  private:
    // What the daemon knew, of all sessions with it.
    struct List {
        Mutex asking;  // held while the daemon is asked
        bool asked GUARDED_BY(asking) = false;
        Mutex mutex;
        std::map<std::string, DeviceInfo> records GUARDED_BY(mutex);  // that were not taken
    };

    Session(const sp<IVUsbService>& service, std::shared_ptr<List> list)
          : service_(service), list_(std::move(list)) {}

    // Asks for the list once; others who need it wait meanwhile.
    void ensure_list();

    const sp<IVUsbService> service_;
    const std::shared_ptr<List> list_;
};

}  // namespace android::vus::hotplug
