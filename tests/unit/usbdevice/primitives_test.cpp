// SPDX-License-Identifier: Apache-2.0

// The sysfs primitives: values, bounds, and every message.

#include <errno.h>
#include <limits.h>

#include "usb_test.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PrimitivesTest : public UsbTest {
  protected:
    static constexpr char kFile[] = "/sys/value";

    // What read_sysfs_file_int makes of a text.
    static int32_t int_of(const std::string& text, int32_t base) {
        WriteFile(UsbPath("1-1", "number"), text);
        return UsbDevice::read_sysfs_file_int("1-1", "number", base);
    }
    // What read_sysfs_file_string makes of a text in a buffer of that size.
    static std::string string_of(const std::string& text, int32_t len) {
        WriteFile(UsbPath("1-1", "text"), text);
        std::string buffer(static_cast<size_t>(len) + 1, '#');
        UsbDevice::read_sysfs_file_string("1-1", "text", buffer.data(), len);
        EXPECT_EQ(buffer.back(), '#') << "wrote beyond the buffer";
        return buffer.c_str();
    }
    // An entry for which the path of `attribute` takes `length` characters and is still that of
    // `entry`.
    static std::string padded_entry(std::string entry, const std::string& attribute,
                                    size_t length) {
        const size_t rest = UsbPath(entry, attribute).size();
        EXPECT_LE(rest, length);
        if ((length - rest) % 2 != 0) entry += "/";
        while (UsbPath(entry, attribute).size() < length) entry += "/.";
        EXPECT_EQ(UsbPath(entry, attribute).size(), length);
        return entry;
    }
};

TEST_F(PrimitivesTest, AValueIsReadWithItsNewline) {
    WriteFile(kFile, "host\n");
    char buffer[64];
    memset(buffer, '#', sizeof(buffer));
    EXPECT_THAT(log_of([&] { EXPECT_EQ(UsbDevice::read_sysfs_val(kFile, buffer, 64), 5); }),
                IsEmpty());
    EXPECT_STREQ(buffer, "host\n");
}

TEST_F(PrimitivesTest, AValueIsCutToItsBuffer) {
    WriteFile(kFile, "12345678");
    char buffer[8] = {};
    EXPECT_EQ(UsbDevice::read_sysfs_val(kFile, buffer, 8), 7);
    EXPECT_STREQ(buffer, "1234567");
    char exact[9] = {};
    EXPECT_EQ(UsbDevice::read_sysfs_val(kFile, exact, 9), 8);
    EXPECT_STREQ(exact, "12345678");
}

TEST_F(PrimitivesTest, AValueThatCannotBeOpenedIsLoggedAndLeavesTheBuffer) {
    char buffer[8] = "before";
    EXPECT_THAT(log_of([&] { EXPECT_EQ(UsbDevice::read_sysfs_val("/sys/missing", buffer, 8), 0); }),
                ElementsAre("E Unable to open sysfs path for reading/sys/missing"));
    EXPECT_STREQ(buffer, "before");
}

TEST_F(PrimitivesTest, AnEmptyValueAndAFailedReadAreLoggedWithTheResult) {
    WriteFile(kFile, "");
    char buffer[8] = "before";
    EXPECT_THAT(log_of([&] { EXPECT_EQ(UsbDevice::read_sysfs_val(kFile, buffer, 8), 0); }),
                ElementsAre("E Unable to read from sysfs path0"));
    EXPECT_THAT(log_of([&] { EXPECT_EQ(UsbDevice::read_sysfs_val("/sys", buffer, 8), 0); }),
                ElementsAre("E Unable to read from sysfs path-1"));
    EXPECT_STREQ(buffer, "before");
}

TEST_F(PrimitivesTest, ABufferWithoutRoomForAByteReadsNothing) {
    WriteFile(kFile, "host\n");
    char buffer[2] = {'#', '#'};
    for (const uint64_t len : {1, 0}) {
        EXPECT_THAT(log_of([&] { EXPECT_EQ(UsbDevice::read_sysfs_val(kFile, buffer, len), 0); }),
                    ElementsAre("E Unable to read from sysfs path0"));
        EXPECT_EQ(buffer[0], '#');
    }
}

TEST_F(PrimitivesTest, ExactlyTheGivenBytesAreWrittenOverTheOldOnes) {
    WriteFile(kFile, "hostess\n");
    EXPECT_THAT(log_of([] { EXPECT_EQ(UsbDevice::write_sysfs_val(kFile, "none!", 4), 4); }),
                IsEmpty());
    EXPECT_EQ(ReadFile(kFile), "noneess\n");
}

TEST_F(PrimitivesTest, AWriteToAMissingFileIsLoggedWithTwoBlanksAndCreatesNothing) {
    EXPECT_THAT(log_of([] { EXPECT_EQ(UsbDevice::write_sysfs_val("/sys/missing", "1", 1), 0); }),
                ElementsAre("E Unable to open  sysfs path for writing/sys/missing"));
    EXPECT_FALSE(std::filesystem::exists("/sys/missing"));
}

TEST_F(PrimitivesTest, AFailedWriteIsLoggedWithTheResult) {
    WriteFile(kFile, "host");
    EXPECT_THAT(log_of([] { EXPECT_EQ(UsbDevice::write_sysfs_val(kFile, "1", 0), 0); }),
                ElementsAre("E Unable to write to sysfs path0"));
    // No file takes a value from nowhere.
    EXPECT_THAT(log_of([] { EXPECT_EQ(UsbDevice::write_sysfs_val(kFile, nullptr, 4), 0); }),
                ElementsAre("E Unable to write to sysfs path-1"));
    EXPECT_EQ(ReadFile(kFile), "host");
}

TEST_F(PrimitivesTest, ALogLineKeepsTheErrorNumber) {
    android::base::SetLogger([](android::base::LogId, android::base::LogSeverity, const char*,
                                const char*, unsigned int, const char*) { errno = EXDEV; });
    char buffer[8];
    errno = 0;
    UsbDevice::read_sysfs_val("/sys/missing", buffer, sizeof(buffer));
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    UsbDevice::read_sysfs_val("/sys", buffer, sizeof(buffer));
    EXPECT_EQ(errno, EISDIR);
    errno = 0;
    UsbDevice::write_sysfs_val("/sys", "1", 1);
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(PrimitivesTest, NumbersAreReadInTheirBase) {
    const struct {
        const char* text;
        int32_t base;
        int32_t value;
    } cases[] = {
            {"1d6b\n", 16, 7531},
            {"480\n", 10, 480},
            {" 2\n", 16, 2},
            {"0002\n", 16, 2},
            {"12ab", 10, 12},
            {"", 10, 0},
            {"\n", 10, 0},
            {"none\n", 10, 0},
            {"5000.5\n", 10, 5000},
            {"ffffffff\n", 16, -1},
            {"7fffffff\n", 16, INT32_MAX},
            {"4294967295\n", 10, -1},
            {"4294967296\n", 10, 0},
            {"1 2\n", 10, 1},
            {"7\n8\n", 10, 7},
    };
    for (const auto& [text, base, value] : cases) {
        EXPECT_EQ(stderr_of(
                          [&, t = text, b = base, v = value] { EXPECT_EQ(int_of(t, b), v) << t; }),
                  "");
    }
}

TEST_F(PrimitivesTest, ANumberEndsAfterElevenCharacters) {
    EXPECT_EQ(int_of("0000000000123", 10), 1);
    EXPECT_EQ(int_of("000000000012", 10), 1);
    EXPECT_EQ(int_of("00000000012", 10), 12);
    EXPECT_EQ(int_of(std::string(10000, '1'), 10), static_cast<int32_t>(11111111111));
    EXPECT_EQ(int_of(std::string("12\0003", 4), 10), 12);
}

TEST_F(PrimitivesTest, AMissingNumberIsReportedWithItsPath) {
    MakeDir(UsbPath("1-1"));
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(UsbDevice::read_sysfs_file_int("1-1", "devnum", 10), 0); }),
              "/sys/bus/usb/devices/1-1/devnum: No such file or directory\n");
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(UsbDevice::read_sysfs_file_int("1-2", "devnum", 10), 0); }),
              "/sys/bus/usb/devices/1-2/devnum: No such file or directory\n");
}

TEST_F(PrimitivesTest, ANumberThatCannotBeReadIsReportedWithItsPath) {
    MakeDir(UsbPath("1-1", "devnum"));
    WriteFile(UsbPath("1-2"), "a file where a directory is expected");
    link("loop", UsbPath("1-3"));
    link("1-3", UsbPath("loop"));
    const struct {
        const char* entry;
        const char* error;
    } cases[] = {{"1-1", "Is a directory"},
                 {"1-2", "Not a directory"},
                 {"1-3", "Too many levels of symbolic links"}};
    for (const auto& [entry, error] : cases) {
        EXPECT_EQ(stderr_of([e = entry] {
                      EXPECT_EQ(UsbDevice::read_sysfs_file_int(e, "devnum", 10), 0);
                  }),
                  UsbPath(entry, "devnum") + ": " + error + "\n");
    }
}

TEST_F(PrimitivesTest, AnOverlongPathOfANumberIsCut) {
    WriteFile(UsbPath("1-1", "devnum"), "12\n");
    WriteFile(UsbPath("1-1", "devnu"), "34\n");
    const std::string fits = padded_entry("1-1", "devnum", 4095);
    EXPECT_EQ(UsbDevice::read_sysfs_file_int(fits.c_str(), "devnum", 10), 12);
    const std::string cut = padded_entry("1-1", "devnum", 4096);
    EXPECT_EQ(UsbDevice::read_sysfs_file_int(cut.c_str(), "devnum", 10), 34);
    const std::string hopeless(5000, 'x');
    EXPECT_EQ(stderr_of([&] { UsbDevice::read_sysfs_file_int("1-1", hopeless.c_str(), 10); }),
              UsbPath("1-1", hopeless).substr(0, 4095) + ": File name too long\n");
}

TEST_F(PrimitivesTest, ATextIsOneLine) {
    EXPECT_EQ(string_of("100mA\n", 64), "100mA");
    EXPECT_EQ(string_of("A\nB\n\n", 64), "A B");
    EXPECT_EQ(string_of("\nA\n\n\nB", 64), " A   B");
    EXPECT_EQ(string_of("\n\n\n", 64), "");
    EXPECT_EQ(string_of("", 64), "");
    EXPECT_EQ(string_of(" 2.00\r\n", 64), " 2.00\r");
    EXPECT_EQ(string_of("\xff\x01\x1b[31m", 64), "\xff\x01\x1b[31m");
    EXPECT_EQ(string_of(std::string("A\0B\n", 4), 64), "A");
}

TEST_F(PrimitivesTest, ATextWithoutRoomForItsTerminatorIsEmpty) {
    EXPECT_EQ(string_of(std::string(63, 'a'), 64), std::string(63, 'a'));
    EXPECT_EQ(string_of(std::string(62, 'a') + "\n", 64), std::string(62, 'a'));
    EXPECT_EQ(string_of(std::string(63, 'a') + "\n", 64), "");
    EXPECT_EQ(string_of(std::string(64, 'a'), 64), "");
    EXPECT_EQ(string_of(std::string(65, 'a'), 64), "");
    EXPECT_EQ(string_of(std::string(100000, 'a'), 64), "");
    EXPECT_EQ(string_of("a", 1), "");
}

TEST_F(PrimitivesTest, ABufferWithoutBytesIsLeftAlone) {
    WriteFile(UsbPath("1-1", "text"), "text\n");
    char byte = '#';
    for (const int32_t len : {0, -1, INT_MIN}) {
        UsbDevice::read_sysfs_file_string("1-1", "text", &byte, len);
        EXPECT_EQ(byte, '#');
    }
}

TEST_F(PrimitivesTest, ATextThatCannotBeReadIsSilentlyEmpty) {
    MakeDir(UsbPath("1-1", "product"));
    WriteFile(UsbPath("1-2"), "a file where a directory is expected");
    for (const char* entry : {"1-1", "1-2", "1-3"}) {
        char buffer[64] = "before";
        EXPECT_EQ(stderr_of([&] {
                      EXPECT_THAT(log_of([&] {
                                      UsbDevice::read_sysfs_file_string(entry, "product", buffer,
                                                                        64);
                                  }),
                                  IsEmpty());
                  }),
                  "");
        EXPECT_STREQ(buffer, "");
    }
}

TEST_F(PrimitivesTest, AnOverlongPathOfATextIsEmpty) {
    WriteFile(UsbPath("1-1", "product"), "whole\n");
    WriteFile(UsbPath("1-1", "produc"), "cut\n");
    char buffer[64] = "before";
    const std::string fits = padded_entry("1-1", "product", 4095);
    UsbDevice::read_sysfs_file_string(fits.c_str(), "product", buffer, 64);
    EXPECT_STREQ(buffer, "whole");
    const std::string cut = padded_entry("1-1", "product", 4096);
    UsbDevice::read_sysfs_file_string(cut.c_str(), "product", buffer, 64);
    EXPECT_STREQ(buffer, "");
}

TEST_F(PrimitivesTest, ATextIsSplitAtEachDelimiter) {
    EXPECT_THAT(UsbDevice::split("a,,b\n,", ','), ElementsAre("a", "", "b"));
    EXPECT_THAT(UsbDevice::split("", ','), IsEmpty());
    EXPECT_THAT(UsbDevice::split(",", ','), ElementsAre(""));
    EXPECT_THAT(UsbDevice::split(",a", ','), ElementsAre("", "a"));
    EXPECT_THAT(UsbDevice::split("a", ','), ElementsAre("a"));
    EXPECT_THAT(UsbDevice::split("\na\nb\n", ','), ElementsAre("ab"));
    EXPECT_THAT(UsbDevice::split("\n", ','), ElementsAre(""));
    EXPECT_THAT(UsbDevice::split("a\nb\n", '\n'), ElementsAre("a", "b"));
    EXPECT_THAT(UsbDevice::split("/soc@0/ssusb@a600000/dwc3@a600000\n", '/'),
                ElementsAre("", "soc@0", "ssusb@a600000", "dwc3@a600000"));
}

}  // namespace
}  // namespace android::vus
