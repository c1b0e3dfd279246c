// SPDX-License-Identifier: Apache-2.0
//
// Client: what vusctl does, on streams that a test can read.
//
// A command is a row in a table: its name, its words, and the function that runs it. Commands that
// only look at files (policy, status) work without the daemon; the others end at once with
// kNoService when it is not there.

#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tools/common/service_finder.h"
#include "tools/vusctl/arguments.h"

namespace android::vus::ctl {

// Exit statuses.
inline constexpr int kDone = 0;     // done; the device is allowed; the policy is in force
inline constexpr int kRefused = 1;  // the device is not allowed; the policy was rejected
inline constexpr int kUsage = 2;
inline constexpr int kNoService = 3;
inline constexpr int kFailed = 4;  // a file or the daemon did not do what was asked of it

class Client {
  public:
    // `find` answers the service, or at once why there is none. `out_fd` is the descriptor behind
    // `out`, to which the daemon itself writes its dump. `wait` blocks until the user wants no
    // more, or until the descriptor that it is given is readable.
    Client(std::function<FoundService()> find, std::ostream& out, std::ostream& err, int out_fd,
           std::function<void(int fd)> wait);

    // Runs one command line, without the program's name. Returns the exit status.
    int Run(const Words& words);

  private:
    struct Command;
    static const std::vector<Command>& commands();

    static void print_usage(std::ostream& stream);
    int usage_error(const std::string& message);
    int failure(const binder::Status& status);
    // The service for a command that needs it; says so if there is none.
    sp<IVUsbService> service();

    int list(const Words& words);
    int judge(const Words& words);
    int reset(const Words& words);
    int undock(const Words& words);
    int dump(const Words& words);
    int watch(const Words& words);
    int policy(const Words& words);
    int status(const Words& words);

    // The stored record of a device that was judged just now.
    int print_verdict(IVUsbService& service, const DeviceInfo& info, bool allowed);

    const std::function<FoundService()> find_;
    std::ostream& out_;
    std::ostream& err_;
    const int out_fd_;
    const std::function<void(int fd)> wait_;
};

}  // namespace android::vus::ctl
