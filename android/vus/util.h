// SPDX-License-Identifier: Apache-2.0

// Util: the policy in force, and the facade over what reads and keeps policies.
//
// A load is parse (policy.h), put in force, report: the tables below are the last reading of the
// policy file, which is the source of truth. The admission decision judges by rulesInForce()
// (judge.h); the lookups answer the same questions one by one, with their log lines.
// updateErrorFile() and copyFileContent() keep the status file, by which an administrator learns
// whether the policy took effect, and the backup, by which the daemon survives a bad one.
//
// Threads: the tables are guarded by `policy_mutex`. A load builds its tables aside and takes the
// mutex exclusively only to put them in force, all at once; it writes no file and logs no line
// meanwhile. The lookups do not lock: a caller that must not see two policies in one judgement
// holds a PolicyReadLock over all of its questions. One load at a time: loads come from Register()
// and, later, from the watcher's thread.

#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "android/vus/class_names.h"
#include "android/vus/judge.h"
#include "android/vus/mutex.h"
#include "android/vus/policy.h"
#include "android/vus/policy_files.h"

namespace android::vus {

class Util {
  public:
    // What convert() answers for a text that names no class.
    static constexpr uint32_t kNoClass = kNoClassCode;
    // The product id that stands for every product of a vendor.
    static constexpr int32_t kWholeVendor = kEveryProduct;

    // Loads the policy file at `path`. The outcome is xml_parse_status; a failure also leaves its
    // text in the status file and, unless the XML library itself gave up, in statusMessage. The
    // tables of a failed load hold what was read before the failure.
    static void createMapFromConfig(std::string path);
    // The same, and answers the bytes that were loaded. Writers do not wait for the daemon, so that
    // this is the only way to know them. Empty if the file cannot be read.
    static std::string loadPolicy(const std::string& path);
    // The same, as PolicyFiles wants it.
    static PolicyFiles::Loaded loadFile(const std::string& path);

    // The code of a class or input source name, spelled exactly; kNoClass for any other text.
    static uint32_t convert(const std::string name);
    // The name of a USB class code or input source value; one blank for a code without a name.
    static std::string getClassName(int32_t code);
    // True for a non-empty text of decimal digits, however many.
    static bool isValidNumber(const std::string text);
    // True for the classes that no rule may name and that no decision looks at.
    static bool validateRestrictedClass(uint32_t code);
    // True for a class or input source that the policy lists.
    static bool validateClass(uint32_t code) REQUIRES_SHARED(policy_mutex);
    // True if the policy lists the vendor and the whole-vendor rule of it or of any higher vendor.
    static bool validateVid(int32_t vid) REQUIRES_SHARED(policy_mutex);
    // True if the policy lists exactly this pair.
    static bool validateVidPid(int32_t vid, int32_t pid) REQUIRES_SHARED(policy_mutex);
    static std::string getMode() REQUIRES_SHARED(policy_mutex);
    // The input sources that an input device's source bits (AINPUT_SOURCE_*) hold, ascending.
    static std::vector<int32_t> checkMultiClass(int32_t key_val);

    // The tables, for judge(). They know no lines: a rule in force may have come from anywhere.
    static const Rules& rulesInForce() REQUIRES_SHARED(policy_mutex);
    // Logs what a judgement looked at, as the lookups would have.
    static void logSteps(const std::vector<Step>& steps);

    static void setStatusMessage(const std::string& message);

    // Makes `message` the whole content of the file. A file that cannot be written is left alone,
    // silently.
    static void updateErrorFile(std::string path, std::string message);
    // Copies line by line, each with a line end. True if the copy was made; a missing source leaves
    // an empty destination.
    static bool copyFileContent(std::string source, std::string dest);
    // Copies the policy to the backup, where `loaded` is what loadPolicy() answered.
    static void backUpPolicy(const std::string& loaded);

    static SharedMutex policy_mutex;

    // The tables, and what the last load left: the last "mode" read, valid or not; the classes in
    // file order, duplicates kept; each code's text as written; vendor to product, or to
    // kWholeVendor; the text last destined for the status file.
    static std::string configMode GUARDED_BY(policy_mutex);
    static std::vector<int32_t> classList GUARDED_BY(policy_mutex);
    static std::map<int32_t, std::string> classMap GUARDED_BY(policy_mutex);
    static std::multimap<int32_t, int32_t> vidPidMap GUARDED_BY(policy_mutex);
    static std::string statusMessage GUARDED_BY(policy_mutex);
    // True after a load that succeeded. Written under policy_mutex; what a load left is read by the
    // thread that loaded, which needs no lock for it: no other one loads meanwhile.
    static bool xml_parse_status;

    // Constant.
    static const std::vector<int32_t> restrictedClassList;
    static const std::map<int32_t, std::string> inputSourceMap;
    // Where the status goes. The daemon never changes it.
    static const char* statusFilePath;
};

// Hold the policy in force for the time of a scope: as it is, and to change it. Both are taken in
// turn: a shared mutex alone may let one decision after the other pass a load that waits, and
// devices that come without a pause would keep a new policy out for good.
class SCOPED_CAPABILITY PolicyReadLock {
  public:
    PolicyReadLock() ACQUIRE_SHARED(Util::policy_mutex);
    ~PolicyReadLock() RELEASE();
    PolicyReadLock(const PolicyReadLock&) = delete;
    PolicyReadLock& operator=(const PolicyReadLock&) = delete;
};

class SCOPED_CAPABILITY PolicyWriteLock {
  public:
    PolicyWriteLock() ACQUIRE(Util::policy_mutex);
    ~PolicyWriteLock() RELEASE();
    PolicyWriteLock(const PolicyWriteLock&) = delete;
    PolicyWriteLock& operator=(const PolicyWriteLock&) = delete;
};

}  // namespace android::vus
