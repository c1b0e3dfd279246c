// SPDX-License-Identifier: Apache-2.0

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "tools/common/text.h"
#include "tools/vusctl/inspect_commands.h"
#include "tools/workbench/list.h"
#include "tools/workbench/redact.h"
#include "tools/workbench/tree.h"

namespace android::vus::ctl {

namespace {

using workbench::KeyedHash;
using workbench::Redaction;

constexpr char kRecordingName[] = "/devices.json";
// A file that is longer was not meant to be a key, or never ends.
constexpr size_t kLongestKey = 4096;

// The key of a file, whole, and nothing that could be guessed: half a key would give hashes that
// nobody can join, and a short one hashes that somebody can look up.
std::optional<KeyedHash> read_key(Context& context, const std::string& path) {
    const base::unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string key(kLongestKey + 1, '\0');
    size_t length = 0;
    ssize_t read_now = fd.ok() ? 1 : -1;
    while (read_now > 0 && length < key.size()) {
        read_now = TEMP_FAILURE_RETRY(read(fd.get(), &key[length], key.size() - length));
        if (read_now > 0) length += static_cast<size_t>(read_now);
    }
    if (read_now < 0) {
        context.failed("cannot read " + printable(path) + ": " + strerror(errno));
        return std::nullopt;
    }
    if (length < KeyedHash::kShortestKey || length > kLongestKey) {
        context.failed("no key: " + printable(path) + ": it takes " +
                       std::to_string(KeyedHash::kShortestKey) + " to " +
                       std::to_string(kLongestKey) + " bytes");
        return std::nullopt;
    }
    key.resize(length);
    return KeyedHash(std::move(key));
}

std::optional<KeyedHash> hash_of(Context& context, const Call& call) {
    if (const auto path = call.value("--key")) return read_key(context, *path);
    auto hash = KeyedHash::random();
    if (!hash) context.failed("not recorded: this system has no random bytes");
    return hash;
}

int write_recording(Context& context, const std::optional<Redaction>& redaction,
                    std::ostream& out) {
    const std::string error =
            workbench::readTree(workbench::kLiveTree, [&](workbench::Device device) {
                if (redaction) device = redaction->of(std::move(device));
                workbench::writeDevice(out, device);
            });
    return error.empty() ? kDone : context.failed(error);
}

// Whether the call can be obeyed: what is to be kept secret must not be written by mistake.
int redaction_of(Context& context, const Call& call, std::optional<Redaction>* redaction) {
    if (!call.has("--redact")) {
        return call.has("--key") ? context.usage_error("--key is for --redact") : kDone;
    }
    auto hash = hash_of(context, call);
    if (!hash) return kFailed;
    redaction->emplace(*std::move(hash));
    return kDone;
}

}  // namespace

int record_devices(Context& context, const Call& call) {
    std::optional<Redaction> redaction;
    if (const int status = redaction_of(context, call, &redaction); status != kDone) return status;
    if (call.plain.empty()) return write_recording(context, redaction, context.out);
    const std::string& dir = call.plain[0];
    const std::string path = dir + kRecordingName;
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
        return context.failed("cannot make " + printable(dir) + ": " + strerror(errno));
    }
    std::ostringstream text;
    if (const int status = write_recording(context, redaction, text); status != kDone) {
        return status;
    }
    // Beside, and then in its place: a full disk leaves the recording that was there.
    const std::string beside = path + ".new";
    if (!base::WriteStringToFile(text.str(), beside) || rename(beside.c_str(), path.c_str()) != 0) {
        const int error = errno;
        unlink(beside.c_str());
        return context.failed("cannot write " + printable(path) + ": " + strerror(error));
    }
    context.out << printable(path) << "\n";
    return kDone;
}

}  // namespace android::vus::ctl
