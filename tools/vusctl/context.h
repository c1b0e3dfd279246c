// SPDX-License-Identifier: Apache-2.0
//
// What a command of vusctl works with: the streams that a test can read, the way to the daemon, and
// the exit statuses.

#pragma once

#include <stddef.h>

#include <functional>
#include <istream>
#include <ostream>
#include <string>

#include "tools/common/service_finder.h"

namespace android::vus::ctl {

// Exit statuses.
inline constexpr int kDone = 0;     // done; the device is allowed; the policy is in force
inline constexpr int kRefused = 1;  // the device is not allowed; the policy was rejected
inline constexpr int kUsage = 2;
inline constexpr int kNoService = 3;
inline constexpr int kFailed = 4;  // a file or the daemon did not do what was asked of it

// The people before the screen, if there are any.
struct Terminal {
    std::istream* answers = nullptr;  // where they type; null: nobody can be asked
    size_t width = 0;                 // of a line of output; 0: it goes to no terminal
};

struct Context {
    std::function<FoundService()> find;
    std::ostream& out;
    std::ostream& err;
    int out_fd;  // behind `out`
    // Blocks until the user wants no more, or until the descriptor is readable.
    std::function<void(int fd)> wait;
    Terminal terminal;

    int usage_error(const std::string& message);
    int failure(const binder::Status& status);
    // "vusctl: MESSAGE", and kFailed.
    int failed(const std::string& message);
    // The service for a command that needs it; says so if there is none.
    sp<IVUsbService> service();
};

}  // namespace android::vus::ctl
