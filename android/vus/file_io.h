// SPDX-License-Identifier: Apache-2.0

// The primitives on the files of the policy directory: whole files in, whole files out.
//
// Whoever may write that directory may put anything in a file's place: a pipe, a link to a device,
// a file of gigabytes. So nothing here waits for another process, reads without a bound, or writes
// through a symbolic link; what is no regular file is not opened where that can be known. Files are
// rewritten in place: owner and mode stay, and who watches the name hears of the close.
//
// No state, no log, no lock; any thread.

#pragma once

#include <fcntl.h>
#include <stddef.h>

#include <optional>
#include <string>
#include <string_view>

#include <android-base/unique_fd.h>

namespace android::vus {

// The longest policy that is read. A real one of 10,000 rules has half a megabyte; what the XML
// library makes of the worst text of this size still fits into the memory of a small device.
inline constexpr size_t kMaxPolicyBytes = size_t{4} << 20;
// The longest of any other text that is copied.
inline constexpr size_t kMaxCopyBytes = size_t{16} << 20;

// The policy file's bytes, or what the XML library's own file loader says of it.
struct PolicyText {
    enum class Fault {
        kNone,
        kNotFound,    // it cannot be opened: XML_ERROR_FILE_NOT_FOUND, with the name
        kUnreadable,  // a directory, a pipe, longer than allowed: XML_ERROR_FILE_READ_ERROR
    };
    bool ok() const { return fault == Fault::kNone; }

    Fault fault = Fault::kNone;
    std::string bytes;  // an empty text is left to the parser: XML_ERROR_EMPTY_DOCUMENT
};

// Reads the policy at `path`, through links to regular files. A file whose size is said to be 0 is
// empty, as it is for the library: files of /proc have any length. So is a character device.
PolicyText read_policy_text(const std::string& path);
// The same of an open file, from its beginning.
PolicyText read_policy_text(const base::unique_fd& file);

// The text of a regular file up to the first read error, or nothing if it cannot be opened. A
// directory is a text without a byte.
std::optional<std::string> read_for_copy(const std::string& path);

// What a copy of the text looks like: every line has a line end, the last one too.
std::string as_copied(std::string text);

// Opens the regular file that stands at `path` itself, or makes it if `flags` say so. Nothing is
// emptied yet. Invalid for anything else, a link among it; errno says why.
base::unique_fd open_in_place(const std::string& path, int flags = O_WRONLY | O_CREAT);
// The same, but a character device will do.
base::unique_fd open_for_copy(const std::string& path);

// Makes `text` the whole content; false if it does not all fit.
bool rewrite(const base::unique_fd& file, std::string_view text);
// Returns when the content is on the disk, or cannot be brought there. Nothing for an invalid file.
void make_durable(const base::unique_fd& file);
// The same as rewrite() of the regular file at `path`, or of a new one.
bool rewrite_file(const std::string& path, std::string_view text);

// Makes a regular file at `path` that holds `text`, on the disk; or none, if something is there or
// anything fails. It is written as `aside`, a name in the same directory that is nobody else's:
// what stands there was left by a kill, and is removed. A power cut leaves the whole file, or none.
bool create_whole(const std::string& path, const std::string& aside, std::string_view text);

// True if both names lead to one file.
bool is_same_file(const std::string& one, const std::string& other);

}  // namespace android::vus
