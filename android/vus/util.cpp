// SPDX-License-Identifier: Apache-2.0

// The rule lookups, the class names, the status file and the backup. The loader is in
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

struct ClassName {
    int32_t code;
    std::string_view name;
};

// The vocabulary of the policy file, of the reasons and of the dump: the USB-IF base classes, and
// from kFirstInputSource up the platform's input sources (AINPUT_SOURCE_*) with their class bits
// cleared, so that the two never collide.
constexpr int32_t kFirstInputSource = 0x100;
constexpr ClassName kClassNames[] = {
        {0x00, "USB_CLASS_PER_INTERFACE"},
        {0x01, "USB_CLASS_AUDIO"},
        {0x02, "USB_CLASS_COMM"},
        {0x03, "USB_CLASS_HID"},
        {0x05, "USB_CLASS_PHYSICA"},  // without its last letter on purpose: policies spell it so
        {0x06, "USB_CLASS_STILL_IMAGE"},
        {0x07, "USB_CLASS_PRINTER"},
        {0x08, "USB_CLASS_MASS_STORAGE"},
        {0x09, "USB_CLASS_HUB"},
        {0x0A, "USB_CLASS_CDC_DATA"},
        {0x0B, "USB_CLASS_CSCID"},
        {0x0D, "USB_CLASS_CONTENT_SEC"},
        {0x0E, "USB_CLASS_VIDEO"},
        {0xE0, "USB_CLASS_WIRELESS_CONTROLLER"},
        {0xEF, "USB_CLASS_MISC"},
        {0xFE, "USB_CLASS_APP_SPEC"},
        {0xFF, "USB_CLASS_VENDOR_SPEC"},
        {0x100, "AINPUT_SOURCE_KEYBOARD"},
        {0x200, "AINPUT_SOURCE_DPAD"},
        {0x400, "AINPUT_SOURCE_GAMEPAD"},
        {0x1000, "AINPUT_SOURCE_TOUCHSCREEN"},
        {0x2000, "AINPUT_SOURCE_MOUSE"},
        {0x4000, "AINPUT_SOURCE_STYLUS"},
        {0x10000, "AINPUT_SOURCE_TRACKBALL"},
        {0x20000, "AINPUT_SOURCE_MOUSE_RELATIVE"},
        {0x100000, "AINPUT_SOURCE_TOUCHPAD"},
        {0x200000, "AINPUT_SOURCE_TOUCH_NAVIGATION"},
        {0x400000, "AINPUT_SOURCE_ROTARY_ENCODER"},
        {0x1000000, "AINPUT_SOURCE_JOYSTICK"},
};

constexpr uint32_t kSourceClassBits = 0xFF;

std::map<int32_t, std::string> inputSources() {
    std::map<int32_t, std::string> sources;
    for (const ClassName& row : kClassNames) {
        if (row.code >= kFirstInputSource) sources.emplace(row.code, row.name);
    }
    return sources;
}

bool contains(const std::vector<int32_t>& list, uint32_t code) {
    return std::find(list.begin(), list.end(), static_cast<int32_t>(code)) != list.end();
}

// LOG(INFO) without its stream: a policy of many rules has this line once for each, and setting up
// the streams took half of the time of its load.
void logNumber(const std::string& line) {
    if (!WOULD_LOG(INFO)) return;
    base::LogMessage::LogLine(__FILE__, __LINE__, base::INFO, /*tag=*/nullptr, line.c_str());
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
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
std::mutex policy_turn;

}  // namespace

std::shared_mutex Util::policy_mutex;
std::string Util::configMode = "default";
std::vector<int32_t> Util::classList;
std::map<int32_t, std::string> Util::classMap;
std::multimap<int32_t, int32_t> Util::vidPidMap;
std::string Util::statusMessage = "SUCCESS";
bool Util::xml_parse_status = false;
const std::vector<int32_t> Util::restrictedClassList = {0x00, 0x03, 0x09, 0xEF, 0xFE, 0xFF};
const std::map<int32_t, std::string> Util::inputSourceMap = inputSources();
const char* Util::statusFilePath = kStatusFile;

std::shared_lock<std::shared_mutex> Util::readPolicy() {
    const std::lock_guard<std::mutex> turn(policy_turn);
    return std::shared_lock<std::shared_mutex>(policy_mutex);
}

std::unique_lock<std::shared_mutex> Util::changePolicy() {
    const std::lock_guard<std::mutex> turn(policy_turn);
    return std::unique_lock<std::shared_mutex>(policy_mutex);
}

uint32_t Util::convert(const std::string name) {
    for (const ClassName& row : kClassNames) {
        if (row.name == name) return static_cast<uint32_t>(row.code);
    }
    return kNoClass;
}

std::string Util::getClassName(int32_t code) {
    for (const ClassName& row : kClassNames) {
        if (row.code == code) return std::string(row.name);
    }
    return " ";
}

bool Util::isValidNumber(const std::string text) {
    logNumber("isValidNumber s--" + text);
    return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

bool Util::validateRestrictedClass(uint32_t code) {
    if (!contains(restrictedClassList, code)) return false;
    LOG(INFO) << "Found CLASS : " << code << " in restricted class list";
    return true;
}

bool Util::validateClass(uint32_t code) {
    if (!contains(classList, code)) return false;
    LOG(INFO) << "Found CLASS : " << code << " in admin config list";
    return true;
}

// The walk does not stop where the vendor ends, on purpose: a vendor of whom the policy lists only
// products counts as listed whole as soon as any higher vendor is. Policies in the field rely on
// the verdicts that this gives.
bool Util::validateVid(int32_t vid) {
    const auto first = vidPidMap.lower_bound(vid);
    if (first == vidPidMap.end() || first->first != vid) return false;
    const auto whole = std::find_if(first, vidPidMap.end(),
                                    [](const auto& rule) { return rule.second == kWholeVendor; });
    if (whole == vidPidMap.end()) return false;
    LOG(INFO) << "Found VID : " << vid << " without any pid associated inside admin config list.";
    return true;
}

bool Util::validateVidPid(int32_t vid, int32_t pid) {
    const auto [first, last] = vidPidMap.equal_range(vid);
    const bool found =
            std::any_of(first, last, [pid](const auto& rule) { return rule.second == pid; });
    if (found) {
        LOG(INFO) << "Found VID_PID : " << vid << "_" << pid
                  << " combination inside admin config list";
    }
    return found;
}

std::string Util::getMode() {
    return configMode;
}

std::vector<int32_t> Util::checkMultiClass(int32_t key_val) {
    LOG(INFO) << "checkMultiClass key_val" << key_val;
    const auto masked = static_cast<int32_t>(static_cast<uint32_t>(key_val) & ~kSourceClassBits);
    LOG(INFO) << "checkMultiClass--" << masked;
    if (inputSourceMap.count(masked) != 0) {
        LOG(INFO) << "Key found";
        return {masked};
    }
    LOG(INFO) << "Key not found";
    std::vector<int32_t> sources;
    for (const auto& [source, name] : inputSourceMap) {
        if ((source & ~masked) == 0) sources.push_back(source);
    }
    return sources;
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
