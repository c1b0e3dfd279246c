// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/redact.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace android::vus::workbench {
namespace {

using testing::MatchesRegex;

// By a test case of RFC 4231, and the hash of nothing.
TEST(Digest, IsWhatOthersCompute) {
    EXPECT_EQ(KeyedHash("Jefe").of("what do ya want for nothing?"),
              "5bdcc146bf60754e6a042426089575c7");
    EXPECT_EQ(sha256Base64(""), "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
}

TEST(Digest, RandomKeysDiffer) {
    const auto one = KeyedHash::random(), other = KeyedHash::random();
    ASSERT_TRUE(one && other);
    EXPECT_NE(one->of("A-77"), other->of("A-77"));
    EXPECT_EQ(one->of("A-77"), one->of("A-77"));
}

Device Phone() {
    Device device;
    device.claim = {0, {6, 255}, 1, 2};
    device.id = 1005;
    device.name = device.productName = "Ann's phone";
    device.serial = "A1";
    return device;
}

TEST(Redaction, ReplacesWhatTellsWhoseADeviceIs) {
    const Redaction redaction{KeyedHash("key")};
    const Device redacted = redaction.of(Phone());
    EXPECT_THAT(redacted.name, MatchesRegex("name [0-9a-f]{32}"));
    EXPECT_EQ(redacted.productName, redacted.name);
    EXPECT_THAT(redacted.serial, MatchesRegex("serial [0-9a-f]{32}"));
    EXPECT_EQ(redacted.vendorName, "");
    // What the verdict depends on stays.
    EXPECT_EQ(redacted.claim.vendorId, 1);
    EXPECT_EQ(redacted.claim.interfaceClasses, Phone().claim.interfaceClasses);
    EXPECT_EQ(redacted.id, 1005);
}

TEST(Redaction, JoinsTheSameTextsUnderTheSameKeyOnly) {
    Device other = Phone();
    other.serial = "A2";
    const Redaction redaction{KeyedHash("key")};
    EXPECT_EQ(redaction.of(Phone()), Redaction(KeyedHash("key")).of(Phone()));
    EXPECT_EQ(redaction.of(other).name, redaction.of(Phone()).name);
    EXPECT_NE(redaction.of(other).serial, redaction.of(Phone()).serial);
    EXPECT_NE(redaction.of(Phone()).name, Redaction(KeyedHash("other")).of(Phone()).name);
}

// A device that has its serial number for a name must not tell which of the two it is.
TEST(Redaction, TellsTextsOfDifferentKindsApart) {
    Device device = Phone();
    device.name = device.vendorName = device.serial;
    const Device redacted = Redaction(KeyedHash("key")).of(device);
    const auto hash = [](const std::string& text) { return text.substr(text.find(' ')); };
    EXPECT_NE(hash(redacted.name), hash(redacted.serial));
    EXPECT_NE(hash(redacted.vendorName), hash(redacted.serial));
}

}  // namespace
}  // namespace android::vus::workbench
