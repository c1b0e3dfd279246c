// SPDX-License-Identifier: Apache-2.0

#include "android/vus/policy_files.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

#include <android-base/logging.h>

#include "android/vus/file_io.h"
#include "android/vus/mutex.h"
#include "android/vus/paths.h"
#include "android/vus/policy_crash.h"
#include "android/vus/policy_restore.h"

namespace android::vus {

namespace {

using Cause = PolicyFiles::Cause;
using ClosesWaiting = PolicyFiles::ClosesWaiting;
using Load = PolicyFiles::Load;
using Loaded = PolicyFiles::Loaded;

// Exactly as it is written: no line end after the last line.
constexpr char kDefaultPolicy[] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<usbconfig mode=\"default\">\n"
        "</usbconfig>";

// The default policy until it is whole.
constexpr char kFirstPolicyFile[] = "/data/system/usbdeviceconfig/usb_device_config.first";

// A policy that changes each time it is looked at, without a close that is heard, is somebody's
// game: the backup's rules are in force then, until a close is heard.
constexpr int kMostLoadsOfOneClose = 3;

// The three files. Recursive, for the case that it is the watcher that crashes.
RecursiveTimedMutex filesMutex;

// What a restore will be heard of. A good load then only brings back what was in force, and the
// administrator keeps seeing why the policy was rejected: the status is left alone.
struct Echoes {
    size_t left = 0;   // closes: that of the last restore, and those of what it replaced
    std::string text;  // what was restored
};
Echoes echoes GUARDED_BY(filesMutex);

bool exists(const char* path) {
    struct stat entry;
    return stat(path, &entry) == 0;
}

bool isDirectory(const char* path) {
    struct stat entry;
    return stat(path, &entry) == 0 && S_ISDIR(entry.st_mode);
}

// Makes the default policy, unless there is one by now, or somebody else is making it. The lock is
// the directory's and ends with its descriptor: nothing more is left behind by a kill.
bool makeDefault() {
    const base::unique_fd directory(open(kConfigDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() < 0) return false;
    // A file system without locks has one start-up task as well.
    if (flock(directory.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
    return create_whole(kPolicyFile, kFirstPolicyFile, kDefaultPolicy);
}

void logCopy(const std::string& source, const std::string& dest) {
    LOG(INFO) << " USB xml src path is " << source;
    LOG(INFO) << "USB xml dest path is " << dest;
}

// Each line of the copy, or that it is lost without a destination.
void logLines(std::string_view copied, bool written) {
    while (!copied.empty()) {
        const size_t end = copied.find('\n');
        if (written) {
            LOG(INFO) << copied.substr(0, end);
        } else {
            LOG(ERROR) << "ODM error in dest file open";
        }
        copied.remove_prefix(end + 1);
    }
}

// Says how a copy went, as every copy does; returns whether it was made. `copied` is nothing if
// there was no source.
bool reportCopy(const std::optional<std::string>& copied, bool written) {
    if (copied) {
        logLines(*copied, written);
    } else {
        LOG(ERROR) << "USB device error is source file open";
    }
    // Logged after a failure too; kept: oddity 16.
    LOG(INFO) << "Usb Device config file copied successfully..!!";
    return copied && (written || copied->empty());
}

// The text as a copy of it looks, or nothing if there is none.
std::optional<std::string> readAsCopied(const std::string& path) {
    std::optional<std::string> text = read_for_copy(path);
    if (text) text = as_copied(std::move(*text));
    return text;
}

void confirm(const std::string& loaded) {
    PolicyFiles::writeStatus(kStatusFile, kStatusSuccess);
    PolicyFiles::backUp(loaded);
}

// The rules of the last good policy, while its text cannot stand in the policy's place.
void putBackupInForce(const Load& load) {
    if (!read_policy_text(kPolicyBackupFile).ok()) return;
    LOG(INFO) << "the rules of the backup are in force until the policy is closed";
    load(kPolicyBackupFile);
}

// A backup that is bad, or that is missing and so leaves an empty policy, is rejected and restored
// again at the next event: the loop is not guarded against (kept: oddity 13). False if the policy
// is a new one, of whose close nothing will be heard.
bool restoreBackup(const std::string& rejected, const Load& load,
                   const ClosesWaiting& closesWaiting) REQUIRES(filesMutex) {
    LOG(INFO) << "Parsing failure, copying backup file content";
    const std::optional<std::string> backup = readAsCopied(kPolicyBackupFile);
    const RestoreResult result =
            restoreOver(kPolicyFile, rejected, backup.value_or(""), closesWaiting);
    switch (result.outcome) {
        case Restored::kDone:
            echoes = {result.closesBefore + 1, backup.value_or("")};
            logCopy(kPolicyBackupFile, kPolicyFile);
            reportCopy(backup, /*written=*/true);
            return true;
        case Restored::kBeingWritten:
            LOG(INFO) << "the policy is being written: it is not overwritten";
            if (closesWaiting() == 0) putBackupInForce(load);
            return true;
        case Restored::kChanged:
            LOG(INFO) << "the policy is another one by now";
            return false;
        case Restored::kImpossible:
            logCopy(kPolicyBackupFile, kPolicyFile);
            reportCopy(backup, /*written=*/false);
            putBackupInForce(load);
            return true;
    }
    return true;
}

// True if what is heard now was expected to be heard. Lost events may have been what was expected:
// no more of that is to come than is waiting.
bool isExpected(Cause cause, const ClosesWaiting& closesWaiting) REQUIRES(filesMutex) {
    if (echoes.left == 0) return false;
    echoes.left =
            cause == Cause::kClosed ? echoes.left - 1 : std::min(echoes.left, closesWaiting());
    return true;
}

// True if a good policy, of which an expected close was heard, is nothing new. Another text than
// the restored one is, but its own close will be heard; unless none is waiting.
bool isEcho(const std::string& loaded, const ClosesWaiting& closesWaiting) REQUIRES(filesMutex) {
    return loaded == echoes.text || closesWaiting() > 0;
}

Loaded loadPolicy(const Load& load) {
    LOG(INFO) << "Admin usb_device_config.xml config file call parsing";
    Loaded loaded = load(kPolicyFile);
    LOG(INFO) << "Parsing status xml_parse_status " << loaded.success;
    return loaded;
}

}  // namespace

void PolicyFiles::createDefault() {
    if (!isDirectory(kConfigDir)) {
        LOG(INFO) << "no Directory exist";
        return;
    }
    LOG(INFO) << "Directory exist, creating file";
    if (exists(kPolicyFile)) {
        unlink(kFirstPolicyFile);  // the policy's second name, of a task that was killed
        return;
    }
    // Who watches hears of a policy when it is closed, and this one was closed under another name.
    if (makeDefault()) open_in_place(kPolicyFile, O_WRONLY);
}

void PolicyFiles::loadAtStart(const Load& load) {
    const MutexLock<RecursiveTimedMutex> lock(filesMutex);
    const Loaded loaded = load(kPolicyFile);
    if (!loaded.success) {
        LOG(INFO) << " parsing failed";
        return;
    }
    LOG(INFO) << " updating error fle with success";  // "fle": kept: oddity 2
    writeStatus(kStatusFile, kStatusSuccess);
    LOG(INFO) << "copying backup ";
    backUp(loaded.bytes);
}

bool PolicyFiles::reload(const Load& load, Cause cause, const ClosesWaiting& closesWaiting) {
    const MutexLock<RecursiveTimedMutex> lock(filesMutex);
    bool expected = isExpected(cause, closesWaiting);
    for (int loads = 0; loads < kMostLoadsOfOneClose; ++loads) {
        const Loaded loaded = loadPolicy(load);
        if (loaded.success) {
            if (expected && isEcho(loaded.bytes, closesWaiting)) return false;
            echoes = {};
            LOG(INFO) << "Parsing success, so update status file and create backup";
            confirm(loaded.bytes);
            return true;
        }
        if (restoreBackup(loaded.bytes, load, closesWaiting)) return false;
        expected = false;
    }
    putBackupInForce(load);
    return false;
}

void PolicyFiles::rollBackAfterCrash() NO_THREAD_SAFETY_ANALYSIS {
    // A watcher that is stuck is waited for no longer than this, and one that crashed itself not at
    // all. Never given back: nobody confirms a policy that is being rolled back, or answers that.
    (void)filesMutex.try_lock_for(std::chrono::seconds(2));
    endLease();
    copy(kPolicyBackupFile, kPolicyFile);
    writeStatus(kStatusFile, kCrashStatus);
    crashRolledBack();
}

void PolicyFiles::rollBackPlainly() {
    rollBackByPlainCalls();
}

void PolicyFiles::writeStatus(const std::string& path, const std::string& text) {
    LOG(INFO) << "updateErrorFile called with error message : " << text;
    rewrite_file(path, text);
}

bool PolicyFiles::copy(const std::string& source, const std::string& dest) {
    logCopy(source, dest);
    // The source as a whole before the destination is emptied: the process may end in between.
    const std::optional<std::string> text = readAsCopied(source);
    bool written = false;
    {
        // Emptied even if there is nothing to copy: a restore without a backup leaves an empty
        // policy, which is rejected, rather than the one that was rejected before.
        const base::unique_fd file = open_for_copy(dest);
        written = file.get() >= 0;
        if (written) rewrite(file, text.value_or(""));
    }
    return reportCopy(text, written);
}

void PolicyFiles::backUp(const std::string& loaded) {
    logCopy(kPolicyFile, kPolicyBackupFile);
    const std::optional<std::string> last_good = read_for_copy(kPolicyBackupFile);
    const std::optional<std::string> now = readAsCopied(kPolicyFile);
    const std::string wanted = as_copied(loaded);
    // On the disk one of the two is whole at any time, and a power cut finds it.
    make_durable(open_in_place(kPolicyFile, O_RDONLY));
    // Never what the policy holds now, not even for a moment: it may be another one.
    const base::unique_fd file = open_in_place(kPolicyBackupFile);
    const bool opened = file.get() >= 0;
    const bool written = opened && rewrite(file, wanted);
    const int failure = errno;
    if (written) make_durable(file);
    reportCopy(now, opened);
    if (written && now == wanted) return;
    LOG(ERROR) << "the backup is not the policy that was loaded: writing that";
    if (written) return;
    errno = failure;
    PLOG(ERROR) << "the backup cannot be written: keeping the last one";
    if (opened && rewrite(file, last_good.value_or(""))) make_durable(file);
}

}  // namespace android::vus
