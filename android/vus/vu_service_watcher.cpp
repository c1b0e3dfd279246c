// SPDX-License-Identifier: Apache-2.0
//
// The watcher: one thread that reloads the policy each time its file is closed after writing.
//
// A policy that loads is confirmed in the status file, becomes the backup, and is applied to the
// attached devices by having them enumerated again. A policy that does not load is replaced by
// the backup; the restore closes the file after writing, too, and so the backup is loaded next.
// What happens to the files is in policy_files.h; this is how the watcher hears of them.

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/logging.h>

#include "android/vus/paths.h"
#include "android/vus/policy_files.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"

namespace android::vus {

namespace {

constexpr size_t kEventBufferSize = 512;
static_assert(kEventBufferSize >= sizeof(inotify_event) + NAME_MAX + 1,
              "the longest name must fit, or the kernel refuses to be read");

pthread_t watcherThread;

// Touched by the watcher thread only. The descriptor is never closed: the thread reads it until
// the process ends.
int32_t inotifyDescriptor = -1;
int32_t watchDescriptor = -1;

// What was read of the descriptor and is not answered yet: whole events, from `answered` on. Never
// destroyed: the thread is still at work while the process exits.
std::vector<char>& events = *new std::vector<char>;
size_t answered = 0;

bool isDirectory(const char* path) {
    struct stat entry;
    return stat(path, &entry) == 0 && S_ISDIR(entry.st_mode);
}

void watchConfigDir() {
    inotifyDescriptor = inotify_init1(IN_CLOEXEC);
    if (!isDirectory(kConfigDir)) LOG(INFO) << "No directory";
    watchDescriptor = inotify_add_watch(inotifyDescriptor, kConfigDir, IN_ALL_EVENTS);
    if (watchDescriptor < 0) {
        LOG(ERROR) << watchDescriptor << " < 0 Could not register INotify for" << kConfigDir;
    } else {
        LOG(INFO) << "registered successfully file observer";
    }
}

// Once they are most of what is kept: somebody may cause events without end.
void forgetAnswered() {
    if (answered == events.size()) {
        events = std::vector<char>();  // a large one, after a storm
    } else if (answered > events.size() / 2) {
        events.erase(events.begin(), events.begin() + static_cast<ptrdiff_t>(answered));
    } else {
        return;
    }
    answered = 0;
}

// Reads more events behind those that are there; waits for one if there is none.
ssize_t readEvents() {
    forgetAnswered();
    const size_t had = events.size();
    events.resize(had + kEventBufferSize);
    errno = 0;
    const ssize_t length = read(inotifyDescriptor, &events[had], kEventBufferSize);
    const int failure = errno;
    events.resize(had + static_cast<size_t>(std::max<ssize_t>(length, 0)));
    errno = failure;
    return length;
}

size_t sizeOf(const inotify_event& event) {
    return sizeof(event) + event.len;
}

// The event at `offset`, or none if what was read ends before it does.
const inotify_event* eventAt(size_t offset) {
    if (offset + sizeof(inotify_event) > events.size()) return nullptr;
    const auto* event = reinterpret_cast<const inotify_event*>(&events[offset]);
    return offset + sizeOf(*event) <= events.size() ? event : nullptr;
}

// An event about the directory itself has no name and is of no interest.
bool isClosedAfterWriting(const inotify_event& event) {
    return event.len != 0 && event.wd == watchDescriptor && (event.mask & IN_CLOSE_WRITE) != 0;
}

bool isPolicy(const inotify_event& event) {
    return std::string_view(event.name) == kPolicyFileName;
}

// Closes of the policy that are not answered yet, all up to now.
size_t closesWaiting() {
    int unread = 0;
    (void)ioctl(inotifyDescriptor, FIONREAD, &unread);
    // As many as there are now, and no more.
    while (unread > 0) {
        const ssize_t length = readEvents();
        if (length <= 0) break;
        unread -= static_cast<int>(length);
    }
    size_t closes = 0;
    for (size_t at = answered; const inotify_event* event = eventAt(at); at += sizeOf(*event)) {
        if (isClosedAfterWriting(*event) && isPolicy(*event)) ++closes;
    }
    return closes;
}

// Also after the load of a backup: the text of a failure is only for the status file.
PolicyFiles::Loaded load(const std::string& path) {
    PolicyFiles::Loaded loaded = Util::loadFile(path);
    if (loaded.success) Util::setStatusMessage(kStatusSuccess);
    return loaded;
}

// Logs what it finds. Whether to load the policy again, and why.
std::optional<PolicyFiles::Cause> causeToReload(const inotify_event& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        LOG(WARNING) << "events of " << kConfigDir << " were lost: loading the policy again";
        return PolicyFiles::Cause::kEventsLost;
    }
    if (!isClosedAfterWriting(event)) return std::nullopt;
    LOG(INFO) << "CLOSE_WRITE event triggered on filename " << kConfigDir << "/" << event.name;
    if (!isPolicy(event)) return std::nullopt;
    return PolicyFiles::Cause::kClosed;
}

}  // namespace

void VUsbService::registerFileObserverViaThread() {
    const int result = pthread_create(&watcherThread, nullptr, registerFileObserver, nullptr);
    LOG(INFO) << "registerFileObserverViaThread result--" << result;
}

void* VUsbService::registerFileObserver(void* /*unused*/) {
    watchConfigDir();
    readFileChangeEvent();
    return nullptr;
}

// Events are answered one by one in their order: two closes of the policy file are two reloads.
void VUsbService::readFileChangeEvent() {
    while (true) {
        const ssize_t length = readEvents();
        if (length >= static_cast<ssize_t>(sizeof(inotify_event))) {
            while (const inotify_event* event = eventAt(answered)) {
                const auto cause = causeToReload(*event);
                answered += sizeOf(*event);
                if (cause) answerRewrite(*cause);
            }
        } else if (errno == EINTR) {
            LOG(INFO) << "(errno == EINTR)";
        } else {
            LOG(ERROR) << "Could not get read event, " << strerror(errno);
            return;
        }
    }
}

void VUsbService::answerRewrite(PolicyFiles::Cause cause) {
    if (PolicyFiles::reload(load, cause, closesWaiting)) resetHostPorts(0);
}

}  // namespace android::vus
