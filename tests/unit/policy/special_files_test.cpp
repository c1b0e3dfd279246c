// SPDX-License-Identifier: Apache-2.0

// What somebody who may write the policy directory can put in a file's place: pipes, links to
// devices, files without an end. Nothing waits, and nothing but the directory's files is written.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <tinyxml2.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>

#include <android-base/unique_fd.h>

#include "android/vus/file_io.h"
#include "policy_test.h"
#include "tests/support/waiting.h"

namespace android::vus {
namespace {

using Fault = PolicyText::Fault;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kVictim[] = "/data/somebody-elses-file";
constexpr char kSecret[] = "somebody else's text";

// Runs what may wait at the pipe `pipe` for ever; lets it go on and fails if it does.
void ExpectEnds(const char* pipe, const std::function<void()>& action) {
    auto end = std::async(std::launch::async, action);
    if (end.wait_for(kLongEnough) == std::future_status::ready) return;
    ADD_FAILURE() << "it waits";
    while (end.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
        const base::unique_fd both_ends(open(pipe, O_RDWR | O_NONBLOCK | O_CLOEXEC));
        char bytes[65536];
        (void)!read(both_ends.get(), bytes, sizeof(bytes));
    }
}

// What the library's own loader says of a file.
std::string LibrarySays(const std::string& path) {
    tinyxml2::XMLDocument document;
    document.LoadFile(path.c_str());
    return document.ErrorStr();
}

// What it says of a file that is there and cannot be read.
std::string LibrarySaysUnreadable() {
    return LibrarySays("/");
}

size_t PeakMemory() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<size_t>(usage.ru_maxrss) << 10;
}

class SpecialPolicyTest : public PolicyTest {
  protected:
    // A rejected load, with `text` in the status file and empty tables.
    static void ExpectRejected(const std::string& text) {
        SetPolicy("whitelist", {8}, {{8, "old"}}, {{1, 2}});
        WriteFile(kStatusFile, "");
        EXPECT_EQ(Util::loadPolicy(kPolicyFile), "");
        EXPECT_FALSE(Util::xml_parse_status);
        EXPECT_EQ(ReadFile(kStatusFile), text);
        EXPECT_EQ(Util::getMode(), "whitelist") << "the mode stays";
        EXPECT_THAT(Util::classList, IsEmpty());
        EXPECT_THAT(Util::vidPidMap, IsEmpty());
    }
};

TEST_F(SpecialPolicyTest, APipeIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(kPolicyFile, 0600), 0);
    ExpectEnds(kPolicyFile, [] { ExpectRejected(LibrarySaysUnreadable()); });
}

TEST_F(SpecialPolicyTest, APipeIsNotWaitedForWhereALinkLeadsToIt) {
    ASSERT_EQ(mkfifo("/data/pipe", 0600), 0);
    ASSERT_EQ(symlink("/data/pipe", kPolicyFile), 0);
    ExpectEnds("/data/pipe", [] { ExpectRejected(LibrarySaysUnreadable()); });
}

// Whoever writes into it finds nobody who reads: its bytes are no policy.
TEST_F(SpecialPolicyTest, APipeWithAWriterIsNotRead) {
    ASSERT_EQ(mkfifo(kPolicyFile, 0600), 0);
    const base::unique_fd writer(open(kPolicyFile, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    ASSERT_EQ(write(writer.get(), "<usbconfig mode='default'/>", 27), 27);
    ExpectEnds(kPolicyFile, [] { ExpectRejected(LibrarySaysUnreadable()); });
}

TEST_F(SpecialPolicyTest, ADeviceIsEmpty) {
    for (const char* device : {"/dev/zero", "/dev/null", "/dev/urandom", "/dev/full"}) {
        SCOPED_TRACE(device);
        remove(kPolicyFile);
        ASSERT_EQ(symlink(device, kPolicyFile), 0);
        const size_t before = PeakMemory();
        ExpectRejected(LibrarySays("/dev/null"));
        EXPECT_LT(PeakMemory() - before, kMaxPolicyBytes);
    }
}

// They say that their size is 0, and have any: the library asks for the size.
TEST_F(SpecialPolicyTest, AFileOfProcIsEmpty) {
    for (const char* file : {"/proc/self/maps", "/proc/kmsg", "/proc/self/mounts"}) {
        SCOPED_TRACE(file);
        remove(kPolicyFile);
        ASSERT_EQ(symlink(file, kPolicyFile), 0);
        ExpectRejected(LibrarySays("/proc/self/mounts"));
    }
}

TEST_F(SpecialPolicyTest, ADirectoryCannotBeRead) {
    MakeDir(kPolicyFile);
    ExpectRejected(LibrarySays(kPolicyFile));
}

TEST_F(SpecialPolicyTest, WhatCannotBeOpenedIsNotFound) {
    ExpectRejected(LibrarySays(kPolicyFile));
    ASSERT_EQ(symlink("/data/nothing", kPolicyFile), 0);
    ExpectRejected(LibrarySays(kPolicyFile));
    RemoveFile(kPolicyFile);
    ASSERT_EQ(symlink(kPolicyFile, kPolicyFile), 0);
    ExpectRejected(LibrarySays(kPolicyFile));
}

TEST_F(SpecialPolicyTest, ASocketIsNotFound) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", kPolicyFile);
    const base::unique_fd socket_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(socket_fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ExpectRejected(LibrarySays(kPolicyFile));
}

TEST_F(SpecialPolicyTest, ALinkToARegularFileIsRead) {
    WriteFile("/data/elsewhere", "<usbconfig mode='blacklist'><vid vendorid='7'/></usbconfig>");
    ASSERT_EQ(symlink("/data/elsewhere", kPolicyFile), 0);
    Util::createMapFromConfig(kPolicyFile);
    EXPECT_TRUE(Util::xml_parse_status);
    EXPECT_EQ(Util::getMode(), "blacklist");
}

// The bound, to the byte.
TEST_F(SpecialPolicyTest, TheLongestPolicyIsReadAndNoLongerOne) {
    std::string policy = "<usbconfig mode='whitelist'><class>USB_CLASS_AUDIO</class></usbconfig>";
    policy.resize(kMaxPolicyBytes, ' ');
    WriteFile(kPolicyFile, policy);
    EXPECT_TRUE(Util::loadPolicy(kPolicyFile) == policy);
    EXPECT_TRUE(Util::xml_parse_status);
    WriteFile(kPolicyFile, policy + ' ');
    ExpectRejected(LibrarySaysUnreadable());
}

TEST_F(SpecialPolicyTest, AFileOfTerabytesTakesNoMemory) {
    WriteFile(kPolicyFile, "<usbconfig mode='default'/>");
    ASSERT_EQ(truncate(kPolicyFile, off_t{1} << 40), 0);
    const size_t before = PeakMemory();
    ExpectRejected(LibrarySaysUnreadable());
    EXPECT_LT(PeakMemory() - before, kMaxPolicyBytes);
}

class SpecialStatusTest : public PolicyTest {};

TEST_F(SpecialStatusTest, APipeIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(kStatusFile, 0600), 0);
    ExpectEnds(kStatusFile, [] { Util::updateErrorFile(kStatusFile, "SUCCESS"); });
}

// Nor filled, where there is somebody who does not read it.
TEST_F(SpecialStatusTest, APipeIsNotWritten) {
    ASSERT_EQ(mkfifo(kStatusFile, 0600), 0);
    const base::unique_fd reader(open(kStatusFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    ExpectEnds(kStatusFile, [] { Util::updateErrorFile(kStatusFile, std::string(200000, 'x')); });
    char byte = 0;
    EXPECT_EQ(read(reader.get(), &byte, 1), 0);
}

TEST_F(SpecialStatusTest, ALinkIsNotFollowed) {
    WriteFile(kVictim, kSecret);
    ASSERT_EQ(symlink(kVictim, kStatusFile), 0);
    EXPECT_THAT(LogOf([] { Util::updateErrorFile(kStatusFile, "SUCCESS"); }),
                ElementsAre("I updateErrorFile called with error message : SUCCESS"));
    EXPECT_EQ(ReadFile(kVictim), kSecret);
}

TEST_F(SpecialStatusTest, ALinkToNothingMakesNothing) {
    ASSERT_EQ(symlink(kVictim, kStatusFile), 0);
    Util::updateErrorFile(kStatusFile, "SUCCESS");
    EXPECT_NE(access(kVictim, F_OK), 0);
}

class SpecialCopyTest : public PolicyTest {
  protected:
    void SetUp() override {
        PolicyTest::SetUp();
        WriteFile(kPolicyFile, kPolicy);
        WriteFile(kVictim, kSecret);
    }

    static constexpr char kPolicy[] = "<usbconfig mode='default'/>\n";
};

TEST_F(SpecialCopyTest, TheBackupIsNotWrittenThroughALink) {
    ASSERT_EQ(symlink(kVictim, kPolicyBackupFile), 0);
    const Strings log = LogOf([] { Util::backUpPolicy(kPolicy); });
    EXPECT_EQ(ReadFile(kVictim), kSecret);
    EXPECT_EQ(log.back(),
              "E the backup cannot be written: keeping the last one: Too many levels of symbolic "
              "links");
    EXPECT_FALSE(Util::copyFileContent(kPolicyFile, kPolicyBackupFile));
    EXPECT_EQ(ReadFile(kVictim), kSecret);
}

TEST_F(SpecialCopyTest, ThePolicyIsNotRestoredThroughALink) {
    RemoveFile(kPolicyFile);
    WriteFile(kPolicyBackupFile, kPolicy);
    ASSERT_EQ(symlink(kVictim, kPolicyFile), 0);
    EXPECT_FALSE(Util::copyFileContent(kPolicyBackupFile, kPolicyFile));
    EXPECT_EQ(ReadFile(kVictim), kSecret);
}

TEST_F(SpecialCopyTest, APipeAsBackupIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(kPolicyBackupFile, 0600), 0);
    ExpectEnds(kPolicyBackupFile, [] { Util::backUpPolicy(kPolicy); });
    // As a source there is none, and the destination ends empty, as without any.
    ExpectEnds(kPolicyBackupFile,
               [] { EXPECT_FALSE(Util::copyFileContent(kPolicyBackupFile, kPolicyFile)); });
    EXPECT_EQ(ReadFile(kPolicyFile), "");
}

TEST_F(SpecialCopyTest, ASourceWithoutAnEndIsNone) {
    ASSERT_EQ(symlink("/dev/zero", kPolicyBackupFile), 0);
    EXPECT_FALSE(Util::copyFileContent(kPolicyBackupFile, kPolicyFile));
    RemoveFile(kPolicyBackupFile);
    WriteFile(kPolicyBackupFile, "");
    ASSERT_EQ(truncate(kPolicyBackupFile, off_t{1} << 40), 0);
    const size_t before = PeakMemory();
    EXPECT_FALSE(Util::copyFileContent(kPolicyBackupFile, kPolicyFile));
    EXPECT_LT(PeakMemory() - before, kMaxCopyBytes);
}

TEST_F(SpecialCopyTest, NoDescriptorIsLeftOpen) {
    const auto next = [] {
        const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(fd);
        return fd;
    };
    const int before = next();
    ASSERT_EQ(mkfifo(kPolicyBackupFile, 0600), 0);
    ASSERT_EQ(symlink("/dev/zero", kStatusFile), 0);
    for (int i = 0; i < 20; ++i) {
        Util::backUpPolicy(kPolicy);
        Util::copyFileContent(kPolicyBackupFile, kPolicyFile);
        Util::updateErrorFile(kStatusFile, "SUCCESS");
        Util::createMapFromConfig(kPolicyBackupFile);
        Util::createMapFromConfig(kStatusFile);
    }
    EXPECT_EQ(next(), before);
}

}  // namespace
}  // namespace android::vus
