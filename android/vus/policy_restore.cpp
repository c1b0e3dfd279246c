// SPDX-License-Identifier: Apache-2.0

#include "android/vus/policy_restore.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <android-base/unique_fd.h>

#include "android/vus/file_io.h"

namespace android::vus {

namespace {

// Who else has the file open.
enum class Others { kNobody, kReaders, kWriter, kUnknown };

// Where nobody can be asked, a writer who empties a file is given this long to fill it.
constexpr std::chrono::milliseconds kPatience(20);

// The descriptor that holds the lease. One restore at a time, as the header says.
std::atomic<int> leased{-1};
static_assert(std::atomic<int>::is_always_lock_free, "it is used by a signal handler");

// An opening by somebody else waits until the descriptor is closed.
bool takeLease(const base::unique_fd& file, int type) {
    // The kernel says by a signal that somebody waits; the usual one would end the process.
    if (fcntl(file.get(), F_SETSIG, SIGURG) != 0) return false;
    if (fcntl(file.get(), F_SETLEASE, type) != 0) return false;
    leased = file.get();
    return true;
}

// What is found holds for as long as the descriptor stays open, unless it is kUnknown.
Others lookForOthers(const base::unique_fd& reader) {
    if (takeLease(reader, F_WRLCK)) return Others::kNobody;
    if (errno != EAGAIN) return Others::kUnknown;
    if (takeLease(reader, F_RDLCK)) return Others::kReaders;
    return errno == EAGAIN ? Others::kWriter : Others::kUnknown;
}

bool holds(const base::unique_fd& file, const std::string& rejected) {
    return read_policy_text(file).bytes == rejected;
}

class Restore {
  public:
    Restore(const std::string& path, const std::string& rejected, const std::string& text,
            const std::function<size_t()>& closesWaiting)
          : path_(path), rejected_(rejected), text_(text), closes_waiting_(closesWaiting) {}

    RestoreResult run() {
        Others others = Others::kNobody;
        {
            // For reading: a close after an opening for writing is heard, even if nothing was
            // written, and would be answered by the same question again.
            const base::unique_fd reader = open_in_place(path_, O_RDONLY);
            if (reader.get() < 0) return errno == ENOENT ? make() : impossible();
            others = lookForOthers(reader);
            if (others == Others::kWriter) return beingWritten();
            if (!holds(reader, rejected_)) return changed(others);
            endLease();
        }
        if (others == Others::kUnknown) std::this_thread::sleep_for(kPatience);
        return write(others);
    }

  private:
    RestoreResult make() {
        const base::unique_fd file = open_in_place(path_, O_WRONLY | O_CREAT | O_EXCL);
        if (file.get() < 0) return errno == EEXIST ? beingWritten() : impossible();
        // Somebody found the new file at once. Our own close asks again.
        if (!takeLease(file, F_WRLCK) && errno == EAGAIN) return beingWritten();
        return fill(file);
    }

    RestoreResult write(Others others) {
        const base::unique_fd file = open_in_place(path_, O_RDWR);
        if (file.get() < 0) return impossible();
        const bool alone = takeLease(file, F_WRLCK);
        // Somebody came in between. Our own close asks again.
        if (!alone && others == Others::kNobody) return beingWritten();
        if (!holds(file, rejected_)) return beingWritten();
        return fill(file);
    }

    RestoreResult fill(const base::unique_fd& file) {
        const size_t before = closes_waiting_();
        rewrite(file, text_);  // a disk that fills up keeps what it took; that will be rejected
        make_durable(file);
        return {Restored::kDone, before};
    }

    // With no writer left, every close is waiting already.
    RestoreResult changed(Others others) const {
        if (others != Others::kUnknown && closes_waiting_() == 0) return {Restored::kChanged};
        return beingWritten();
    }

    static RestoreResult beingWritten() { return {Restored::kBeingWritten}; }
    static RestoreResult impossible() { return {Restored::kImpossible}; }

    const std::string& path_;
    const std::string& rejected_;
    const std::string& text_;
    const std::function<size_t()>& closes_waiting_;
};

}  // namespace

RestoreResult restoreOver(const std::string& path, const std::string& rejected,
                          const std::string& text, const std::function<size_t()>& closesWaiting) {
    const RestoreResult result = Restore(path, rejected, text, closesWaiting).run();
    leased = -1;
    return result;
}

void endLease() {
    const int file = leased.exchange(-1);
    if (file >= 0) fcntl(file, F_SETLEASE, F_UNLCK);
}

}  // namespace android::vus
