// SPDX-License-Identifier: Apache-2.0
//
// Lines in a file that is none, that is full, that is moved away or that two write.

#include "tools/hotplug/event_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "tests/support/world.h"

namespace android::vus::hotplug {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kFile[] = "/data/events/log";
constexpr char kOlder[] = "/data/events/log.1";
constexpr off_t kNoLimit = 1 << 20;

class EventFileTest : public testing::Test {
  protected:
    void SetUp() override {
        EmptyWorld();
        WriteFile("/data/events/beside", "");
    }

    void Open(off_t limit = kNoLimit) {
        file_.emplace(
                kFile,
                [this](const std::string& line) {
                    const std::lock_guard<std::mutex> lock(mutex_);
                    notices_.push_back(line);
                },
                limit);
    }
    void Write(const std::string& line) {
        file_->add(line);
        ASSERT_TRUE(file_->flush(seconds(30)));
    }
    std::vector<std::string> Notices() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(notices_, {});
    }

    std::mutex mutex_;
    std::vector<std::string> notices_;
    std::optional<EventFile> file_;
};

TEST_F(EventFileTest, LinesAreAppended) {
    WriteFile(kFile, "before\n");
    Open();
    Write("one");
    Write("two");
    EXPECT_EQ(ReadFile(kFile), "before\none\ntwo\n");
    EXPECT_THAT(Notices(), IsEmpty());
}

TEST_F(EventFileTest, ANewFileIsNobodyElses) {
    Open();
    Write("one");
    struct stat file = {};
    ASSERT_EQ(stat(kFile, &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0600U);
}

// The last line that fits, and the first that does not.
TEST_F(EventFileTest, TheFileIsRotatedWhenALineDoesNotFit) {
    Open(/*limit=*/8);
    Write("one");
    Write("two");
    EXPECT_EQ(ReadFile(kFile), "one\ntwo\n");
    EXPECT_EQ(ReadFile(kOlder), "");
    Write("3");
    EXPECT_EQ(ReadFile(kFile), "3\n");
    EXPECT_EQ(ReadFile(kOlder), "one\ntwo\n");
    Write("sixsix");
    EXPECT_EQ(ReadFile(kFile), "sixsix\n");
    EXPECT_EQ(ReadFile(kOlder), "3\n");
    // One that never fits is alone.
    Write("longer than the limit");
    EXPECT_EQ(ReadFile(kFile), "longer than the limit\n");
    EXPECT_EQ(ReadFile(kOlder), "sixsix\n");
}

TEST_F(EventFileTest, TwoWhoWriteRotateItAsOneWould) {
    constexpr int kLines = 300;
    const auto write = [](char who) {
        EventFile file(
                kFile, [](const std::string& notice) { ADD_FAILURE() << notice; }, kLines * 8);
        for (int line = 0; line < kLines; ++line) file.add(std::string(7, who));
    };
    std::thread other(write, 'b');
    write('a');
    other.join();
    std::vector<std::string> lines =
            base::Split(base::Trim(ReadFile(kOlder) + ReadFile(kFile)), "\n");
    EXPECT_THAT(lines, SizeIs(2 * kLines));
    for (const std::string& line : lines)
        EXPECT_TRUE(line == "aaaaaaa" || line == "bbbbbbb") << line;
}

TEST_F(EventFileTest, AFileThatWasMovedAwayIsBegunAnew) {
    Open();
    Write("one");
    ASSERT_EQ(rename(kFile, "/data/events/away"), 0);
    Write("two");
    EXPECT_EQ(ReadFile("/data/events/away"), "one\n");
    EXPECT_EQ(ReadFile(kFile), "two\n");
}

TEST_F(EventFileTest, ALineThatWasTornStaysByItself) {
    WriteFile(kFile, "{\"half");
    Open();
    Write("one");
    EXPECT_EQ(ReadFile(kFile), "{\"half\none\n");
}

TEST_F(EventFileTest, NoLinkIsFollowed) {
    WriteFile("/data/events/target", "precious");
    ASSERT_EQ(symlink("target", kFile), 0);
    Open();
    Write("one");
    Write("two");
    EXPECT_EQ(ReadFile("/data/events/target"), "precious");
    EXPECT_THAT(Notices(),
                ElementsAre("lines are lost, cannot write /data/events/log: Too many levels of "
                            "symbolic links"));
}

// Nor is what it is rotated to: the link is replaced.
TEST_F(EventFileTest, ALinkToWhichItIsRotatedIsReplaced) {
    WriteFile("/data/events/target", "precious");
    ASSERT_EQ(symlink("target", kOlder), 0);
    Open(/*limit=*/4);
    Write("one");
    Write("two");
    EXPECT_EQ(ReadFile("/data/events/target"), "precious");
    EXPECT_EQ(ReadFile(kOlder), "one\n");
}

TEST_F(EventFileTest, AFifoIsNoFile) {
    ASSERT_EQ(mkfifo(kFile, 0600), 0);
    Open();
    Write("nobody reads");
    const base::unique_fd reader(open(kFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_TRUE(reader.ok());
    Write("somebody reads");
    char byte = 0;
    EXPECT_EQ(read(reader.get(), &byte, 1), 0);
    EXPECT_THAT(Notices(), ElementsAre("lines are lost, cannot write /data/events/log: it is no "
                                       "regular file"));
}

TEST_F(EventFileTest, WhatWasLostIsSaidWhenTheFileIsThereAgain) {
    ASSERT_EQ(mkdir(kFile, 0700), 0);
    Open();
    Write("one");
    Write("two");
    EXPECT_THAT(Notices(), SizeIs(1));
    ASSERT_EQ(rmdir(kFile), 0);
    Write("three");
    Write("four");
    EXPECT_EQ(ReadFile(kFile), "{\"linesLost\":2}\nthree\nfour\n");
    ASSERT_EQ(unlink(kFile), 0);
    ASSERT_EQ(mkdir(kFile, 0700), 0);
    Write("five");
    EXPECT_THAT(Notices(), SizeIs(1));
}

TEST_F(EventFileTest, AFullDiskTakesALineAsAWholeOrNotAtAll) {
    constexpr int kPage = 4096;
    ASSERT_EQ(mount("tmpfs", "/data/events", "tmpfs", 0, "size=4096"), 0);
    Open();
    const std::string most(kPage - 10, 'x');
    Write(most);
    Write("does not fit at all");
    EXPECT_EQ(ReadFile(kFile), most + "\n");
    EXPECT_THAT(Notices(), ElementsAre(EndsWith("No space left on device")));
    file_.reset();
    EXPECT_EQ(umount("/data/events"), 0);
}

TEST_F(EventFileTest, WhoKeepsTheFileKeepsNobodyWaiting) {
    Open();
    Write("one");
    base::unique_fd keeper(open(kFile, O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(keeper.get(), LOCK_EX), 0);
    for (size_t line = 0; line <= EventFile::kMostLines; ++line) file_->add("x");
    EXPECT_FALSE(file_->flush(milliseconds(1)));
    EXPECT_THAT(Notices(), ElementsAre("lines are lost, /data/events/log takes no more"));
    keeper.reset();
    ASSERT_TRUE(file_->flush(seconds(30)));
    Write("last");
    EXPECT_THAT(ReadFile(kFile), HasSubstr("{\"linesLost\":1}\n"));
    EXPECT_THAT(ReadFile(kFile), EndsWith("x\nlast\n"));
}

}  // namespace
}  // namespace android::vus::hotplug
