// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/preview.h"

#include <sys/stat.h>

#include <utility>

#include "android/vus/class_names.h"
#include "android/vus/file_io.h"
#include "android/vus/paths.h"

namespace android::vus::hotplug {

namespace {

// More than two changes of the same time may be apart, on any file system.
constexpr time_t kTellingSeconds = 3;

template <typename Stamp>
bool are_same(const Stamp& one, const Stamp& other) {
    return one.device == other.device && one.number == other.number && one.size == other.size &&
           one.changed.tv_sec == other.changed.tv_sec &&
           one.changed.tv_nsec == other.changed.tv_nsec;
}

}  // namespace

PolicyPreview::PolicyPreview(Clock clock)
      : clock_(std::move(clock)), policy_(kPolicyFile), backup_(kPolicyBackupFile) {}

Foreseen PolicyPreview::of(const Claim& claim) {
    const MutexLock lock(mutex_);
    const time_t now = clock_();
    const Policy* const policy = policy_.read(now);
    const Policy* const backup = backup_.read(now);
    if (policy == nullptr || backup == nullptr) return Foreseen::kUnknown;
    const bool allowed = judge(claim, PolicyRules(*policy)).allowed;
    if (judge(claim, PolicyRules(*backup)).allowed != allowed) return Foreseen::kUnknown;
    return allowed ? Foreseen::kAllowed : Foreseen::kRefused;
}

bool PolicyPreview::refuses(const Claim& claim) {
    return either([&claim](const PolicyRules& rules) { return !judge(claim, rules).allowed; });
}

// A judgement ends with the classes where they match: whether a rule for its vendor would match as
// well is not in it.
bool PolicyPreview::admits_by_class(const Claim& claim) {
    return either([&claim](const PolicyRules& rules) {
        const Judgement judgement = judge(claim, rules);
        return judgement.allowed && !judgement.matched.empty() &&
               judgement.matched[0].kind == Rule::Kind::kClass &&
               !rules.wholeVendorRule(claim.vendorId) &&
               !rules.productRule(claim.vendorId, claim.productId);
    });
}

bool PolicyPreview::either(const std::function<bool(const PolicyRules&)>& is_such) {
    const MutexLock lock(mutex_);
    for (File* file : {&policy_, &backup_}) {
        const Policy* const policy = file->read(clock_());
        if (policy != nullptr && is_such(PolicyRules(*policy))) return true;
    }
    return false;
}

std::optional<PolicyPreview::File::Stamp> PolicyPreview::File::stamp() const {
    struct stat file = {};
    if (stat(path_, &file) != 0 || !S_ISREG(file.st_mode)) return std::nullopt;
    return Stamp{file.st_dev, file.st_ino, file.st_size, file.st_ctim};
}

const Policy* PolicyPreview::File::read(time_t now) {
    const std::optional<Stamp> found = stamp();
    if (found && stamp_ && are_same(*found, *stamp_)) return std::get_if<Policy>(&parsed_);
    stamp_.reset();
    PolicyText read = read_policy_text(path_);
    if (!read.ok()) return nullptr;
    if (found && found->changed.tv_sec + kTellingSeconds < now) stamp_ = found;
    if (read.bytes != text_) {
        parsed_ = parsePolicy(read.bytes);
        text_ = std::move(read.bytes);
    }
    return std::get_if<Policy>(&parsed_);
}

// Several sources match only as each of them does, and a vendor's rule settles all of them.
Foreseen foreseen_of_any_input(Preview* preview, int32_t vendor, int32_t product) {
    const Foreseen of_none = preview->of({0, {}, vendor, product});
    for (const ClassName& name : kClassNames) {
        if (name.code < kFirstInputSource) continue;
        if (preview->of({name.code, {}, vendor, product}) != of_none) return Foreseen::kUnknown;
    }
    return of_none;
}

}  // namespace android::vus::hotplug
