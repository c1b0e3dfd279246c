// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/policy_watch.h"

#include <limits.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include <android-base/file.h>

#include "android/vus/insistently.h"
#include "android/vus/paths.h"

namespace android::vus::hotplug {

namespace {

constexpr size_t kBufferBytes = 16 * (sizeof(inotify_event) + NAME_MAX + 1);

// An event may be anything if the kernel had no room for it.
bool is_of_backup(const inotify_event& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) return true;
    return event.len != 0 && std::string_view(event.name) == base::Basename(kPolicyBackupFile);
}

}  // namespace

PolicyWatch::PolicyWatch()
      : fd_(insistently([] { return inotify_init1(IN_CLOEXEC | IN_NONBLOCK); })) {
    watch();
}

void PolicyWatch::watch() {
    insistently([this] {
        return inotify_add_watch(fd_.get(), kConfigDir, IN_CLOSE_WRITE | IN_ONLYDIR);
    });
}

bool PolicyWatch::taken() {
    bool found = false;
    alignas(inotify_event) char events[kBufferBytes];
    while (true) {
        const ssize_t length = TEMP_FAILURE_RETRY(read(fd_.get(), events, sizeof(events)));
        if (length <= 0) return found;
        for (const char* at = events; at < events + length;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(at);
            found |= is_of_backup(*event);
            at += sizeof(*event) + event->len;
        }
    }
}

bool board_resets_controllers() {
    for (const char* file : {kHighSpeedModeFile, kSuperSpeedModeFile}) {
        if (access((std::string(kSocDir) + file).c_str(), F_OK) == 0) return true;
    }
    return false;
}

}  // namespace android::vus::hotplug
