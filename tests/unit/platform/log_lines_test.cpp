// SPDX-License-Identifier: Apache-2.0
//
// The host's log lines, beside those of the logging library.

#include "platform/log_lines.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace android::vus::platform {
namespace {

using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

using Logger = void (*)(base::LogId, base::LogSeverity, const char*, const char*, unsigned,
                        const char*);

struct Line {
    base::LogSeverity severity;
    const char* tag;
    const char* file;
    unsigned number;
    std::string message;
};

std::string WrittenBy(Logger logger, const Line& line) {
    CaptureStderr();
    logger(base::DEFAULT, line.severity, line.tag, line.file, line.number, line.message.c_str());
    return GetCapturedStderr();
}

// Both within one second.
void ExpectAsTheLibrary(const Line& line) {
    for (int i = 0; i < 100; ++i) {
        const time_t second = time(nullptr);
        const std::string expected = WrittenBy(base::StderrLogger, line);
        const std::string written = WrittenBy(writeLogLine, line);
        if (time(nullptr) != second) continue;
        EXPECT_EQ(written, expected);
        return;
    }
    FAIL() << "no second was long enough";
}

TEST(LogLinesTest, ALineIsTheLibrarys) {
    ExpectAsTheLibrary({base::INFO, "vusd", "daemon.cpp", 7, "a message"});
    ExpectAsTheLibrary({base::INFO, "vusd", "daemon.cpp", 4000000000, ""});
    ExpectAsTheLibrary({base::INFO, nullptr, "daemon.cpp", 1, "without a tag"});
    ExpectAsTheLibrary({base::INFO, "vusd", nullptr, 0, "from nowhere"});
    ExpectAsTheLibrary({base::INFO, "vusd", "daemon.cpp", 1, std::string(10000, 'x')});
    ExpectAsTheLibrary({base::INFO, "vusd", "daemon.cpp", 1, "100 %s and \t\x01"});
}

TEST(LogLinesTest, EverySeverityHasTheLibrarysLetter) {
    for (const auto severity : {base::VERBOSE, base::DEBUG, base::INFO, base::WARNING, base::ERROR,
                                base::FATAL_WITHOUT_ABORT, base::FATAL}) {
        ExpectAsTheLibrary({severity, "vusd", "daemon.cpp", 7, "a message"});
    }
}

TEST(LogLinesTest, AThreadHasItsOwnNumber) {
    writeLogLine(base::DEFAULT, base::INFO, "vusd", "daemon.cpp", 1, "the first thread's");
    std::thread([] {
        ExpectAsTheLibrary({base::INFO, "vusd", "daemon.cpp", 7, "a message"});
    }).join();
}

TEST(LogLinesTest, SoHasAChild) {
    writeLogLine(base::DEFAULT, base::INFO, "vusd", "daemon.cpp", 1, "the parent's");
    const pid_t child = fork();
    if (child == 0) {
        ExpectAsTheLibrary({base::INFO, "vusd", "daemon.cpp", 7, "a message"});
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(LogLinesTest, TheTimeGoesOn) {
    const auto stamp = [] {
        return WrittenBy(writeLogLine, {base::INFO, "vusd", nullptr, 0, ""}).substr(0, 21);
    };
    const std::string before = stamp();
    std::string after = before;
    for (const time_t end = time(nullptr) + 60; after == before && time(nullptr) < end;) {
        after = stamp();
    }
    EXPECT_NE(after, before);
}

TEST(LogLinesTest, TheCallersErrorNumberStays) {
    CaptureStderr();
    errno = ENOTDIR;
    writeLogLine(base::DEFAULT, base::INFO, "vusd", "daemon.cpp", 1, "a message");
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("daemon.cpp:1] a message\n"));
}

}  // namespace
}  // namespace android::vus::platform
