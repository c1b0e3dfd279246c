// SPDX-License-Identifier: Apache-2.0
//
// vusctl over a service that remembers what it was asked, in a world of its own.

#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <sstream>
#include <string>

#include "tests/support/world.h"
#include "tests/unit/tools/fake_service.h"
#include "tools/vusctl/client.h"

namespace android::vus::ctl {

inline DeviceInfo Disk() {
    DeviceInfo info;
    info.deviceName = "Flash Disk";
    info.deviceId = 1005;
    info.interfaceClassList = {8, 255};
    info.vendorId = 0x951;
    info.productId = 0x1666;
    info.status = 1;
    info.reason = "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE ";
    info.category = 4;
    info.categoryPath = "sdcard;";
    return info;
}

inline DeviceInfo Keyboard() {
    DeviceInfo info;
    info.deviceName = "Tastatur \"\xC3\xA4\xC3\xB6\"\n";
    info.deviceId = 7;
    info.deviceClass = 0x101;
    info.vendorId = 0x46d;
    info.productId = 0xc31c;
    info.deviceType = 1;
    info.reason = "No matching rule found to Whitelist the device";
    return info;
}

class ClientTest : public testing::Test {
  protected:
    void SetUp() override { EmptyWorld(); }

    // The service as it is in this process; Remote() puts it into another.
    int Run(const Words& words) {
        out_.str("");
        err_.str("");
        Client client([this] { return found_; }, out_, err_, STDERR_FILENO,
                      [this](int fd) { wait_(fd); }, terminal_);
        return client.Run(words);
    }
    void NoDaemon() { found_ = {nullptr, "the daemon is not running"}; }
    RemoteService MakeRemote() {
        const RemoteService remote = Remote(fake_);
        found_ = {remote.service, ""};
        return remote;
    }
    std::string Out() const { return out_.str(); }
    std::string Err() const { return err_.str(); }

    sp<FakeService> fake_ = new FakeService;
    FoundService found_{fake_, ""};
    std::function<void(int)> wait_ = [](int) { FAIL() << "waits for the user"; };
    std::ostringstream out_, err_;
    Terminal terminal_;
};

}  // namespace android::vus::ctl
