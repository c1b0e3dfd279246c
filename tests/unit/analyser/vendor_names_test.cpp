// SPDX-License-Identifier: Apache-2.0
//
// The system's database of USB ids, through the library that reads it. The database is a small one
// that the test writes: one pattern, one property.

#include "tools/workbench/vendor_names.h"

#include <stdint.h>
#include <sys/mount.h>

#include <string>

#include <gtest/gtest.h>

#include "tests/support/world.h"

namespace android::vus::workbench {
namespace {

std::string number(uint64_t value) {
    std::string bytes;
    for (int shift = 0; shift < 64; shift += 8) bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

// Header, one node without children, its value, and the texts that they point to.
std::string databaseOf(const std::string& pattern, const std::string& key,
                       const std::string& value) {
    constexpr uint64_t kHeader = 80, kNode = 24, kChild = 16, kValue = 16;
    constexpr uint64_t kTexts = kHeader + kNode + kValue;
    const std::string texts = std::string(1, '\0') + pattern + '\0' + key + '\0' + value + '\0';
    const uint64_t patternAt = kTexts + 1, keyAt = patternAt + pattern.size() + 1,
                   valueAt = keyAt + key.size() + 1;
    return "KSLPHHRH" + number(252) + number(kTexts + texts.size()) + number(kHeader) +
           number(kNode) + number(kChild) + number(kValue) + number(kHeader) +
           number(kNode + kValue) + number(texts.size()) +  // header
           number(patternAt) + number(0) + number(1) +      // node
           number(keyAt) + number(valueAt) +                // value
           texts;
}

// The configuration of a machine that has nothing but this, for as long as it lives.
class OwnEtc {
  public:
    OwnEtc() { EXPECT_EQ(mount("tmpfs", "/etc", "tmpfs", 0, "mode=755"), 0); }
    ~OwnEtc() { umount("/etc"); }
};

TEST(VendorNamesTest, AreThoseOfTheSystemsDatabase) {
    const OwnEtc etc;
    WriteFile("/etc/udev/hwdb.bin",
              databaseOf("usb:v0939*", " ID_VENDOR_FROM_DATABASE", "Example Devices"));
    const auto names = systemVendorNames();
    ASSERT_NE(names, nullptr);
    EXPECT_EQ(names->nameOf(0x0939), "Example Devices");
    EXPECT_EQ(names->nameOf(939), std::nullopt);
    EXPECT_EQ(names->nameOf(0), std::nullopt);
    EXPECT_EQ(names->nameOf(0x7FFFFFFF), std::nullopt);
}

TEST(VendorNamesTest, DatabaseThatIsNoneIsNone) {
    const OwnEtc etc;
    for (const std::string& content :
         {std::string(), std::string("KSLPHHRH"), std::string(200, 'x'), std::string(4096, '\0')}) {
        WriteFile("/etc/udev/hwdb.bin", content);
        const auto names = systemVendorNames();
        EXPECT_EQ(names, nullptr);
    }
}

}  // namespace
}  // namespace android::vus::workbench
