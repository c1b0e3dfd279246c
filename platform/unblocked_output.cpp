// SPDX-License-Identifier: Apache-2.0

#include "platform/unblocked_output.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

namespace android::vus::platform {

namespace {

// Room for a burst of lines (a policy of 10,000 rules logs a line each) while the reader is busy.
constexpr int kPipeSize = 1024 * 1024;

// The far end of a stream. Used under the stream's own lock.
class Sink {
  public:
    explicit Sink(int fd);

    void write(std::string_view text);

  private:
    enum class Kind { kSocket, kOwnDescription, kSharedDescription };

    void reportLoss();
    void lose(std::string_view text);
    // Returns how much was written.
    size_t put(std::string_view text);
    size_t putOrPoll(std::string_view text);
    static size_t count(ssize_t written) { return written > 0 ? static_cast<size_t>(written) : 0; }

    const int fd_;
    Kind kind_;
    size_t lost_ = 0;       // lines that were dropped and not yet reported
    bool midLine_ = false;  // what was written last is the beginning of a line
};

// Opens what `fd` is open on once more, as a description of its own that does not wait.
bool reopen(int fd) {
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const int own = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own < 0) return false;
    // As a program expects of its standard streams, not closed by exec.
    const bool done = dup2(own, fd) >= 0;
    close(own);
    return done;
}

Sink::Sink(int fd) : fd_(fd) {
    struct stat entry;
    if (fstat(fd, &entry) == 0 && S_ISSOCK(entry.st_mode)) {
        kind_ = Kind::kSocket;
        return;
    }
    kind_ = reopen(fd) ? Kind::kOwnDescription : Kind::kSharedDescription;
    fcntl(fd, F_SETPIPE_SZ, kPipeSize);
}

void Sink::write(std::string_view text) {
    if (text.empty()) return;
    if (lost_ > 0) reportLoss();
    if (lost_ > 0) return lose(text);
    const size_t written = put(text);
    if (written > 0) midLine_ = text[written - 1] != '\n';
    if (written < text.size()) lose(text.substr(written));
}

void Sink::lose(std::string_view text) {
    const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    lost_ += std::max<size_t>(lines, 1);
}

// All of it or, where the kernel splits it, so much that it is worth saying the rest again.
void Sink::reportLoss() {
    const std::string line = (midLine_ ? "\n" : "") + std::to_string(lost_) +
                             " lines of the log were dropped: nobody read them\n";
    const size_t written = put(line);
    if (written > 0) midLine_ = line[written - 1] != '\n';
    if (written == line.size()) lost_ = 0;
}

size_t Sink::put(std::string_view text) {
    switch (kind_) {
        case Kind::kSocket:
            return count(send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
        case Kind::kOwnDescription:
            return count(::write(fd_, text.data(), text.size()));
        case Kind::kSharedDescription:
            return putOrPoll(text);
    }
    return 0;
}

// A pipe that can be written to takes PIPE_BUF bytes at once; a terminal takes what it can.
size_t Sink::putOrPoll(std::string_view text) {
    size_t written = 0;
    while (written < text.size()) {
        pollfd room = {fd_, POLLOUT, 0};
        if (poll(&room, 1, 0) <= 0 || (room.revents & POLLOUT) == 0) break;
        const size_t piece = std::min<size_t>(text.size() - written, PIPE_BUF);
        const size_t step = count(::write(fd_, text.data() + written, piece));
        if (step == 0) break;
        written += step;
    }
    return written;
}

// What is dropped is no error of the stream, nor of whoever writes to it.
ssize_t writeToSink(void* cookie, const char* data, size_t size) {
    const int saved = errno;
    static_cast<Sink*>(cookie)->write({data, size});
    errno = saved;
    return static_cast<ssize_t>(size);
}

int deleteSink(void* cookie) {
    delete static_cast<Sink*>(cookie);
    return 0;
}

// True of what waits for a reader.
bool canBlock(int fd) {
    struct stat entry;
    if (fstat(fd, &entry) != 0) return false;
    return S_ISFIFO(entry.st_mode) || S_ISSOCK(entry.st_mode) || isatty(fd) == 1;
}

// A stream that writes to the sink, and deletes it when it is closed. Null if it cannot be made.
FILE* openOn(Sink* sink) {
    cookie_io_functions_t functions = {};
    functions.write = writeToSink;
    functions.close = deleteSink;
    FILE* const stream = fopencookie(sink, "w", functions);
    if (stream != nullptr) setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
    return stream;
}

void unblock(FILE** standard, int fd) {
    // The standard streams are never closed; their sinks are known here until the process ends.
    [[maybe_unused]] static Sink* volatile sinks[STDERR_FILENO + 1];
    if (!canBlock(fd)) return;
    fflush(*standard);
    auto sink = std::make_unique<Sink>(fd);
    FILE* const stream = openOn(sink.get());
    if (stream == nullptr) return;
    *standard = stream;
    sinks[fd] = sink.release();
}

}  // namespace

FILE* openUnblocked(int fd) {
    auto sink = std::make_unique<Sink>(fd);
    FILE* const stream = openOn(sink.get());
    if (stream != nullptr) sink.release();
    return stream;
}

void unblockStandardStreams() {
    unblock(&stdout, STDOUT_FILENO);
    unblock(&stderr, STDERR_FILENO);
    setvbuf(stderr, nullptr, _IONBF, 0);
}

}  // namespace android::vus::platform
