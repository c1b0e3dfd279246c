// SPDX-License-Identifier: Apache-2.0
//
// What a reporter that was killed has closed is opened by the next one, and nothing else is.

#include "tools/hotplug/closings.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/file.h>

#include "tests/unit/tools/switching_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Subject kKeyboard = {"input5"};

class ClosingsTest : public testing::Test {
  protected:
    bool Earlier(const Subject& device) { return Closings(file_).take_earlier(device); }
    std::string Text() {
        std::string text;
        base::ReadFileToString(file_, &text);
        return text;
    }
    void Write(const std::string& text) {
        ASSERT_TRUE(base::WriteStringToFile(text, file_, 0600, geteuid(), getegid()));
    }

    TemporaryDir top_;
    const std::string directory_ = std::string(top_.path) + "/vus_hotplug";
    const std::string file_ = directory_ + "/closed";
};

TEST_F(ClosingsTest, WhatIsClosedIsKnownToTheNextReporter) {
    Closings closings(file_);
    closings.add(kStick);
    closings.add(kKeyboard);
    closings.add({"input6"});
    closings.remove({"input6"});
    EXPECT_FALSE(closings.take_earlier(kKeyboard)) << "that is this one's own";
    Closings next(file_);
    EXPECT_TRUE(next.take_earlier(kStick));
    EXPECT_FALSE(next.take_earlier(kStick)) << "once";
    EXPECT_FALSE(next.take_earlier({"1-3", 1005})) << "another port's";
    EXPECT_FALSE(next.take_earlier({"input6"}));
    EXPECT_TRUE(next.take_earlier(kKeyboard));
    EXPECT_TRUE(Earlier(kKeyboard)) << "it is still closed";
}

TEST_F(ClosingsTest, WhatHasGoneMeanwhileIsForgotten) {
    Closings(file_).add(kStick);
    Closings(file_).add(kKeyboard);
    Closings next(file_);
    next.add({"input9"});  // not present when everything was looked at
    next.keep_only({"input5"});
    EXPECT_EQ(Text(), "input5\ninput9\n");
}

TEST_F(ClosingsTest, LinksAreNotFollowed) {
    const std::string other = std::string(top_.path) + "/other";
    ASSERT_TRUE(base::WriteStringToFile("input5\n", other));
    mkdir(directory_.c_str(), 0700);
    ASSERT_EQ(symlink(other.c_str(), file_.c_str()), 0);
    ASSERT_EQ(symlink(other.c_str(), (file_ + ".new").c_str()), 0);
    Closings closings(file_);
    EXPECT_FALSE(closings.take_earlier(kKeyboard));
    closings.add(kStick);
    std::string text;
    base::ReadFileToString(other, &text);
    EXPECT_EQ(text, "input5\n");
    EXPECT_FALSE(std::filesystem::is_symlink(file_));
    EXPECT_TRUE(Earlier(kStick));
}

TEST_F(ClosingsTest, FileThatIsNoneOrTooLongIsNotRead) {
    mkdir(directory_.c_str(), 0700);
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);  // an open would wait
    EXPECT_FALSE(Earlier(kKeyboard));
    ASSERT_EQ(unlink(file_.c_str()), 0);
    Write("input5\n" + std::string(64 << 10, 'x'));
    EXPECT_FALSE(Earlier(kKeyboard));
    std::string most;
    for (int number = 0; number < 5000; ++number) most += std::to_string(number) + "\n";
    Write(std::string(100, 'y') + "\n\n\ninput5\n" + most);
    Closings closings(file_);
    EXPECT_TRUE(closings.take_earlier(kKeyboard));
    closings.add(kStick);
    closings.remove(kKeyboard);
    const std::string text = Text();
    EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 1024);
}

TEST_F(ClosingsTest, WithoutAPlaceNothingIsKept) {
    Closings closings(directory_ + "/none/closed");
    closings.add(kKeyboard);
    EXPECT_FALSE(Closings(directory_ + "/none/closed").take_earlier(kKeyboard));
}

// A reporter after another one.
class KilledReporterTest : public SwitchingTest {
  protected:
    void SetUp() override {
        SwitchingTest::SetUp();
        Restart();
    }
    // The one before did not open anything.
    void Restart() {
        reporter_.reset();
        closings_ = std::make_unique<Closings>(file_);
        auto manner = Manner(/*fail_closed=*/true);
        manner.closings = closings_.get();
        reporter_ = std::make_unique<Reporter>(&switches_, manner);
        switches_.Take();
    }
    void TearDown() override { reporter_.reset(); }

    TemporaryDir top_;
    const std::string file_ = std::string(top_.path) + "/vus_hotplug/closed";
    std::unique_ptr<Closings> closings_;
};

TEST_F(KilledReporterTest, WhatItClosedWithoutAnAnswerIsOpenedByAYes) {
    Judge(kKeyboard, Input(5, ""));
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), testing::UnorderedElementsAre("hush input5", "close 1-2"));
    Restart();
    reporter_->set_service(fake_);
    Judge(kKeyboard, Input(5, ""));
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), testing::UnorderedElementsAre("unhush input5", "open 1-2"));
    Restart();
    reporter_->set_service(fake_);
    Judge(kKeyboard, Input(5, ""));
    EXPECT_THAT(Switched(), IsEmpty()) << "from here on it is another's doing";
}

TEST_F(KilledReporterTest, WhatCameSilencedIsOpenedByAYes) {
    reporter_->came_silenced(kKeyboard);
    Restart();
    reporter_->set_service(fake_);
    Judge(kKeyboard, Input(5, ""));
    EXPECT_THAT(Switched(), ElementsAre("unhush input5"));
}

TEST_F(KilledReporterTest, RefusedInputDeviceIsOpenedUnderAnotherPolicy) {
    reporter_->set_service(fake_);
    Refuse(kKeyboard, Input(5, ""));
    Restart();
    reporter_->set_service(fake_);
    allows_ = true;
    Judge(kKeyboard, Input(5, ""));
    EXPECT_THAT(Switched(), ElementsAre("unhush input5"));
}

TEST_F(KilledReporterTest, WhatItClosedStaysClosedByANo) {
    Judge(kKeyboard, Input(5, ""));
    reporter_->drain();
    Restart();
    reporter_->set_service(fake_);
    allows_ = false;
    Judge(kKeyboard, Input(5, ""));
    EXPECT_THAT(Switched(), ElementsAre("hush input5"));
}

TEST_F(KilledReporterTest, WhatAnAdministratorClosedStaysClosed) {
    Judge(kKeyboard, Input(5, ""));
    reporter_->drain();
    Restart();
    reporter_->set_service(fake_);
    Judge({"input6"}, Input(6, ""));
    Judge({"1-3", 1005}, Usb(1005, {8}));
    EXPECT_THAT(Switched(), IsEmpty());
}

TEST_F(KilledReporterTest, WhatHasGoneIsNotKept) {
    Judge(kKeyboard, Input(5, ""));
    reporter_->drain();
    reporter_->removed(kKeyboard);
    Judge(kStick, Usb(1005, {8}));
    reporter_->drain();
    Restart();
    reporter_->keep_only({});
    EXPECT_FALSE(Closings(file_).take_earlier(kKeyboard));
    EXPECT_FALSE(Closings(file_).take_earlier(kStick));
}

}  // namespace
}  // namespace android::vus::hotplug
