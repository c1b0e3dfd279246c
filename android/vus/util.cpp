// SPDX-License-Identifier: Apache-2.0

// The tables, the status file and the backup. The lookups are in util_lookup.cpp, the loader is in
// util_loader.cpp.

#include "android/vus/util.h"

#include <fcntl.h>

#include <algorithm>
#include <string_view>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"

namespace android::vus {

namespace {

std::map<int32_t, std::string> inputSources() {
    std::map<int32_t, std::string> sources;
    for (const ClassName& row : kClassNames) {
        if (row.code >= kFirstInputSource) sources.emplace(row.code, row.name);
    }
    return sources;
}

// Creates the file or empties it; an invalid descriptor if it cannot be written.
base::unique_fd openForWriting(const std::string& path) {
    constexpr mode_t kAnyoneUnderUmask = 0666;
    return base::unique_fd(
            open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kAnyoneUnderUmask));
}

// False if nothing or not all of it could be written.
bool writeFile(const std::string& path, const std::string& content) {
    const base::unique_fd file = openForWriting(path);
    return file.get() >= 0 && base::WriteStringToFd(content, file);
}

// Empty for a file that cannot be read.
std::string contentOf(const std::string& path) {
    std::string content;
    base::ReadFileToString(path, &content, /*follow_symlinks=*/true);
    return content;
}

// What a copy of the content looks like: every line has a line end, the last one too.
std::string asCopied(std::string content) {
    if (!content.empty() && content.back() != '\n') content += '\n';
    return content;
}

// Copies every line of the source, a last one without a line end too, with a line end each; reports
// each line that is lost without a destination. Returns whether none was.
bool copyLines(const base::unique_fd& source, const base::unique_fd& dest) {
    std::string text;
    base::ReadFdToString(source, &text);  // up to a read error, which is not told from the end
    if (!text.empty() && text.back() != '\n') text += '\n';
    for (size_t start = 0; start < text.size();) {
        const size_t end = text.find('\n', start);
        if (dest.get() < 0) {
            LOG(ERROR) << "ODM error in dest file open";
        } else {
            LOG(INFO) << std::string_view(text).substr(start, end - start);
        }
        start = end + 1;
    }
    if (dest.get() < 0) return text.empty();
    base::WriteStringToFd(text, dest);
    return true;
}

// Held by whoever waits for policy_mutex, and never longer.
Mutex policy_turn;

}  // namespace

SharedMutex Util::policy_mutex;
std::string Util::configMode = "default";
std::vector<int32_t> Util::classList;
std::map<int32_t, std::string> Util::classMap;
std::multimap<int32_t, int32_t> Util::vidPidMap;
std::string Util::statusMessage = "SUCCESS";
bool Util::xml_parse_status = false;
const std::vector<int32_t> Util::restrictedClassList(kRestrictedClasses.begin(),
                                                     kRestrictedClasses.end());
const std::map<int32_t, std::string> Util::inputSourceMap = inputSources();
const char* Util::statusFilePath = kStatusFile;

PolicyReadLock::PolicyReadLock() {
    const MutexLock turn(policy_turn);
    Util::policy_mutex.lock_shared();
}

PolicyReadLock::~PolicyReadLock() {
    Util::policy_mutex.unlock_shared();
}

PolicyWriteLock::PolicyWriteLock() {
    const MutexLock turn(policy_turn);
    Util::policy_mutex.lock();
}

PolicyWriteLock::~PolicyWriteLock() {
    Util::policy_mutex.unlock();
}

void Util::setStatusMessage(const std::string& message) {
    const PolicyWriteLock policy;
    statusMessage = message;
}

void Util::updateErrorFile(std::string path, std::string message) {
    LOG(INFO) << "updateErrorFile called with error message : " << message;
    writeFile(path, message);
}

bool Util::copyFileContent(std::string source, std::string dest) {
    LOG(INFO) << " USB xml src path is " << source;
    LOG(INFO) << "USB xml dest path is " << dest;
    bool copied = false;
    {
        const base::unique_fd from(open(source.c_str(), O_RDONLY | O_CLOEXEC));
        // Emptied even if there is nothing to copy: a restore without a backup leaves an empty
        // policy, which is rejected, rather than the one that was rejected before.
        const base::unique_fd to = openForWriting(dest);
        if (from.get() >= 0) {
            copied = copyLines(from, to);
        } else {
            LOG(ERROR) << "USB device error is source file open";
        }
    }
    // Logged after a failure too, on purpose.
    LOG(INFO) << "Usb Device config file copied successfully..!!";
    return copied;
}

void Util::backUpPolicy(const std::string& loaded) {
    const std::string last_good = contentOf(kPolicyBackupFile);
    copyFileContent(kPolicyFile, kPolicyBackupFile);
    const std::string wanted = asCopied(loaded);
    if (contentOf(kPolicyBackupFile) == wanted) return;
    LOG(ERROR) << "the backup is not the policy that was loaded: writing that";
    if (writeFile(kPolicyBackupFile, wanted)) return;
    PLOG(ERROR) << "the backup cannot be written: keeping the last one";
    writeFile(kPolicyBackupFile, last_good);
}

}  // namespace android::vus
