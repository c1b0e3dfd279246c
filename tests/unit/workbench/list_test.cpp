// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace android::vus::workbench {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string Record(int vendor) {
    return "{\"deviceType\":0,\"vendorId\":" + std::to_string(vendor) +
           ",\"productId\":1,\"interfaceClassList\":[8],\"deviceName\":\"{[\\\"]}\\\\\"}";
}

struct ListOutcome {
    std::vector<int32_t> vendors;
    std::string error;
};

ListOutcome ReadList(const std::string& text) {
    std::istringstream in(text);
    ListOutcome outcome;
    outcome.error = readDevices(in, "list.json", [&outcome](const Device& device) {
        EXPECT_EQ(device.name, "{[\"]}\\");
        outcome.vendors.push_back(device.claim.vendorId);
    });
    return outcome;
}

TEST(List, IsAnArrayOrAnObjectALine) {
    const std::string one = Record(1), two = Record(2);
    for (const std::string& text :
         {"[" + one + "," + two + "]", "\n [\n" + one + ",\n" + two + "\n]\n", one + "\n" + two,
          one + "\r\n\n" + two + "\n\n", one + two}) {
        const ListOutcome outcome = ReadList(text);
        EXPECT_EQ(outcome.error, "") << text;
        EXPECT_THAT(outcome.vendors, ElementsAre(1, 2)) << text;
    }
}

TEST(List, MayBeEmpty) {
    for (const char* text : {"", "\n", "[]", " [ ]\n"}) {
        const ListOutcome outcome = ReadList(text);
        EXPECT_EQ(outcome.error, "") << text;
        EXPECT_THAT(outcome.vendors, IsEmpty());
    }
}

TEST(List, ErrorNamesFileAndLine) {
    const std::string one = Record(1);
    const std::pair<std::string, const char*> wrong[] = {
            {"x", "list.json:1: expected an object, which begins with {"},
            {"\n[\n1]", "list.json:3: expected an object, which begins with {"},
            {"[" + one + "\n", "list.json:2: the list ends without ]"},
            {"[" + one + ",", "list.json:1: the list ends without ]"},
            {"[", "list.json:1: the list ends without ]"},
            {"[" + one + "\n" + one + "]", "list.json:2: expected , or ]"},
            {"[," + one + "]", "list.json:1: expected an object, which begins with {"},
            {"[]\n\n[]", "list.json:3: there is more behind the list's end"},
            {one + "\n,", "list.json:2: expected an object, which begins with {"},
            {one + "\n\n{\"a\n", "list.json:3: the object is not closed"},
            {one + "\n{\n\"a\":]}", "list.json:3: Syntax error: value, object or array expected."},
            {one + "\n{\"deviceType\":0}", "list.json:2: vendorId is missing"},
    };
    for (const auto& [text, error] : wrong) EXPECT_EQ(ReadList(text).error, error) << text;
}

TEST(List, RecordsBeforeAnErrorAreTaken) {
    const ListOutcome outcome = ReadList(Record(5) + "\n?");
    EXPECT_THAT(outcome.vendors, ElementsAre(5));
    EXPECT_EQ(outcome.error, "list.json:2: expected an object, which begins with {");
}

TEST(List, RecordIsBounded) {
    const std::string endless = "{\"deviceName\":\"" + std::string(kLongestRecord, 'x');
    EXPECT_EQ(ReadList(endless).error, "list.json:1: the object is too long");
}

TEST(List, IsWrittenAnObjectALine) {
    std::ostringstream out;
    Device device;
    device.claim = {0, {8}, 1, 1};
    device.name = "{[\"]}\\";
    writeDevice(out, device);
    writeDevice(out, device);
    const std::string text = out.str();
    const ListOutcome outcome = ReadList(text);
    EXPECT_EQ(outcome.error, "");
    EXPECT_THAT(outcome.vendors, ElementsAre(1, 1));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

}  // namespace
}  // namespace android::vus::workbench
