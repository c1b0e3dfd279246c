// SPDX-License-Identifier: Apache-2.0

// The tables, and the facade over the files. The lookups are in util_lookup.cpp, the loader is in
// util_loader.cpp.

#include "android/vus/util.h"

#include "android/vus/file_io.h"
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

PolicyFiles::Loaded Util::loadFile(const std::string& path) {
    PolicyFiles::Loaded loaded;
    loaded.bytes = loadPolicy(path);
    loaded.success = xml_parse_status;
    return loaded;
}

void Util::updateErrorFile(std::string path, std::string message) {
    PolicyFiles::writeStatus(path, message);
}

bool Util::copyFileContent(std::string source, std::string dest) {
    // A file that is copied onto itself ends empty; kept: oddity 32.
    if (is_same_file(source, dest)) rewrite_file(dest, "");
    return PolicyFiles::copy(source, dest);
}

void Util::backUpPolicy(const std::string& loaded) {
    PolicyFiles::backUp(loaded);
}

}  // namespace android::vus
