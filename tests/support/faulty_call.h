// SPDX-License-Identifier: Apache-2.0
//
// One system call of a thread that fails: the n-th of those that open, read, write, list, lock,
// name, rename or remove files (pipes aside), with any error. Whoever walks n from 1 on has each of
// them fail once.
//
// The kernel asks a second thread about every such call (seccomp's notifications), so the code that
// is tested runs as it is, and in any library. Memory and mutexes are left alone: where those fail,
// the process ends.

#pragma once

#include <functional>
#include <optional>

namespace android::vus {

class FaultyCall {
  public:
    // Whether the call, which the thread is about to make, is to be counted. Called on the second
    // thread, which shares everything with the first but waits for it.
    using Counts = std::function<bool(int call, const unsigned long long* arguments)>;

    // Runs `body` on a thread of its own, to its end. Of its calls that count, the n-th fails with
    // `error`. Returns which call that was (SYS_openat, ...); nothing if there were fewer.
    static std::optional<int> run(int n, int error, const std::function<void()>& body,
                                  const Counts& counts = nullptr);
};

}  // namespace android::vus
