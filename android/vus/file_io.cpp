// SPDX-License-Identifier: Apache-2.0

#include "android/vus/file_io.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <android-base/file.h>

namespace android::vus {

namespace {

using Fault = PolicyText::Fault;

constexpr size_t kPiece = size_t{64} << 10;

// No wait for the other end of a pipe or the holder of a lease, no terminal of our own.
constexpr int kWithoutWaiting = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

PolicyText failed(Fault fault) {
    return {fault, ""};
}

// Appends what the file holds, up to `limit` bytes in all; false on a read error.
bool readUpTo(size_t limit, int file, std::string* text) {
    while (text->size() < limit) {
        const size_t had = text->size();
        text->resize(std::min(limit, had + kPiece));
        const ssize_t got = TEMP_FAILURE_RETRY(read(file, &(*text)[had], text->size() - had));
        text->resize(had + static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (got <= 0) return got == 0;
    }
    return true;
}

PolicyText readRegular(int file, off_t size) {
    if (size == 0) return {};
    if (static_cast<size_t>(size) > kMaxPolicyBytes) return failed(Fault::kUnreadable);
    PolicyText text;
    text.bytes.reserve(static_cast<size_t>(size) + 1);
    // One byte more than is allowed: the file may grow while it is read.
    const bool read_all = readUpTo(kMaxPolicyBytes + 1, file, &text.bytes);
    if (!read_all || text.bytes.size() > kMaxPolicyBytes) return failed(Fault::kUnreadable);
    return text;
}

// The answer for what must not be opened or read, because that may wait or have effects.
PolicyText readOther(mode_t mode) {
    if (S_ISCHR(mode)) return {};
    return failed(S_ISSOCK(mode) ? Fault::kNotFound : Fault::kUnreadable);
}

bool isRegular(const struct stat& entry) {
    return S_ISREG(entry.st_mode);
}

// The file is looked at before it is opened: to open a device may already do something.
base::unique_fd openForReading(const std::string& path, struct stat* entry) {
    if (stat(path.c_str(), entry) != 0) return {};
    if (!isRegular(*entry) && !S_ISDIR(entry->st_mode)) return {};
    base::unique_fd file(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | kWithoutWaiting)));
    // It may be another one by now.
    if (file.get() >= 0 && fstat(file.get(), entry) != 0) return {};
    return file;
}

base::unique_fd openItself(const std::string& path, int flags, bool (*accepts)(mode_t)) {
    constexpr mode_t kAnyoneUnderUmask = 0666;
    base::unique_fd file(TEMP_FAILURE_RETRY(
            open(path.c_str(), flags | O_NOFOLLOW | kWithoutWaiting, kAnyoneUnderUmask)));
    struct stat entry = {};
    if (file.get() < 0 || fstat(file.get(), &entry) != 0) return {};
    if (accepts(entry.st_mode)) return file;
    file.reset();
    errno = S_ISDIR(entry.st_mode) ? EISDIR : EINVAL;
    return {};
}

}  // namespace

PolicyText read_policy_text(const std::string& path) {
    struct stat entry = {};
    const base::unique_fd file = openForReading(path, &entry);
    if (entry.st_mode != 0 && !isRegular(entry)) return readOther(entry.st_mode);
    if (file.get() < 0) return failed(Fault::kNotFound);
    return readRegular(file.get(), entry.st_size);
}

PolicyText read_policy_text(const base::unique_fd& file) {
    struct stat entry = {};
    if (fstat(file.get(), &entry) != 0) return failed(Fault::kNotFound);
    if (!isRegular(entry)) return readOther(entry.st_mode);
    if (lseek(file.get(), 0, SEEK_SET) != 0) return failed(Fault::kUnreadable);
    return readRegular(file.get(), entry.st_size);
}

std::optional<std::string> read_for_copy(const std::string& path) {
    struct stat entry = {};
    const base::unique_fd file = openForReading(path, &entry);
    if (file.get() < 0) return std::nullopt;
    if (S_ISDIR(entry.st_mode)) return "";
    if (!isRegular(entry) || static_cast<size_t>(entry.st_size) > kMaxCopyBytes) {
        return std::nullopt;
    }
    std::string text;
    readUpTo(kMaxCopyBytes, file.get(), &text);
    return text;
}

std::string as_copied(std::string text) {
    if (!text.empty() && text.back() != '\n') text += '\n';
    return text;
}

base::unique_fd open_in_place(const std::string& path, int flags) {
    return openItself(path, flags, [](mode_t mode) { return S_ISREG(mode); });
}

base::unique_fd open_for_copy(const std::string& path) {
    return openItself(path, O_WRONLY | O_CREAT,
                      [](mode_t mode) { return S_ISREG(mode) || S_ISCHR(mode); });
}

bool rewrite(const base::unique_fd& file, std::string_view text) {
    // A device has no length to change, and takes what it takes.
    if (ftruncate(file.get(), 0) != 0 && errno != EINVAL) return false;
    lseek(file.get(), 0, SEEK_SET);
    while (!text.empty()) {
        const ssize_t written = TEMP_FAILURE_RETRY(write(file.get(), text.data(), text.size()));
        if (written <= 0) return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

void make_durable(const base::unique_fd& file) {
    if (file.get() >= 0) (void)TEMP_FAILURE_RETRY(fdatasync(file.get()));
}

bool rewrite_file(const std::string& path, std::string_view text) {
    const base::unique_fd file = open_in_place(path);
    return file.get() >= 0 && rewrite(file, text);
}

bool create_whole(const std::string& path, const std::string& aside, std::string_view text) {
    unlink(aside.c_str());
    bool created = false;
    {
        const base::unique_fd file = open_in_place(aside, O_WRONLY | O_CREAT | O_EXCL);
        const bool whole = file.get() >= 0 && rewrite(file, text) && fsync(file.get()) == 0;
        // Never over what has come meanwhile. Unlike a renaming that does not replace, every file
        // system that a policy is on knows it.
        created = whole && link(aside.c_str(), path.c_str()) == 0;
    }
    unlink(aside.c_str());
    return created;
}

bool is_same_file(const std::string& one, const std::string& other) {
    struct stat first = {};
    struct stat second = {};
    if (stat(one.c_str(), &first) != 0 || stat(other.c_str(), &second) != 0) return false;
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace android::vus
