// SPDX-License-Identifier: Apache-2.0
//
// A device's node in /dev.
//
// On a Linux host devtmpfs has made it before the device is announced. On Android ueventd makes it,
// of the same announcement: whoever hears that, too, may come first, and would take a keyboard for
// nothing at all.
//
// Stateless; any thread.

#pragma once

#include <chrono>
#include <string>

#include <android-base/unique_fd.h>

namespace android::vus::hotplug {

#ifdef __ANDROID__
inline constexpr std::chrono::milliseconds kNodePatience(500);
#else
inline constexpr std::chrono::milliseconds kNodePatience(0);
#endif

// Opens `node`, trying again for want of means. One that is not there is waited for as long as
// `device`, the device's place in sysfs, is there, but no longer than `patience`.
base::unique_fd open_node(const std::string& node, int flags, const std::string& device,
                          std::chrono::milliseconds patience = kNodePatience);

}  // namespace android::vus::hotplug
