// SPDX-License-Identifier: Apache-2.0

#include "android/vus/policy_crash.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>

#include "android/vus/file_io.h"
#include "android/vus/paths.h"
#include "android/vus/policy_restore.h"

namespace android::vus {

namespace {

std::atomic<bool> rolledBack{false};
static_assert(std::atomic<bool>::is_always_lock_free, "it is used by a signal handler");

// One byte more for the line end of the last line, and one to see that a backup is too long to be
// one: it was never loaded.
char backup[kMaxPolicyBytes + 2];

int openRegular(const char* path, int flags) {
    constexpr mode_t kAnyoneUnderUmask = 0666;
    const int file =
            open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kAnyoneUnderUmask);
    struct stat entry;
    if (file < 0 || (fstat(file, &entry) == 0 && S_ISREG(entry.st_mode))) return file;
    close(file);
    return -1;
}

// A missing backup leaves an empty policy, as every roll-back does.
size_t readBackup() {
    const int file = openRegular(kPolicyBackupFile, O_RDONLY);
    if (file < 0) return 0;
    size_t length = 0;
    ssize_t got = 1;
    while (got != 0 && length < sizeof(backup)) {
        got = read(file, backup + length, sizeof(backup) - length);
        if (got > 0) length += static_cast<size_t>(got);
        if (got < 0 && errno != EINTR) break;
    }
    close(file);
    if (length > kMaxPolicyBytes + 1) return 0;
    if (length > 0 && backup[length - 1] != '\n') backup[length++] = '\n';
    return length;
}

void replace(const char* path, const char* text, size_t length) {
    const int file = openRegular(path, O_WRONLY | O_CREAT);
    if (file < 0) return;
    if (ftruncate(file, 0) == 0) {
        while (length > 0) {
            const ssize_t written = write(file, text, length);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) break;
            text += written;
            length -= static_cast<size_t>(written);
        }
    }
    close(file);
}

}  // namespace

void crashRolledBack() {
    rolledBack = true;
}

void rollBackByPlainCalls() {
    if (rolledBack) return;
    endLease();
    const size_t length = readBackup();
    replace(kPolicyFile, backup, length);
    replace(kStatusFile, kCrashStatus, sizeof(kCrashStatus) - 1);
}

}  // namespace android::vus
