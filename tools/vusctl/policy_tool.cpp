// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/policy_tool.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <variant>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "android/vus/file_io.h"
#include "android/vus/paths.h"
#include "android/vus/policy.h"
#include "tools/common/text.h"
#include "tools/vusctl/context.h"

namespace android::vus::ctl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char kSuccess[] = "SUCCESS";
// An answer other than success is final when nothing follows it for this long: a policy without
// rules is answered with the text of an earlier one first.
constexpr milliseconds kQuietTime(300);

int file_error(std::ostream& err, const char* what, const std::string& path) {
    err << "vusctl: cannot " << what << " " << path << ": " << strerror(errno) << "\n";
    return kFailed;
}

bool read_all(const std::string& path, std::string* content) {
    if (path == "-") return base::ReadFdToString(STDIN_FILENO, content);
    return base::ReadFileToString(path, content, /*follow_symlinks=*/true);
}

// What the daemon's status file will say to a policy, by the daemon's own rules.
std::string answer_to(const std::string& content) {
    if (content.size() > kMaxPolicyBytes) {
        return "longer than the " + std::to_string(kMaxPolicyBytes) + " bytes that are read";
    }
    const auto parsed = parsePolicy(content);
    const auto* failure = std::get_if<PolicyFailure>(&parsed);
    return failure == nullptr ? kSuccess : failure->status;
}

// Hears when the status file is closed after writing.
class StatusWatch {
  public:
    explicit StatusWatch(milliseconds limit)
          : limit_(limit), inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        inotify_add_watch(inotify_.get(), kConfigDir, IN_CLOSE_WRITE);
    }

    // Waits for the daemon's answer; an empty text if there is none.
    std::string answer() {
        std::string text;
        auto deadline = Clock::now() + limit_;
        while (text != kSuccess && written_before(deadline)) {
            base::ReadFileToString(kStatusFile, &text);
            deadline = Clock::now() + kQuietTime;
        }
        return text;
    }

  private:
    bool written_before(Clock::time_point deadline) {
        while (!read_events()) {
            const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) return false;
            pollfd source = {inotify_.get(), POLLIN, 0};
            poll(&source, 1, static_cast<int>(left.count()));
        }
        return true;
    }

    // Whether the status file is among what was written.
    bool read_events() {
        alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
        const ssize_t length = read(inotify_.get(), buffer, sizeof(buffer));
        bool found = false;
        for (ssize_t at = 0; at < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            found |= event->len > 0 && std::string(kConfigDir) + "/" + event->name == kStatusFile;
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return found;
    }

    const milliseconds limit_;
    const base::unique_fd inotify_;
};

bool write_in_place(const std::string& content) {
    const base::unique_fd fd(open(kPolicyFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    return fd.ok() && base::WriteStringToFd(content, fd.get());
}

}  // namespace

int print_policy(std::ostream& out, std::ostream& err) {
    std::string content;
    if (!read_all(kPolicyFile, &content)) return file_error(err, "read", kPolicyFile);
    out << content;
    return kDone;
}

int print_status(std::ostream& out, std::ostream& err) {
    std::string text;
    if (!read_all(kStatusFile, &text)) return file_error(err, "read", kStatusFile);
    out << printable(text) << "\n";
    return kDone;
}

int read_good_policy(const std::string& path, std::string* content, std::ostream& err) {
    if (!read_all(path, content)) return file_error(err, "read", path);
    const std::string verdict = answer_to(*content);
    if (verdict == kSuccess) return kDone;
    err << "vusctl: not set, the policy would be rejected: " << printable(verdict) << "\n";
    return kRefused;
}

int put_in_force(const std::string& content, std::ostream& out, std::ostream& err,
                 milliseconds answer_limit) {
    StatusWatch watch(answer_limit);
    if (!write_in_place(content)) return file_error(err, "write", kPolicyFile);
    const std::string answer = watch.answer();
    if (answer.empty()) {
        err << "vusctl: written, but the daemon has not answered\n";
        return kFailed;
    }
    out << printable(answer) << "\n";
    return answer == kSuccess ? kDone : kRefused;
}

int set_policy(const std::string& path, std::ostream& out, std::ostream& err,
               milliseconds answer_limit) {
    std::string content;
    const int status = read_good_policy(path, &content, err);
    return status == kDone ? put_in_force(content, out, err, answer_limit) : status;
}

bool sync_policy_directory() {
    const base::unique_fd directory(open(kConfigDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.ok() && fsync(directory.get()) == 0;
}

}  // namespace android::vus::ctl
