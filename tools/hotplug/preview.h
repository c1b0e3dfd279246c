// SPDX-License-Identifier: Apache-2.0
//
// Preview: what the daemon is going to answer, told before it is asked.
//
// The daemon remembers of a device what it became, so it is asked when that is so; and a device
// that is going to be refused must not become anything. So the gate looks ahead, by the daemon's
// own rules and from its own files: the policy, and its backup, which is the policy that was last
// put in force. Only where the two agree is anything foreseen. A policy that is being rewritten,
// that is malformed, or of which nothing is known leaves the question to the daemon.
//
// Thread-safe. What was parsed is kept for as long as the files say the same; and they are read
// anew only if they may say something else.

#pragma once

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "android/vus/judge.h"
#include "android/vus/mutex.h"
#include "android/vus/policy.h"

namespace android::vus::hotplug {

enum class Foreseen { kAllowed, kRefused, kUnknown };

class Preview {
  public:
    virtual ~Preview() = default;
    virtual Foreseen of(const Claim& claim) = 0;
    // Whether it is by listed classes alone that it may be allowed, and neither its vendor nor its
    // product is listed: then what its other interfaces are has played no part.
    virtual bool admits_by_class(const Claim& claim) = 0;
};

class PolicyPreview : public Preview {
  public:
    // What time it is, in the seconds of files' times.
    using Clock = std::function<time_t()>;

    explicit PolicyPreview(Clock clock = [] { return time(nullptr); });

    Foreseen of(const Claim& claim) override;
    bool admits_by_class(const Claim& claim) override;
    // Whether any of the two that is a policy refuses it.
    bool refuses(const Claim& claim);

  private:
    class File {
      public:
        explicit File(const char* path) : path_(path) {}
        // Null if there is no policy in it.
        const Policy* read(time_t now);

      private:
        // Which file it is, and when it was changed.
        struct Stamp {
            dev_t device;
            ino_t number;
            off_t size;
            timespec changed;
        };
        std::optional<Stamp> stamp() const;

        const char* const path_;
        std::optional<Stamp> stamp_;  // of what was read, if a later change would show in it
        std::string text_;
        std::variant<Policy, PolicyFailure> parsed_ = PolicyFailure();
    };

    // Whether any of the two that is a policy is such a one.
    bool either(const std::function<bool(const PolicyRules& rules)>& is_such);

    const Clock clock_;
    Mutex mutex_;
    File policy_ GUARDED_BY(mutex_);
    File backup_ GUARDED_BY(mutex_);
};

// The same of an input device of which no more is known than who made it: foreseen only if it does
// not depend on what it can send.
Foreseen foreseen_of_any_input(Preview* preview, int32_t vendor, int32_t product);

}  // namespace android::vus::hotplug
