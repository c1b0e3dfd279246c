// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/policy_tool.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <chrono>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "tools/vusctl/client.h"
#include "tools/vusctl/render.h"

namespace android::vus::ctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kSuccess[] = "SUCCESS";
// The daemon answers within milliseconds, unless it is in the middle of an undock.
constexpr std::chrono::seconds kAnswerLimit(10);
// An answer other than success is final when nothing follows it for this long: a policy without
// rules is answered with the text of an earlier one first.
constexpr std::chrono::milliseconds kQuietTime(300);

int file_error(std::ostream& err, const char* what, const std::string& path) {
    err << "vusctl: cannot " << what << " " << path << ": " << strerror(errno) << "\n";
    return kFailed;
}

// The loader's answer to a file, by the daemon's own rules.
std::string loader_answer(const std::string& path) {
    const TemporaryFile answer;
    // The daemon's log lines would only hide the answer.
    base::SetLogger(
            [](base::LogId, base::LogSeverity, const char*, const char*, unsigned, const char*) {});
    const char* const status_file = Util::statusFilePath;
    Util::statusFilePath = answer.path;
    Util::createMapFromConfig(path);
    Util::statusFilePath = status_file;
    if (Util::xml_parse_status) return kSuccess;
    std::string text;
    base::ReadFileToString(answer.path, &text);
    return text;
}

// Hears when the status file is closed after writing.
class StatusWatch {
  public:
    StatusWatch() : inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        inotify_add_watch(inotify_.get(), kConfigDir, IN_CLOSE_WRITE);
    }

    // Waits for the daemon's answer; an empty text if there is none.
    std::string answer() {
        std::string text;
        auto deadline = Clock::now() + kAnswerLimit;
        while (text != kSuccess && written_before(deadline)) {
            base::ReadFileToString(kStatusFile, &text);
            deadline = Clock::now() + kQuietTime;
        }
        return text;
    }

  private:
    bool written_before(Clock::time_point deadline) {
        while (true) {
            if (read_events()) return true;
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) return false;
            pollfd source = {inotify_.get(), POLLIN, 0};
            poll(&source, 1, static_cast<int>(left.count()));
        }
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

    const base::unique_fd inotify_;
};

bool write_in_place(const std::string& content) {
    base::unique_fd fd(open(kPolicyFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    return fd.ok() && base::WriteStringToFd(content, fd.get());
}

}  // namespace

int print_file(const std::string& path, std::ostream& out, std::ostream& err) {
    std::string content;
    if (!base::ReadFileToString(path, &content)) return file_error(err, "read", path);
    out << content;
    return kDone;
}

int check_policy(const std::string& path, std::ostream& out, std::ostream& err) {
    if (access(path.c_str(), R_OK) != 0) return file_error(err, "read", path);
    const std::string answer = loader_answer(path);
    out << printable(answer) << "\n";
    return answer == kSuccess ? kDone : kRefused;
}

int set_policy(const std::string& path, std::ostream& out, std::ostream& err) {
    std::string content;
    if (!base::ReadFileToString(path, &content)) return file_error(err, "read", path);
    const std::string verdict = loader_answer(path);
    if (verdict != kSuccess) {
        err << "vusctl: not set, the policy would be rejected: " << printable(verdict) << "\n";
        return kRefused;
    }
    StatusWatch watch;
    if (!write_in_place(content)) return file_error(err, "write", kPolicyFile);
    const std::string answer = watch.answer();
    if (answer.empty()) {
        err << "vusctl: written, but the daemon has not answered\n";
        return kFailed;
    }
    out << printable(answer) << "\n";
    return answer == kSuccess ? kDone : kRefused;
}

}  // namespace android::vus::ctl
