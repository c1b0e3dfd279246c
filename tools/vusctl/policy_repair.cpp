// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/policy_repair.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <variant>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "android/vus/file_io.h"
#include "android/vus/paths.h"
#include "android/vus/policy.h"
#include "tools/common/text.h"
#include "tools/vusctl/context.h"
#include "tools/vusctl/policy_tool.h"

namespace android::vus::ctl {

namespace {

using base::unique_fd;

// What is renamed over the policy, and what stood there.
constexpr char kRepairFile[] = "/data/system/usbdeviceconfig/usb_device_config.repair";
constexpr char kRejectedFile[] = "/data/system/usbdeviceconfig/usb_device_config_rejected.xml";

// A text as the daemon would load it.
struct Reading {
    bool loads() const { return why_not.empty(); }

    std::string bytes;
    std::string why_not;
};

Reading reading_of(PolicyText text) {
    if (text.fault == PolicyText::Fault::kNotFound) return {"", "it cannot be opened"};
    if (text.fault == PolicyText::Fault::kUnreadable) return {"", "it cannot be read"};
    const auto parsed = parsePolicy(text.bytes);
    const auto* failure = std::get_if<PolicyFailure>(&parsed);
    return {std::move(text.bytes), failure == nullptr ? "" : failure->status};
}

Reading read_policy(const char* path) {
    return reading_of(read_policy_text(path));
}

// The same of the file itself: a link leads to the new policy by now, it may be.
Reading read_itself(const char* path) {
    return reading_of(read_policy_text(open_in_place(path, O_RDONLY)));
}

bool is_missing(const char* path) {
    struct stat entry = {};
    return lstat(path, &entry) != 0 && errno == ENOENT;
}

// Gives a file the mode and, where that is allowed, the owner of the policy that it replaces.
bool take_owner(const unique_fd& file) {
    struct stat replaced = {};
    if (lstat(kPolicyFile, &replaced) != 0 || !S_ISREG(replaced.st_mode)) return true;
    if (fchmod(file.get(), replaced.st_mode & 0777) != 0) return false;
    return fchown(file.get(), replaced.st_uid, replaced.st_gid) == 0 || errno == EPERM;
}

// All of it, on the disk; otherwise there is no such file.
bool write_aside(const std::string& text) {
    constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const unique_fd file(open(kRepairFile, kNew, 0660));
    if (!file.ok()) return false;
    if (base::WriteStringToFd(text, file) && take_owner(file) && fsync(file.get()) == 0) {
        return true;
    }
    const int failure = errno;
    unlink(kRepairFile);
    errno = failure;
    return false;
}

// Under a second name, the file outlives its replacement. A link is kept as a link.
bool keep_rejected() {
    unlink(kRejectedFile);
    return link(kPolicyFile, kRejectedFile) == 0;
}

class Repair {
  public:
    Repair(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

    int run() {
        unlink(kRepairFile);  // of a repair that was killed
        const Reading policy = read_policy(kPolicyFile);
        if (policy.loads()) return done("the policy loads: nothing to repair");
        if (is_missing(kPolicyFile) && is_missing(kPolicyBackupFile)) {
            return done("there is no policy yet: nothing to repair");
        }
        // A link is nothing that the daemon wrote.
        const Reading backup = read_itself(kPolicyBackupFile);
        if (!backup.loads()) return no_backup(policy.why_not, backup.why_not);
        return replace(policy.why_not, backup.bytes);
    }

  private:
    int replace(const std::string& why, const std::string& good) {
        const char* source = kRepairFile;
        std::string note;
        if (!write_aside(good)) {
            // What takes no room: the daemon makes a new backup of it when there is some.
            note = std::string("; it is the backup itself, because no copy could be written: ") +
                   strerror(errno);
            source = kPolicyBackupFile;
            if (!take_owner(open_in_place(kPolicyBackupFile, O_RDONLY)))
                return failed("change the mode of", kPolicyBackupFile);
        }
        const bool kept = keep_rejected();
        if (read_policy(kPolicyFile).loads()) {
            if (kept) unlink(kRejectedFile);
            return overtaken();
        }
        if (rename(source, kPolicyFile) != 0) {
            const int status = failed("replace", kPolicyFile);
            unlink(kRepairFile);
            return status;
        }
        // Written in that very moment: the second name has it.
        if (kept && read_itself(kRejectedFile).loads() && rename(kRejectedFile, kPolicyFile) == 0) {
            return overtaken();
        }
        if (!sync_policy_directory()) err_ << "vusctl: the directory may not be on the disk yet\n";
        if (kept) note += std::string("; that is ") + kRejectedFile + " now";
        return done(
                "repaired: the last good policy is back, because what stood there did not "
                "load (" +
                printable(why) + ")" + note);
    }

    int overtaken() {
        unlink(kRepairFile);
        return done("the policy loads by now: nothing to repair");
    }

    int done(const std::string& what) {
        out_ << what << "\n";
        return kDone;
    }

    int no_backup(const std::string& policy, const std::string& backup) {
        err_ << "vusctl: not repaired: the policy does not load (" << printable(policy)
             << "), and neither does the backup (" << printable(backup) << ")\n";
        return kRefused;
    }

    int failed(const char* what, const char* path) {
        err_ << "vusctl: not repaired: cannot " << what << " " << path << ": " << strerror(errno)
             << "\n";
        return kFailed;
    }

    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace

int repair_policy(std::ostream& out, std::ostream& err) {
    return Repair(out, err).run();
}

}  // namespace android::vus::ctl
