// SPDX-License-Identifier: Apache-2.0

// The life of the policy's three files: the policy, its backup and the status (paths.h).
//
// The policy is the administrator's. The daemon writes it only to put the last good one back: over
// one that was rejected, and after a crash. The backup is what was loaded last and was good; the
// status says how the last load went. All three are rewritten in place, and no link is followed to
// write one: the directory's group may write its files, and nothing else by the daemon's hand.
// Only the first policy is written aside: where no backup is, a torn one would stay for good.
//
// What a load does with the bytes is not known here: it comes as a function. So this room and the
// policy's own (policy.h, judge.h) know nothing of each other; util.h is above both.
//
// Threads: one lock for the three files, private to this room, is held over a whole reload or
// start. loadAtStart() comes from the thread that starts the service, reload() from the watcher's,
// rollBackAfterCrash() from whichever thread crashed; that one takes the lock and never gives it
// back. The writers at the end take no lock: a load calls them, within a reload.

#pragma once

#include <stddef.h>

#include <functional>
#include <string>

namespace android::vus {

// What the status file says of a policy that is in force.
inline constexpr char kStatusSuccess[] = "SUCCESS";

class PolicyFiles {
  public:
    // How a load went, and the bytes that it judged: none if the file could not be read.
    struct Loaded {
        bool success = false;
        std::string bytes;
    };
    // Loads the policy of a path: puts it in force, or says in the status file why it did not.
    using Load = std::function<Loaded(const std::string& path)>;

    // Why the policy is loaded again.
    enum class Cause {
        kClosed,      // it was closed after writing
        kEventsLost,  // it may have been
    };
    // How many closes of the policy have been heard of and not yet been answered, all up to now.
    using ClosesWaiting = std::function<size_t()>;

    PolicyFiles() = delete;

    // Makes sure that there is a policy file, if there is a directory for it. What is there already
    // is never touched, and the directory is never made. A default policy that cannot be made as a
    // whole is not made at all: the next call tries again.
    static void createDefault();

    // The load at start: a good policy is confirmed and backed up, a bad one stays where it is.
    static void loadAtStart(const Load& load);

    // Answers a close of the policy. A good policy is confirmed and backed up; true then. A bad one
    // is replaced by the backup, whose close is answered in its turn and says nothing; unless
    // somebody is writing a newer one, which is left alone and answered when it is closed.
    static bool reload(const Load& load, Cause cause, const ClosesWaiting& closesWaiting);

    // Puts the backup over the policy, which may be what the daemon crashed of, says so in the
    // status file, and keeps everybody else from these files for good.
    static void rollBackAfterCrash();
    // The same by plain system calls, if it has not been done: for a handler that crashed or hung
    // itself. Async-signal-safe; takes no lock, no memory, and logs nothing.
    static void rollBackPlainly();

    // Makes `text` the whole status. A file that cannot be written is left alone, silently.
    static void writeStatus(const std::string& path, const std::string& text);
    // Copies line by line, each with a line end. True if the copy was made; a missing source leaves
    // an empty destination.
    static bool copy(const std::string& source, const std::string& dest);
    // Copies the policy to the backup, where `loaded` is what was loaded. A writer may be at the
    // policy again by now, or the disk be full: a copy that is not what was loaded is replaced by
    // that or, where it does not fit, by the last good backup. From a bad backup no bad policy
    // could ever be rolled back. The policy is on the disk before the backup is emptied, and the
    // backup when this returns.
    static void backUp(const std::string& loaded);
};

}  // namespace android::vus
