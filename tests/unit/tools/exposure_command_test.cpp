// SPDX-License-Identifier: Apache-2.0
//
// vusctl exposure: what the reporter's lines come to.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/stringprintf.h>

#include "tests/unit/tools/client_fixture.h"
#include "tools/hotplug/exposure.h"
#include "tools/vusctl/exposures.h"
#include "tools/workbench/json.h"

namespace android::vus::ctl {
namespace {

using hotplug::Exposure;
using hotplug::MeteredVerdict;
using hotplug::Unmeasured;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kFile[] = "/data/events";

// One that the gate refused, and that nothing ever had.
Exposure Refused(const std::string& entry, milliseconds appeared = milliseconds(5000)) {
    Exposure exposure;
    exposure.entry = entry;
    exposure.is_usb = true;
    exposure.vendor = 0x403;
    exposure.product = 0x6001;
    exposure.name = "Adapter";
    exposure.appeared.up = appeared;
    exposure.verdict = MeteredVerdict::kRefused;
    return exposure;
}

Exposure Allowed(const std::string& entry) {
    Exposure exposure = Refused(entry);
    exposure.verdict = MeteredVerdict::kAllowed;
    return exposure;
}

class ExposureTest : public ClientTest {
  protected:
    void SetUp() override {
        ClientTest::SetUp();
        NoDaemon();
    }

    void Write(const std::vector<Exposure>& exposures, const std::string& path = kFile) {
        std::string text;
        for (const Exposure& each : exposures) text += to_json(each) + "\n";
        WriteFile(path, text);
    }
    std::string Summary() {
        EXPECT_EQ(Run({"exposure", kFile}), kDone) << Err();
        return Out();
    }
};

TEST_F(ExposureTest, NothingWorked) {
    Write({Refused("1-5"), Refused("1-6"), Allowed("1-7")});
    EXPECT_EQ(Summary(), "3 devices, 2 refused, 0 ms exposed\n");
    EXPECT_EQ(Run({"exposure", kFile, "--fail-above", "0"}), kDone);
    WriteFile(kFile, "");
    EXPECT_EQ(Summary(), "0 devices, 0 refused, 0 ms exposed\n");
}

TEST_F(ExposureTest, TheWorstIsNamed) {
    Exposure one = Refused("1-5");
    one.exposed = microseconds(88400);
    Exposure other = Refused("1-6");
    other.exposed = milliseconds(10);
    Exposure early = Allowed("1-7");
    early.exposed = milliseconds(200);
    Write({one, other, early});
    EXPECT_EQ(Summary(),
              "3 devices, 2 refused, 98.4 ms exposed; worst: 1-5 0403:6001 \"Adapter\", 88.4 ms\n"
              "  allowed ones were in use before that for at most 200.0 ms: 1-7 0403:6001 "
              "\"Adapter\"\n");
    EXPECT_EQ(Run({"exposure", kFile, "--fail-above", "88"}), kRefused);
    EXPECT_EQ(Run({"exposure", kFile, "--fail-above", "89"}), kDone);
    EXPECT_EQ(Run({"exposure", kFile, "--json"}), kDone);
    std::string error;
    int line = 0;
    const auto value = workbench::parseJson(Out(), &error, &line);
    ASSERT_TRUE(value) << error;
    EXPECT_EQ((*value)["devices"].asInt(), 3);
    EXPECT_EQ((*value)["refused"].asInt(), 2);
    EXPECT_NEAR((*value)["exposedMs"].asDouble(), 98.4, 0.001);
    EXPECT_EQ((*value)["worst"]["entry"].asString(), "1-5");
    EXPECT_EQ((*value)["worstAllowed"]["entry"].asString(), "1-7");
}

TEST_F(ExposureTest, ALittleIsNotNothing) {
    Exposure one = Refused("1-5");
    one.exposed = microseconds(20);
    Write({one});
    EXPECT_THAT(Summary(), StartsWith("1 device, 1 refused, less than 0.1 ms exposed"));
    EXPECT_EQ(Run({"exposure", kFile, "--fail-above", "0"}), kRefused);
}

TEST_F(ExposureTest, ALaterLineReplacesAnEarlierOneOfTheSameDevice) {
    Exposure one = Refused("1-5");
    one.exposed = milliseconds(80);
    one.on = true;
    Write({one});
    EXPECT_THAT(Summary(), HasSubstr("1 without being allowed on when last heard of: 1-5"));
    EXPECT_EQ(Run({"exposure", kFile, "--fail-above", "100"}), kRefused);
    Exposure later = one;
    later.on = false;
    later.exposed = milliseconds(83);
    Exposure next = Refused("1-5", milliseconds(9000));  // another device at that port
    Write({one}, std::string(kFile) + ".1");
    Write({later, next});
    EXPECT_EQ(Summary(),
              "2 devices, 2 refused, 83.0 ms exposed; worst: 1-5 0403:6001 \"Adapter\", 83.0 ms\n");
}

TEST_F(ExposureTest, VerdictsOfOneDeviceCountByThemselves) {
    Exposure second = Refused("1-5");
    second.turn = 2;
    second.exposed = milliseconds(4);
    Exposure third = Allowed("1-5");
    third.turn = 3;
    Write({Allowed("1-5"), second, third});
    EXPECT_THAT(Summary(), StartsWith("1 device, 1 refused, 4.0 ms exposed"));
}

TEST_F(ExposureTest, WhatWasNotMeasuredIsSaid) {
    Exposure present = Refused("1-5");
    present.unmeasured = Unmeasured::kPresent;
    Exposure lost = Allowed("1-6");
    lost.unmeasured = Unmeasured::kLost;
    Exposure gone = Refused("1-7");
    gone.verdict = MeteredVerdict::kNone;
    gone.exposed = milliseconds(7);
    WriteFile(kFile, to_json(present) + "\n" + to_json(lost) + "\n" + to_json(gone) + "\n" +
                             hotplug::lost_events_json({}) + "\n{\"linesLost\":12}\n");
    EXPECT_EQ(Summary(),
              "3 devices, 1 refused, 1 not judged, 7.0 ms exposed; worst: 1-7 0403:6001 "
              "\"Adapter\", 7.0 ms\n"
              "  not measured: 1 of the refusals\n"
              "  there before, and not measured: 1\n"
              "  there while events were lost, and not measured: 1\n"
              "  events were lost, times: 1\n"
              "  lines that could not be written: 12\n");
}

TEST_F(ExposureTest, WhatIsNoLineIsCounted) {
    const std::string whole = to_json(Refused("1-5"));
    std::string text = whole + "\n\n" + whole.substr(0, 60) + "\n[]\n7\n{}\nnull\n" +
                       std::string(100'000, '[') + "\n\xff\xfe\n";
    for (const char* member : {"\"exposedMs\":-1", "\"exposedMs\":\"0\"", "\"turn\":1e99"}) {
        std::string wrong = whole;
        const std::string name = std::string(member).substr(0, std::string(member).find(':') + 1);
        const size_t at = wrong.find(name);
        ASSERT_NE(at, std::string::npos);
        wrong.replace(at, wrong.find(',', at) - at, member);
        text += wrong + "\n";
    }
    WriteFile(kFile, text + whole);  // the last line has no end
    EXPECT_EQ(Summary(), "1 device, 1 refused, 0 ms exposed\n  lines that are none: 10\n");
}

TEST_F(ExposureTest, NamesDoNotRuleTheTerminal) {
    Exposure one = Refused("1-5");
    one.exposed = milliseconds(1);
    std::string json = to_json(one);
    json.replace(json.find("Adapter"), 7, "\\u001b[2J\\u202e");
    WriteFile(kFile, json);
    EXPECT_THAT(Summary(), HasSubstr("\"?[2J?\""));
}

TEST_F(ExposureTest, AFileThatCannotBeReadIsAnError) {
    EXPECT_EQ(Run({"exposure", "/data/none"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot read /data/none: No such file or directory\n");
    EXPECT_EQ(Run({"exposure", "/data"}), kFailed);
    EXPECT_EQ(Err(), "vusctl: cannot read /data: Is a directory\n");
    EXPECT_EQ(Run({"exposure"}), kFailed);
    EXPECT_THAT(Err(), HasSubstr(kEventsFile));
    EXPECT_EQ(Run({"exposure", kFile, "x"}), kUsage);
    EXPECT_EQ(Run({"exposure", kFile, "--fail-above", "x"}), kUsage);
    EXPECT_THAT(Err(), StartsWith("vusctl: --fail-above takes a number of milliseconds"));
}

}  // namespace
}  // namespace android::vus::ctl
