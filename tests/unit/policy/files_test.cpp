// SPDX-License-Identifier: Apache-2.0

// The status file and the copies of the policy, byte for byte.

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <android-base/file.h>

#include "policy_test.h"
#include "tests/support/waiting.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kSource[] = "/data/source";
constexpr char kDest[] = "/data/dest";
constexpr char kCopied[] = "I Usb Device config file copied successfully..!!";

// The number that the next descriptor gets: a leak raises it.
int NextDescriptor() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

class StatusFileTest : public PolicyTest {};

TEST_F(StatusFileTest, TheMessageIsTheWholeContent) {
    const std::vector<std::string> messages = {"SUCCESS",
                                               "",
                                               "INVALID TAG:x\n",
                                               "two\nlines",
                                               std::string("a\0b", 3),
                                               std::string(100000, 'x'),
                                               "\xff\xfe"};
    for (const std::string& message : messages) {
        WriteFile(kStatusFile, "a longer text that was there before");
        Util::updateErrorFile(kStatusFile, message);
        EXPECT_EQ(ReadFile(kStatusFile), message);
    }
}

TEST_F(StatusFileTest, SuccessIsSevenBytes) {
    Util::updateErrorFile(kStatusFile, "SUCCESS");
    EXPECT_EQ(ReadFile(kStatusFile).size(), 7u);
}

TEST_F(StatusFileTest, TheMessageIsLogged) {
    EXPECT_THAT(LogOf([] { Util::updateErrorFile(kStatusFile, "INVALID MODE"); }),
                ElementsAre("I updateErrorFile called with error message : INVALID MODE"));
}

TEST_F(StatusFileTest, AFileThatCannotBeWrittenIsNotReported) {
    MakeDir("/data/a-directory");
    for (const char* path : {"/data/nowhere/status.txt", "/data/a-directory", ""}) {
        EXPECT_THAT(LogOf([path] { Util::updateErrorFile(path, "SUCCESS"); }),
                    ElementsAre("I updateErrorFile called with error message : SUCCESS"))
                << path;
        EXPECT_EQ(ReadFile(path), "");
    }
    EXPECT_NE(access("/data/nowhere", F_OK), 0) << "the directory is not made";
}

TEST_F(StatusFileTest, AFullDiskIsNotReported) {
    EXPECT_THAT(LogOf([] { Util::updateErrorFile("/dev/full", "SUCCESS"); }),
                ElementsAre("I updateErrorFile called with error message : SUCCESS"));
}

TEST_F(StatusFileTest, AFileIsMadeUnderTheUmask) {
    const mode_t before = umask(002);
    Util::updateErrorFile(kStatusFile, "SUCCESS");
    umask(before);
    struct stat entry;
    ASSERT_EQ(stat(kStatusFile, &entry), 0);
    EXPECT_EQ(entry.st_mode & 07777, 0664u);
}

TEST_F(StatusFileTest, AFileKeepsItsIdentity) {
    WriteFile(kStatusFile, "old");
    ASSERT_EQ(chmod(kStatusFile, 0600), 0);
    ASSERT_EQ(link(kStatusFile, "/data/other-name"), 0);
    Util::updateErrorFile(kStatusFile, "SUCCESS");
    EXPECT_EQ(ReadFile("/data/other-name"), "SUCCESS");
    struct stat entry;
    ASSERT_EQ(stat(kStatusFile, &entry), 0);
    EXPECT_EQ(entry.st_mode & 07777, 0600u);
}

// A text that takes long to write, and a look at what the process has open meanwhile.
TEST_F(StatusFileTest, ItsDescriptorIsNotInherited) {
    std::atomic<bool> done{false};
    std::thread writer([&] {
        while (!done) Util::updateErrorFile(kStatusFile, std::string(1000000, 'x'));
    });
    int seen = 0;
    const auto deadline = std::chrono::steady_clock::now() + kLongEnough;
    while (seen < 20 && std::chrono::steady_clock::now() < deadline) {
        for (int fd = 3; fd < 30; ++fd) {
            std::string path;
            if (!base::Readlink("/proc/self/fd/" + std::to_string(fd), &path)) continue;
            const int flags = fcntl(fd, F_GETFD);
            if (path != kStatusFile || flags < 0) continue;
            ++seen;
            EXPECT_EQ(flags & FD_CLOEXEC, FD_CLOEXEC) << fd;
        }
    }
    done = true;
    writer.join();
    EXPECT_EQ(seen, 20);
}

class CopyTest : public PolicyTest {
  protected:
    Strings LogOfCopy(const char* source, const char* dest, bool result) {
        return LogOf([=] { EXPECT_EQ(Util::copyFileContent(source, dest), result); });
    }
};

struct CopyCase {
    std::string source;
    std::string copy;
};

TEST_F(CopyTest, EveryLineGetsALineEnd) {
    const std::string huge(3000000, 'x');
    const std::vector<CopyCase> cases = {
            {"", ""},
            {"\n", "\n"},
            {"\n\n", "\n\n"},
            {"a", "a\n"},
            {"a\n", "a\n"},
            {"a\nb", "a\nb\n"},
            {"\na\n\nb\n", "\na\n\nb\n"},
            {"dos\r\nends\r\n", "dos\r\nends\r\n"},
            {"mac\r", "mac\r\n"},
            {"  blanks \t kept  ", "  blanks \t kept  \n"},
            {std::string("nul\0in\nthe\0middle\0", 18),
             std::string("nul\0in\nthe\0middle\0\n", 19)},
            {"\xff\x80", "\xff\x80\n"},
            {huge, huge + "\n"},
            {huge + "\n" + huge, huge + "\n" + huge + "\n"},
    };
    for (const CopyCase& test : cases) {
        WriteFile(kSource, test.source);
        WriteFile(kDest, "a longer text that was there before");
        EXPECT_TRUE(Util::copyFileContent(kSource, kDest));
        EXPECT_TRUE(ReadFile(kDest) == test.copy) << test.source.substr(0, 20);
        EXPECT_TRUE(ReadFile(kSource) == test.source) << test.source.substr(0, 20);
    }
}

TEST_F(CopyTest, PathsAndLinesAreLogged) {
    WriteFile(kSource, "<usbconfig mode=\"default\">\n\n</usbconfig>");
    EXPECT_THAT(LogOfCopy(kSource, kDest, true),
                ElementsAre("I  USB xml src path is /data/source",
                            "I USB xml dest path is /data/dest", "I <usbconfig mode=\"default\">",
                            "I ", "I </usbconfig>", kCopied));
}

TEST_F(CopyTest, AMissingSourceEmptiesTheDestination) {
    WriteFile(kDest, "the policy that was rejected");
    EXPECT_THAT(LogOfCopy(kSource, kDest, false),
                ElementsAre("I  USB xml src path is /data/source",
                            "I USB xml dest path is /data/dest",
                            "E USB device error is source file open", kCopied));
    EXPECT_EQ(access(kDest, F_OK), 0);
    EXPECT_EQ(ReadFile(kDest), "");
}

TEST_F(CopyTest, AMissingSourceMakesTheDestination) {
    EXPECT_FALSE(Util::copyFileContent(kSource, kDest));
    EXPECT_EQ(access(kDest, F_OK), 0);
}

TEST_F(CopyTest, EveryLineThatIsLostIsReported) {
    WriteFile(kSource, "one\n\nthree");
    EXPECT_THAT(LogOfCopy(kSource, "/data/nowhere/dest", false),
                ElementsAre("I  USB xml src path is /data/source",
                            "I USB xml dest path is /data/nowhere/dest",
                            "E ODM error in dest file open", "E ODM error in dest file open",
                            "E ODM error in dest file open", kCopied));
    EXPECT_NE(access("/data/nowhere", F_OK), 0) << "the directory is not made";
}

TEST_F(CopyTest, NothingIsLostOfAnEmptySource) {
    WriteFile(kSource, "");
    EXPECT_THAT(LogOfCopy(kSource, "/data/nowhere/dest", true),
                ElementsAre("I  USB xml src path is /data/source",
                            "I USB xml dest path is /data/nowhere/dest", kCopied));
}

TEST_F(CopyTest, NeitherSourceNorDestination) {
    EXPECT_THAT(LogOfCopy(kSource, "/data/nowhere/dest", false),
                ElementsAre("I  USB xml src path is /data/source",
                            "I USB xml dest path is /data/nowhere/dest",
                            "E USB device error is source file open", kCopied));
}

TEST_F(CopyTest, ASourceThatCannotBeReadIsEmpty) {
    MakeDir(kSource);
    WriteFile(kDest, "before");
    EXPECT_THAT(LogOfCopy(kSource, kDest, true),
                ElementsAre("I  USB xml src path is /data/source",
                            "I USB xml dest path is /data/dest", kCopied));
    EXPECT_EQ(ReadFile(kDest), "");
}

// Only a destination that cannot be opened makes the copy a failure.
TEST_F(CopyTest, AFullDiskIsNotReported) {
    WriteFile(kSource, "one\ntwo\n");
    EXPECT_THAT(LogOfCopy(kSource, "/dev/full", true),
                ElementsAre("I  USB xml src path is /data/source",
                            "I USB xml dest path is /dev/full", "I one", "I two", kCopied));
}

// A destination that has room for half of the copy gets that half.
TEST_F(CopyTest, ADiskThatFillsUpKeepsWhatItTook) {
    MakeDir("/data/small");
    ASSERT_EQ(mount("tmpfs", "/data/small", "tmpfs", 0, "size=64k"), 0) << strerror(errno);
    const std::string content(200000, 'x');
    WriteFile(kSource, content);
    EXPECT_TRUE(Util::copyFileContent(kSource, "/data/small/dest"));
    EXPECT_EQ(ReadFile("/data/small/dest"), content.substr(0, 65536));
    ASSERT_EQ(umount2("/data/small", MNT_DETACH), 0);
}

TEST_F(CopyTest, AFileCopiedOntoItselfIsEmptied) {
    WriteFile(kSource, "one\n");
    EXPECT_TRUE(Util::copyFileContent(kSource, kSource));
    EXPECT_EQ(ReadFile(kSource), "");
}

TEST_F(CopyTest, NoDescriptorIsLeftOpen) {
    WriteFile(kSource, "one\n");
    const int before = NextDescriptor();
    for (int i = 0; i < 50; ++i) {
        Util::copyFileContent(kSource, kDest);
        Util::copyFileContent("/data/missing", kDest);
        Util::copyFileContent(kSource, "/data/nowhere/dest");
        Util::updateErrorFile(kStatusFile, "SUCCESS");
        Util::updateErrorFile("/data/nowhere/status", "SUCCESS");
        Util::createMapFromConfig(kSource);
        Util::createMapFromConfig("/data/missing");
    }
    EXPECT_EQ(NextDescriptor(), before);
}

// The backup of a policy whose last line has no line end.
TEST_F(CopyTest, TheBackupOfAPolicyLoadsAgain) {
    const std::string policy =
            "<usbconfig mode=\"whitelist\">\n<class>USB_CLASS_AUDIO</class>\n"
            "</usbconfig>";
    WriteFile(kPolicyFile, policy);
    ASSERT_TRUE(Util::copyFileContent(kPolicyFile, kPolicyBackupFile));
    EXPECT_EQ(ReadFile(kPolicyBackupFile), policy + "\n");
    Util::createMapFromConfig(kPolicyBackupFile);
    EXPECT_TRUE(Util::xml_parse_status);
    EXPECT_THAT(Util::classList, ElementsAre(1));
}

TEST_F(CopyTest, NoBackupMakesAPolicyThatIsRejected) {
    WriteFile(kPolicyFile, "broken");
    EXPECT_FALSE(Util::copyFileContent(kPolicyBackupFile, kPolicyFile));
    Util::createMapFromConfig(kPolicyFile);
    EXPECT_FALSE(Util::xml_parse_status);
    EXPECT_THAT(ReadFile(kStatusFile), ::testing::HasSubstr("XML_ERROR_EMPTY_DOCUMENT"));
    EXPECT_THAT(Util::classList, IsEmpty());
}

constexpr char kNotLoaded[] = "E the backup is not the policy that was loaded: writing that";

TEST_F(CopyTest, ABackupIsACopyIfThatIsWhatWasLoaded) {
    for (const std::string policy :
         {"<usbconfig mode='default'/>", "<usbconfig mode='default'/>\n"}) {
        WriteFile(kPolicyFile, policy);
        EXPECT_THAT(LogOf([&] { Util::backUpPolicy(policy); }),
                    ElementsAre(::testing::_, ::testing::_, "I <usbconfig mode='default'/>",
                                kCopied));
        EXPECT_EQ(ReadFile(kPolicyBackupFile), "<usbconfig mode='default'/>\n");
    }
}

TEST_F(CopyTest, ABackupIsWhatWasLoadedWhereTheFileIsAnotherOne) {
    WriteFile(kPolicyBackupFile, "the last one\n");
    for (const std::string content : {"", "<usb", "<usbconfig mode='blacklist'/>"}) {
        WriteFile(kPolicyFile, content);
        EXPECT_EQ(LogOf([] { Util::backUpPolicy("<usbconfig mode='default'/>"); }).back(),
                  kNotLoaded);
        EXPECT_EQ(ReadFile(kPolicyBackupFile), "<usbconfig mode='default'/>\n");
        EXPECT_EQ(ReadFile(kPolicyFile), content);
    }
}

TEST_F(CopyTest, ABackupThatCannotBeWrittenIsReported) {
    WriteFile(kPolicyFile, "<usbconfig mode='default'/>");
    MakeDir(kPolicyBackupFile);
    const Strings log = LogOf([] { Util::backUpPolicy("<usbconfig mode='default'/>"); });
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2], kNotLoaded);
    EXPECT_EQ(log.back(), "E the backup cannot be written: keeping the last one: Is a directory");
    remove(kPolicyBackupFile);
}

}  // namespace
}  // namespace android::vus
