// SPDX-License-Identifier: Apache-2.0
//
// The watcher: one thread that reloads the policy each time its file is closed after writing.
//
// A policy that loads is confirmed in the status file, becomes the backup, and is applied to the
// attached devices by having them enumerated again. A policy that does not load is replaced by
// the backup; the restore closes the file after writing, too, and so the backup is loaded next.

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include <android-base/logging.h>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"

namespace android::vus {

std::recursive_timed_mutex VUsbService::policyFilesMutex;

namespace {

constexpr size_t kEventBufferSize = 512;
static_assert(kEventBufferSize >= sizeof(inotify_event) + NAME_MAX + 1,
              "the longest name must fit, or the kernel refuses to be read");

pthread_t watcherThread;

// Touched by the watcher thread only. The descriptor is never closed: the thread reads it until
// the process ends.
int32_t inotifyDescriptor = -1;
int32_t watchDescriptor = -1;

// True between the watcher's restore of the backup and the reload that the restore causes. The
// administrator then keeps seeing why the policy was rejected: the status file is left alone.
bool backupRestoreInProgress = false;

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

// Logs what it finds. An event about the directory itself has no name and is of no interest.
bool isClosedAfterWriting(const inotify_event& event) {
    if (event.len == 0 || event.wd != watchDescriptor) return false;
    if ((event.mask & IN_CLOSE_WRITE) == 0) return false;
    LOG(INFO) << "CLOSE_WRITE event triggered on filename " << kConfigDir << "/" << event.name;
    return true;
}

// A backup that is bad, or that is missing and so leaves an empty policy, is rejected and restored
// again at the next event: the loop is not guarded against, on purpose.
void restoreBackup() {
    LOG(INFO) << "Parsing failure, copying backup file content";
    Util::copyFileContent(kPolicyBackupFile, kPolicyFile);
    backupRestoreInProgress = true;
}

void confirmPolicy(const std::string& loaded) {
    LOG(INFO) << "Parsing success, so update status file and create backup";
    Util::updateErrorFile(Util::statusFilePath, kStatusSuccess);
    Util::backUpPolicy(loaded);
}

// True if the administrator's policy is in force now and the attached devices are to be judged
// again. The echo of a restore changes nothing but the tables.
bool reloadPolicy() {
    LOG(INFO) << "Admin usb_device_config.xml config file call parsing";
    const std::string loaded = Util::loadPolicy(kPolicyFile);
    LOG(INFO) << "Parsing status xml_parse_status " << Util::xml_parse_status;
    if (!Util::xml_parse_status) {
        restoreBackup();
        return false;
    }
    Util::setStatusMessage(kStatusSuccess);
    if (backupRestoreInProgress) {
        backupRestoreInProgress = false;
        return false;
    }
    confirmPolicy(loaded);
    return true;
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

void VUsbService::readFileChangeEvent() {
    alignas(inotify_event) char buffer[kEventBufferSize];
    while (true) {
        errno = 0;
        const ssize_t length = read(inotifyDescriptor, buffer, sizeof(buffer));
        if (length >= static_cast<ssize_t>(sizeof(inotify_event))) {
            handleFileEvents(buffer, static_cast<size_t>(length));
        } else if (errno == EINTR) {
            LOG(INFO) << "(errno == EINTR)";
        } else {
            LOG(ERROR) << "Could not get read event, " << strerror(errno);
            return;
        }
    }
}

// Events are handled one by one in the order of the buffer: two closes of the policy file are two
// reloads.
void VUsbService::handleFileEvents(const char* buffer, size_t length) {
    size_t offset = 0;
    while (offset + sizeof(inotify_event) <= length) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
        if (isClosedAfterWriting(*event) && std::string_view(event->name) == kPolicyFileName) {
            answerRewrite();
        }
        offset += sizeof(inotify_event) + event->len;
    }
}

void VUsbService::answerRewrite() {
    bool confirmed = false;
    {
        const std::lock_guard<std::recursive_timed_mutex> files(policyFilesMutex);
        confirmed = reloadPolicy();
    }
    if (confirmed) resetHostPorts(0);
}

}  // namespace android::vus
