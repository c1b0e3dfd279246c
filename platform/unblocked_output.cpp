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
#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace android::vus::platform {

namespace {

// Room for a burst of lines (a policy of 10,000 rules logs a line each) while the reader is busy.
constexpr int kPipeSize = 1024 * 1024;

// The far end of a stream. Used under the stream's own lock.
class Sink {
  public:
    explicit Sink(int fd);

    void write(std::string_view text);
    bool takesManyLines() const { return takesManyLines_; }

  private:
    enum class Kind { kPlain, kSocket, kOwnDescription, kSharedDescription };

    void reportLoss();
    void lose(std::string_view text);
    // Returns how much was written.
    size_t put(std::string_view text);
    size_t putAll(std::string_view text);
    size_t putOrPoll(std::string_view text);
    static size_t count(ssize_t written) { return written > 0 ? static_cast<size_t>(written) : 0; }

    const int fd_;
    Kind kind_;
    bool takesManyLines_;
    size_t lost_ = 0;       // lines that were dropped and not yet reported
    bool midLine_ = false;  // what was written last is the beginning of a line
};

// True of what waits for a reader.
bool canBlock(int fd) {
    struct stat entry;
    if (fstat(fd, &entry) != 0) return false;
    return S_ISFIFO(entry.st_mode) || S_ISSOCK(entry.st_mode) || isatty(fd) == 1;
}

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

// Whether it is all the same to the reader where one write ends and the next begins.
bool isStream(int fd) {
    struct stat entry;
    if (fstat(fd, &entry) != 0) return false;
    if (S_ISCHR(entry.st_mode)) return isatty(fd) == 1;
    if (!S_ISSOCK(entry.st_mode)) return true;
    int type = SOCK_DGRAM;
    socklen_t size = sizeof(type);
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type != SOCK_DGRAM;
}

Sink::Sink(int fd) : fd_(fd), takesManyLines_(isStream(fd)) {
    if (!canBlock(fd)) {
        kind_ = Kind::kPlain;
        return;
    }
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
        case Kind::kPlain:
            return putAll(text);
        case Kind::kSocket:
            return count(send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
        case Kind::kOwnDescription:
            return count(::write(fd_, text.data(), text.size()));
        case Kind::kSharedDescription:
            return putOrPoll(text);
    }
    return 0;
}

// What a full disk does not take is lost without a word, as of any program.
size_t Sink::putAll(std::string_view text) {
    for (size_t written = 0; written < text.size();) {
        const size_t step = count(::write(fd_, text.data() + written, text.size() - written));
        if (step == 0) break;
        written += step;
    }
    return text.size();
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

// Those of the standard streams. They are never closed, and known here until the process ends.
Sink* volatile standardSinks[STDERR_FILENO + 1];

// What a thread has gathered for standard error. So much is written to a pipe whole or not at all.
// Text and size are touched under the stream's lock.
struct Gathered {
    int depth = 0;  // how many GatheredOutput there are
    std::atomic<Gathered*>* seat = nullptr;
    size_t size = 0;
    char text[PIPE_BUF];
};
thread_local Gathered gathered;

// All that gather at this moment. A binder pool has 16 threads.
constexpr size_t kSeats = 64;
std::atomic<Gathered*> seats[kSeats];
std::atomic<bool> isStopped{false};

std::atomic<Gathered*>* takeSeat(Gathered* who) {
    for (std::atomic<Gathered*>& seat : seats) {
        Gathered* nobody = nullptr;
        if (seat.compare_exchange_strong(nobody, who)) return &seat;
    }
    return nullptr;
}

void writeOut(Gathered* from) {
    flockfile(stderr);
    if (from->size > 0) standardSinks[STDERR_FILENO]->write({from->text, from->size});
    from->size = 0;
    funlockfile(stderr);
}

// Returns false if it is to be written at once.
bool gather(std::string_view text) {
    if (gathered.seat == nullptr || isStopped) return false;
    if (text.size() > sizeof(gathered.text) - gathered.size) writeOut(&gathered);
    if (text.size() > sizeof(gathered.text)) return false;
    text.copy(gathered.text + gathered.size, text.size());
    gathered.size += text.size();
    return true;
}

// What is dropped is no error of the stream, nor of whoever writes to it.
ssize_t writeToSink(void* cookie, const char* data, size_t size) {
    const int saved = errno;
    Sink* const sink = static_cast<Sink*>(cookie);
    const bool gathers = sink == standardSinks[STDERR_FILENO] && sink->takesManyLines();
    if (!gathers || !gather({data, size})) sink->write({data, size});
    errno = saved;
    return static_cast<ssize_t>(size);
}

int deleteSink(void* cookie) {
    delete static_cast<Sink*>(cookie);
    return 0;
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
    if (fcntl(fd, F_GETFD) < 0) return;
    fflush(*standard);
    auto sink = std::make_unique<Sink>(fd);
    FILE* const stream = openOn(sink.get());
    if (stream == nullptr) return;
    *standard = stream;
    standardSinks[fd] = sink.release();
}

}  // namespace

FILE* openUnblocked(int fd) {
    auto sink = std::make_unique<Sink>(fd);
    FILE* const stream = openOn(sink.get());
    if (stream != nullptr) sink.release();
    return stream;
}

void unblockStandardStreams() {
    if (canBlock(STDOUT_FILENO)) unblock(&stdout, STDOUT_FILENO);
    unblock(&stderr, STDERR_FILENO);
    setvbuf(stderr, nullptr, _IONBF, 0);
}

GatheredOutput::GatheredOutput() {
    if (gathered.depth++ == 0) gathered.seat = takeSeat(&gathered);
}

GatheredOutput::~GatheredOutput() {
    if (--gathered.depth > 0 || gathered.seat == nullptr) return;
    const int saved = errno;
    flockfile(stderr);
    writeOut(&gathered);
    *std::exchange(gathered.seat, nullptr) = nullptr;
    funlockfile(stderr);
    errno = saved;
}

void writeGatheredOutput() {
    if (gathered.size == 0) return;
    const int saved = errno;
    writeOut(&gathered);
    errno = saved;
}

void stopGatheringOutput() {
    isStopped = true;
    for (const std::atomic<Gathered*>& seat : seats) {
        // Nobody gives his seat up without the stream's lock.
        flockfile(stderr);
        if (Gathered* const from = seat) writeOut(from);
        funlockfile(stderr);
    }
}

}  // namespace android::vus::platform
