// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/in_force.h"

#include <variant>

#include <android-base/file.h>

#include "android/vus/paths.h"
#include "tools/vusctl/sources.h"

namespace android::vus::ctl {

namespace {

std::optional<std::string> content_of(const char* path) {
    std::string content;
    if (!base::ReadFileToString(path, &content, /*follow_symlinks=*/true)) return std::nullopt;
    return content;
}

bool is_policy(const std::string& content) {
    return std::holds_alternative<Policy>(parsePolicy(content));
}

// The daemon's copy has a line feed behind the last line.
bool is_copy(const std::string& copy, std::string content) {
    if (content.empty() || content.back() != '\n') content += '\n';
    return copy == content;
}

}  // namespace

OnDisk compare_with_disk() {
    const auto policy = content_of(kPolicyFile);
    const auto backup = content_of(kPolicyBackupFile);
    if (!policy || !backup) return OnDisk::kUnknown;
    if (!is_policy(*policy)) return OnDisk::kRejected;
    return is_copy(*backup, *policy) ? OnDisk::kInForce : OnDisk::kNotInForce;
}

bool is_in_force(const std::string& content) {
    const auto backup = content_of(kPolicyBackupFile);
    return backup && is_copy(*backup, content);
}

std::string on_disk_text(OnDisk on_disk) {
    switch (on_disk) {
        case OnDisk::kInForce:
            return "";
        case OnDisk::kNotInForce:
            return "the file on disk is not the policy in force, which the backup holds: vusctl "
                   "policy set puts a file in force";
        case OnDisk::kRejected:
            return "the file on disk is no policy: if the daemon has started with it, what is in "
                   "force is neither the file nor the backup";
        case OnDisk::kUnknown:
            return "no policy was loaded yet, or its backup is gone: what is in force cannot be "
                   "told";
    }
    return "";
}

std::optional<Policy> policy_in_force(Context& context, int* status) {
    const OnDisk on_disk = compare_with_disk();
    if (on_disk == OnDisk::kInForce || on_disk == OnDisk::kNotInForce) {
        return load_policy(context, kPolicyBackupFile, status);
    }
    *status = context.failed(on_disk_text(on_disk));
    return std::nullopt;
}

}  // namespace android::vus::ctl
