// SPDX-License-Identifier: Apache-2.0
//
// Streams that drop what nobody reads, and say how much that was. A write that waited would keep
// these tests from ending.

#include "platform/unblocked_output.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>

namespace android::vus::platform {
namespace {

using base::unique_fd;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

struct Closer {
    void operator()(FILE* stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, Closer>;

// A writing end and the reading end that belongs to it.
struct Ends {
    unique_fd in;
    unique_fd out;
};

Ends MakePipe() {
    int fds[2];
    EXPECT_EQ(pipe2(fds, O_CLOEXEC), 0);
    return {unique_fd(fds[1]), unique_fd(fds[0])};
}

Ends MakeSocket() {
    int fds[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
    return {unique_fd(fds[1]), unique_fd(fds[0])};
}

// The program's own root has no terminals: they are a file system of their own.
int OpenTerminalController() {
    static constexpr char kTerminals[] = "/run/terminals";
    if (mkdir(kTerminals, 0755) == 0) {
        EXPECT_EQ(mount("devpts", kTerminals, "devpts", 0, "newinstance,ptmxmode=0666"), 0);
    }
    return open("/run/terminals/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
}

// `in` is the terminal, `out` the one who looks at it.
Ends MakeTerminal() {
    unique_fd controller(OpenTerminalController());
    const int unlock = 0;
    EXPECT_EQ(ioctl(controller.get(), TIOCSPTLCK, &unlock), 0);
    unique_fd terminal(ioctl(controller.get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios raw = {};
    cfmakeraw(&raw);
    raw.c_cflag |= CS8 | CREAD;
    EXPECT_EQ(tcsetattr(terminal.get(), TCSANOW, &raw), 0);
    return {std::move(terminal), std::move(controller)};
}

// A terminal hands on what it has been given in its own time: all of it is here when nothing more
// comes for a while.
constexpr int kQuietMs = 200;

std::string ReadAll(int fd) {
    std::string text;
    char buffer[4096];
    pollfd readable = {fd, POLLIN, 0};
    while (poll(&readable, 1, kQuietMs) > 0 && (readable.revents & POLLIN) != 0) {
        const ssize_t size = read(fd, buffer, sizeof(buffer));
        if (size <= 0) break;
        text.append(buffer, static_cast<size_t>(size));
    }
    return text;
}

// Reads up to the end of that text.
std::string ReadUntil(int fd, const std::string& end) {
    std::string text;
    char next = 0;
    pollfd readable = {fd, POLLIN, 0};
    while (text.size() < end.size() ||
           text.compare(text.size() - end.size(), end.size(), end) != 0) {
        if (poll(&readable, 1, 10000) <= 0 || read(fd, &next, 1) != 1) break;
        text += next;
    }
    return text;
}

// Far more than fits anywhere, in lines that say which they are.
constexpr int kLines = 100000;
constexpr int kLineLength = 64;

void Flood(FILE* stream) {
    for (int i = 0; i < kLines; ++i) fprintf(stream, "line %*d\n", kLineLength - 6, i);
}

// What became of a flood.
struct Account {
    int arrived = 0;
    int lost = 0;  // that the stream says it has dropped

    // Whole lines arrive in their order. A line that is cut counts as lost. A terminal makes room
    // in its own time, so that lines may get through in between.
    explicit Account(const std::string& text) {
        std::istringstream lines(text);
        std::string line;
        int last = -1;
        while (std::getline(lines, line)) {
            int number = 0;
            if (line.size() == kLineLength - 1u && sscanf(line.c_str(), "line %d", &number) == 1) {
                EXPECT_GT(number, last);
                last = number;
                ++arrived;
            } else if (line.find(" lines of the log were dropped: nobody read them") !=
                       std::string::npos) {
                lost += std::stoi(line);
            }
        }
    }
};

class UnblockedOutputTest : public ::testing::TestWithParam<Ends (*)()> {
  protected:
    Ends ends_ = GetParam()();
    Stream stream_{openUnblocked(ends_.in.get())};
};

TEST_P(UnblockedOutputTest, WhatIsReadArrivesAsItWasWritten) {
    for (int i = 0; i < 1000; ++i) {
        fprintf(stream_.get(), "line %d\n", i);
        ASSERT_EQ(ReadUntil(ends_.out.get(), "\n"), "line " + std::to_string(i) + "\n");
    }
}

TEST_P(UnblockedOutputTest, WhatNobodyReadsIsDroppedAndCounted) {
    Flood(stream_.get());
    EXPECT_EQ(ferror(stream_.get()), 0);
    std::string text = ReadAll(ends_.out.get());
    fprintf(stream_.get(), "after it\n");
    text += ReadUntil(ends_.out.get(), "after it\n");
    const Account account(text);
    EXPECT_GT(account.arrived, 0);
    EXPECT_GT(account.lost, 0);
    EXPECT_EQ(account.arrived + account.lost, kLines);
    EXPECT_THAT(text, EndsWith("nobody read them\nafter it\n"));

    fprintf(stream_.get(), "and on\n");
    EXPECT_EQ(ReadUntil(ends_.out.get(), "\n"), "and on\n");
}

TEST_P(UnblockedOutputTest, AnUnbufferedLineIsOneWrite) {
    setvbuf(stream_.get(), nullptr, _IONBF, 0);
    Flood(stream_.get());
    ReadAll(ends_.out.get());
    fprintf(stream_.get(), "%s %d\n", "after", 7);
    EXPECT_THAT(ReadUntil(ends_.out.get(), "after 7\n"), EndsWith("nobody read them\nafter 7\n"));
}

TEST_P(UnblockedOutputTest, TheCallersErrorNumberStays) {
    errno = ENOTDIR;
    Flood(stream_.get());
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_P(UnblockedOutputTest, AReaderThatHasGoneIsNoError) {
    signal(SIGPIPE, SIG_IGN);
    ends_.out.reset();
    Flood(stream_.get());
    EXPECT_EQ(ferror(stream_.get()), 0);
}

std::string NameOf(const ::testing::TestParamInfo<Ends (*)()>& tested) {
    return std::vector<std::string>{"Pipe", "Socket", "Terminal"}[tested.index];
}

INSTANTIATE_TEST_SUITE_P(Ends, UnblockedOutputTest,
                         ::testing::Values(MakePipe, MakeSocket, MakeTerminal), NameOf);

TEST(UnblockedOutput, NobodyElsesDescriptionChanges) {
    const Ends ends = MakePipe();
    const unique_fd other(fcntl(ends.in.get(), F_DUPFD_CLOEXEC, 0));
    const Stream stream(openUnblocked(ends.in.get()));
    EXPECT_EQ(fcntl(other.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(ends.in.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(ends.in.get(), F_GETFD) & FD_CLOEXEC, 0);
}

// Runs `body` in a process of its own whose standard streams are `fd`; returns how it ended.
int RunWithStreams(
        int fd, const std::function<void()>& body, const std::function<void()>& before = [] {}) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        before();
        dup2(fd, STDOUT_FILENO);
        dup2(fd, STDERR_FILENO);
        unblockStandardStreams();
        body();
        // Not exit(): a sanitizer's search for leaks needs the /proc that is hidden from one of
        // them.
        fflush(nullptr);
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

void WriteInEveryWay() {
    base::SetLogger(base::StderrLogger);
    for (int i = 0; i < kLines / 5; ++i) {
        LOG(INFO) << "a line of the log that is as long as such lines are, or nearly";
        errno = ENOENT;
        perror("an error");
        printf("a message\n");
    }
}

TEST(UnblockedOutput, TheStandardStreamsOfAProcessDoNotWait) {
    for (const auto make : {MakePipe, MakeSocket, MakeTerminal}) {
        const Ends ends = make();
        EXPECT_EQ(RunWithStreams(ends.in.get(), WriteInEveryWay), 0);
        const std::string text = ReadAll(ends.out.get());
        EXPECT_THAT(text, HasSubstr("] a line of the log"));
        EXPECT_THAT(text, HasSubstr("an error: No such file or directory\n"));
        EXPECT_THAT(text, HasSubstr("a message\n"));
    }
}

// As where /proc is not mounted, or the terminal belongs to another user.
void HideProc() {
    ASSERT_EQ(unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(mount("nothing", "/proc", "tmpfs", 0, nullptr), 0);
}

TEST(UnblockedOutput, WhatCannotBeOpenedAnewDoesNotWaitEither) {
    for (const auto make : {MakePipe, MakeTerminal}) {
        const Ends ends = make();
        EXPECT_EQ(RunWithStreams(ends.in.get(), WriteInEveryWay, HideProc), 0);
        EXPECT_EQ(fcntl(ends.in.get(), F_GETFL) & O_NONBLOCK, 0);
        EXPECT_THAT(ReadAll(ends.out.get()), HasSubstr("] a line of the log"));
    }
}

TEST(UnblockedOutput, AFileIsWrittenToItsEnd) {
    const TemporaryFile file;
    ASSERT_EQ(write(file.fd, "before\n", 7), 7);
    EXPECT_EQ(RunWithStreams(file.fd, [] { Flood(stderr); }), 0);
    std::string text;
    ASSERT_TRUE(base::ReadFileToString(file.path, &text));
    EXPECT_THAT(text, StartsWith("before\nline "));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), kLines + 1);
}

// What a process writes to standard error, each write by itself: a packet for each.
std::vector<std::string> WritesOf(const std::function<void()>& body) {
    int fds[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds), 0);
    unique_fd in(fds[1]);
    const unique_fd out(fds[0]);
    EXPECT_EQ(RunWithStreams(in.get(), body), 0);
    in.reset();
    std::vector<std::string> writes;
    char buffer[2 * PIPE_BUF];
    while (true) {
        const ssize_t size = read(out.get(), buffer, sizeof(buffer));
        if (size <= 0) return writes;
        writes.emplace_back(buffer, static_cast<size_t>(size));
    }
}

void Say(const char* line) {
    fprintf(stderr, "%s\n", line);
}

TEST(GatheredOutput, LinesAreAWriteEachWithoutIt) {
    EXPECT_THAT(WritesOf([] {
                    Say("one");
                    Say("two");
                }),
                ElementsAre("one\n", "two\n"));
}

TEST(GatheredOutput, OnePieceOfWorkIsOneWrite) {
    EXPECT_THAT(WritesOf([] {
                    {
                        const GatheredOutput gathered;
                        Say("one");
                        Say("two");
                    }
                    Say("three");
                }),
                ElementsAre("one\ntwo\n", "three\n"));
}

TEST(GatheredOutput, NothingSaidIsNoWrite) {
    EXPECT_THAT(WritesOf([] {
                    const GatheredOutput gathered;
                    writeGatheredOutput();
                }),
                IsEmpty());
}

TEST(GatheredOutput, ACallWithinAPieceOfWorkBelongsToIt) {
    EXPECT_THAT(WritesOf([] {
                    const GatheredOutput outer;
                    Say("before");
                    {
                        const GatheredOutput inner;
                        Say("within");
                    }
                    Say("after");
                }),
                ElementsAre("before\nwithin\nafter\n"));
}

TEST(GatheredOutput, IsWrittenBeforeAWait) {
    EXPECT_THAT(WritesOf([] {
                    const GatheredOutput gathered;
                    Say("one");
                    writeGatheredOutput();
                    Say("two");
                    Say("three");
                }),
                ElementsAre("one\n", "two\nthree\n"));
}

// Whoever ends the process in the middle loses nothing.
TEST(GatheredOutput, IsWrittenAtOnceAfterAStop) {
    EXPECT_THAT(WritesOf([] {
                    const GatheredOutput outer;
                    const GatheredOutput inner;
                    Say("one");
                    stopGatheringOutput();
                    Say("two");
                    const GatheredOutput next;
                    Say("three");
                    _exit(0);
                }),
                ElementsAre("one\n", "two\n", "three\n"));
}

TEST(GatheredOutput, AStopWritesWhatOtherThreadsHaveGathered) {
    EXPECT_THAT(WritesOf([] {
                    std::promise<void> said;
                    std::promise<void> end;
                    std::thread other([&] {
                        const GatheredOutput gathered;
                        Say("there");
                        said.set_value();
                        end.get_future().wait();
                        Say("and there");
                    });
                    said.get_future().wait();
                    stopGatheringOutput();
                    Say("here");
                    end.set_value();
                    other.join();
                }),
                ElementsAre("there\n", "here\n", "and there\n"));
}

// One after the other, in and out: ThreadSanitizer does not see the streams' locks.
TEST(GatheredOutput, OfMoreThreadsThanAPoolHasIsWrittenAsItComes) {
    constexpr int kThreads = 100;
    const std::vector<std::string> writes = WritesOf([] {
        std::vector<std::promise<void>> ends(kThreads);
        std::vector<std::thread> threads;
        for (std::promise<void>& end : ends) {
            std::promise<void> said;
            threads.emplace_back([&] {
                const GatheredOutput gathered;
                Say("one");
                Say("two");
                said.set_value();
                end.get_future().wait();
            });
            said.get_future().wait();
        }
        for (int i = 0; i < kThreads; ++i) {
            ends[i].set_value();
            threads[i].join();
        }
        const GatheredOutput gathered;  // there are seats again
        Say("one");
        Say("two");
    });
    EXPECT_EQ(std::count(writes.begin(), writes.end(), "one\ntwo\n"), 64 + 1);
    EXPECT_EQ(std::count(writes.begin(), writes.end(), "one\n"), kThreads - 64);
    EXPECT_EQ(std::count(writes.begin(), writes.end(), "two\n"), kThreads - 64);
}

// Each write there is a message of its own.
TEST(GatheredOutput, RecordsAreNotGathered) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, fds), 0);
    const unique_fd in(fds[1]);
    const unique_fd out(fds[0]);
    EXPECT_EQ(RunWithStreams(in.get(),
                             [] {
                                 const GatheredOutput gathered;
                                 Say("one");
                                 Say("two");
                             }),
              0);
    char buffer[100];
    ASSERT_EQ(recv(out.get(), buffer, sizeof(buffer), MSG_DONTWAIT), 4);
    EXPECT_EQ(std::string(buffer, 4), "one\n");
}

TEST(GatheredOutput, AnotherThreadsLinesAreWrittenAsTheyCome) {
    EXPECT_THAT(WritesOf([] {
                    const GatheredOutput gathered;
                    Say("here");
                    std::thread([] { Say("there"); }).join();
                    Say("and here");
                }),
                ElementsAre("there\n", "here\nand here\n"));
}

TEST(GatheredOutput, StandardOutputIsNotGathered) {
    EXPECT_THAT(WritesOf([] {
                    const GatheredOutput gathered;
                    Say("an error");
                    printf("an answer\n");
                    fflush(stdout);
                }),
                ElementsAre("an answer\n", "an error\n"));
}

// A pipe takes so much whole or not at all: lines of two writers never mix.
TEST(GatheredOutput, IsWrittenInWholeLinesOfAPipesPage) {
    constexpr int kSaid = 1000;
    const std::vector<std::string> writes = WritesOf([] {
        const GatheredOutput gathered;
        for (int i = 0; i < kSaid; ++i) fprintf(stderr, "line %*d\n", kLineLength - 6, i);
    });
    EXPECT_EQ(writes.size(), kSaid * size_t{kLineLength} / PIPE_BUF + 1);
    std::string all;
    for (const std::string& write : writes) {
        EXPECT_LE(write.size(), size_t{PIPE_BUF});
        EXPECT_THAT(write, EndsWith("\n"));
        all += write;
    }
    EXPECT_EQ(Account(all).arrived, kSaid);
}

class GatheredPageTest : public ::testing::TestWithParam<size_t> {};

TEST_P(GatheredPageTest, ALineOfAnyLengthKeepsItsPlace) {
    const std::string text(GetParam() - 1, 'x');
    const std::vector<std::string> writes = WritesOf([&] {
        const GatheredOutput gathered;
        Say("before");
        Say(text.c_str());
        Say("after");
    });
    std::string all;
    for (const std::string& write : writes) all += write;
    EXPECT_EQ(all, "before\n" + text + "\nafter\n");
}

INSTANTIATE_TEST_SUITE_P(Lengths, GatheredPageTest,
                         ::testing::Values(PIPE_BUF - 8, PIPE_BUF - 7, PIPE_BUF - 6, PIPE_BUF - 1,
                                           PIPE_BUF, PIPE_BUF + 1, 3 * PIPE_BUF));

TEST(GatheredOutput, WhatNobodyReadsIsDroppedAndCounted) {
    const Ends ends = MakePipe();
    std::string text;
    EXPECT_EQ(RunWithStreams(ends.in.get(),
                             [&] {
                                 {
                                     const GatheredOutput gathered;
                                     Flood(stderr);
                                 }
                                 text = ReadAll(ends.out.get());
                                 Say("after it");
                                 text += ReadUntil(ends.out.get(), "after it\n");
                                 const Account account(text);
                                 EXPECT_GT(account.lost, 0);
                                 EXPECT_EQ(account.arrived + account.lost, kLines);
                                 if (::testing::Test::HasFailure()) _exit(1);
                             }),
              0);
}

TEST(GatheredOutput, TheCallersErrorNumberStays) {
    const Ends ends = MakeSocket();
    EXPECT_EQ(RunWithStreams(ends.in.get(),
                             [] {
                                 shutdown(STDERR_FILENO, SHUT_WR);
                                 errno = ENOTDIR;
                                 {
                                     const GatheredOutput gathered;
                                     Say("one");
                                     writeGatheredOutput();
                                     Say("two");
                                 }
                                 if (errno != ENOTDIR) _exit(1);
                             }),
              0);
}

TEST(GatheredOutput, AFileIsWrittenToItsEnd) {
    const TemporaryFile file;
    EXPECT_EQ(RunWithStreams(file.fd,
                             [] {
                                 Say("before");
                                 const GatheredOutput gathered;
                                 Flood(stderr);
                             }),
              0);
    std::string text;
    ASSERT_TRUE(base::ReadFileToString(file.path, &text));
    EXPECT_THAT(text, StartsWith("before\nline "));
    EXPECT_EQ(Account(text).arrived, kLines);
}

TEST(GatheredOutput, AFullDeviceLosesLinesAndNothingElse) {
    const unique_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(full.ok());
    EXPECT_EQ(RunWithStreams(full.get(),
                             [] {
                                 const GatheredOutput gathered;
                                 Flood(stderr);
                                 if (ferror(stderr) != 0) _exit(1);
                             }),
              0);
}

}  // namespace
}  // namespace android::vus::platform
