// SPDX-License-Identifier: Apache-2.0

// Util: the administrator's policy, as the daemon holds it.
//
// createMapFromConfig() reads the policy file into process-wide tables; the lookups answer the
// admission decision's questions from them; updateErrorFile() and copyFileContent() keep the status
// file, by which an administrator learns whether the policy took effect, and the backup, by which
// the daemon survives a bad one. The file is the source of truth, the tables are its last reading.
// docs/policy-guide.md describes the format.
//
// Threads: the tables are guarded by `policy_mutex`. A load builds its tables aside and takes the
// mutex exclusively only to put them in force, all at once; it writes no file and logs no line
// meanwhile. The lookups do not lock: a caller that must not see two policies in one judgement
// holds what readPolicy() answers over all of its lookups. One load at a time: loads come from
// Register() and, later, from the watcher's thread.

#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

namespace android::vus {

class Util {
  public:
    // What convert() answers for a text that names no class.
    static constexpr uint32_t kNoClass = 0xFFFFFFFF;
    // The product id that stands for every product of a vendor.
    static constexpr int32_t kWholeVendor = -1;

    // Loads the policy file at `path`. The outcome is xml_parse_status; a failure also leaves its
    // text in the status file and, unless the XML library itself gave up, in statusMessage. The
    // tables of a failed load hold what was read before the failure.
    static void createMapFromConfig(std::string path);
    // The same, and answers the bytes that were loaded. Writers do not wait for the daemon, so that
    // this is the only way to know them. Empty if the file cannot be read.
    static std::string loadPolicy(const std::string& path);

    // The code of a class or input source name, spelled exactly; kNoClass for any other text.
    static uint32_t convert(const std::string name);
    // The name of a USB class code or input source value; one blank for a code without a name.
    static std::string getClassName(int32_t code);
    // True for a non-empty text of decimal digits, however many.
    static bool isValidNumber(const std::string text);
    // True for the classes that no rule may name and that no decision looks at.
    static bool validateRestrictedClass(uint32_t code);
    // True for a class or input source that the policy lists.
    static bool validateClass(uint32_t code);
    // True if the policy lists the vendor and the whole-vendor rule of it or of any higher vendor.
    static bool validateVid(int32_t vid);
    // True if the policy lists exactly this pair.
    static bool validateVidPid(int32_t vid, int32_t pid);
    static std::string getMode();
    // The input sources that an input device's source bits (AINPUT_SOURCE_*) hold, ascending.
    static std::vector<int32_t> checkMultiClass(int32_t key_val);

    // Makes `message` the whole content of the file. A file that cannot be written is left alone,
    // silently.
    static void updateErrorFile(std::string path, std::string message);
    // Copies line by line, each with a line end. True if the copy was made; a missing source leaves
    // an empty destination.
    static bool copyFileContent(std::string source, std::string dest);
    // Copies the policy to the backup, where `loaded` is what loadPolicy() answered. A writer may
    // be at the policy again by now, or the disk be full: a copy that is not what was loaded is
    // replaced by that or, where it does not fit, by the last good backup. From a bad backup no bad
    // policy could ever be rolled back.
    static void backUpPolicy(const std::string& loaded);

    // Take policy_mutex in turn: a shared mutex alone may let one decision after the other pass a
    // load that waits, and devices that come without a pause would keep a new policy out for good.
    static std::shared_lock<std::shared_mutex> readPolicy();
    static std::unique_lock<std::shared_mutex> changePolicy();

    static std::shared_mutex policy_mutex;

    // The tables, and what the last load left; guarded by policy_mutex.
    static std::string configMode;                     // the last "mode" read, valid or not
    static std::vector<int32_t> classList;             // in file order, duplicates kept
    static std::map<int32_t, std::string> classMap;    // code to the text as written
    static std::multimap<int32_t, int32_t> vidPidMap;  // vendor to product, or to kWholeVendor
    static std::string statusMessage;                  // the text last destined for the status file
    static bool xml_parse_status;                      // true after a load that succeeded

    // Constant.
    static const std::vector<int32_t> restrictedClassList;
    static const std::map<int32_t, std::string> inputSourceMap;
    static const char* statusFilePath;
};

}  // namespace android::vus
