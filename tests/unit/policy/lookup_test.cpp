// SPDX-License-Identifier: Apache-2.0

// Names and codes, and the questions that a decision puts to the tables.

#include <limits.h>

#include "policy_test.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct NamedCode {
    int32_t code;
    const char* name;
    bool restricted = false;
};

// The whole vocabulary, written a second time: a name or a code that changes breaks the policies
// that are in the field.
constexpr NamedCode kVocabulary[] = {
        {0, "USB_CLASS_PER_INTERFACE", true},
        {1, "USB_CLASS_AUDIO"},
        {2, "USB_CLASS_COMM"},
        {3, "USB_CLASS_HID", true},
        {5, "USB_CLASS_PHYSICA"},
        {6, "USB_CLASS_STILL_IMAGE"},
        {7, "USB_CLASS_PRINTER"},
        {8, "USB_CLASS_MASS_STORAGE"},
        {9, "USB_CLASS_HUB", true},
        {10, "USB_CLASS_CDC_DATA"},
        {11, "USB_CLASS_CSCID"},
        {13, "USB_CLASS_CONTENT_SEC"},
        {14, "USB_CLASS_VIDEO"},
        {224, "USB_CLASS_WIRELESS_CONTROLLER"},
        {239, "USB_CLASS_MISC", true},
        {254, "USB_CLASS_APP_SPEC", true},
        {255, "USB_CLASS_VENDOR_SPEC", true},
        {256, "AINPUT_SOURCE_KEYBOARD"},
        {512, "AINPUT_SOURCE_DPAD"},
        {1024, "AINPUT_SOURCE_GAMEPAD"},
        {4096, "AINPUT_SOURCE_TOUCHSCREEN"},
        {8192, "AINPUT_SOURCE_MOUSE"},
        {16384, "AINPUT_SOURCE_STYLUS"},
        {65536, "AINPUT_SOURCE_TRACKBALL"},
        {131072, "AINPUT_SOURCE_MOUSE_RELATIVE"},
        {1048576, "AINPUT_SOURCE_TOUCHPAD"},
        {2097152, "AINPUT_SOURCE_TOUCH_NAVIGATION"},
        {4194304, "AINPUT_SOURCE_ROTARY_ENCODER"},
        {16777216, "AINPUT_SOURCE_JOYSTICK"},
};

constexpr uint32_t kNotAName = 0xFFFFFFFF;

class LookupTest : public PolicyTest {};

TEST_F(LookupTest, TheTablesAreThereBeforeMain) {
    EXPECT_THAT(Util::restrictedClassList, ElementsAre(0, 3, 9, 239, 254, 255));
    std::map<int32_t, std::string> sources;
    for (const NamedCode& row : kVocabulary) {
        if (row.code > 255) sources.emplace(row.code, row.name);
    }
    EXPECT_EQ(sources.size(), 12u);
    EXPECT_EQ(Util::inputSourceMap, sources);
    EXPECT_STREQ(Util::statusFilePath, "/data/system/usbdeviceconfig/status.txt");
}

TEST_F(LookupTest, NamesAndCodesStandForEachOther) {
    for (const NamedCode& row : kVocabulary) {
        EXPECT_EQ(Util::convert(row.name), static_cast<uint32_t>(row.code)) << row.name;
        EXPECT_EQ(Util::getClassName(row.code), row.name);
    }
}

TEST_F(LookupTest, OnlyAnExactNameHasACode) {
    for (const NamedCode& row : kVocabulary) {
        const std::string name = row.name;
        std::string lower = name;
        for (char& c : lower) c = static_cast<char>(tolower(c));
        for (const std::string& text :
             {lower, " " + name, name + " ", name + "\n", name + "S", name.substr(1),
              name.substr(0, name.size() - 1), name + std::string(1, '\0')}) {
            EXPECT_EQ(Util::convert(text), kNotAName) << text;
        }
    }
    for (const char* text : {"USB_CLASS_PHYSICAL", "", " ", "8", "0x08", "-1", "4294967295",
                             "USB_CLASS_", "AINPUT_SOURCE_", "*"}) {
        EXPECT_EQ(Util::convert(text), kNotAName) << text;
    }
    EXPECT_EQ(Util::convert(std::string(300, 'A')), kNotAName);
}

TEST_F(LookupTest, ACodeWithoutANameIsABlank) {
    std::map<int32_t, std::string> names;
    for (const NamedCode& row : kVocabulary) names.emplace(row.code, row.name);
    std::vector<int32_t> codes = {-1, INT_MIN, INT_MAX, 257, 0x101, 0x1000001, 0x800000, 0x2100};
    for (int32_t code = 0; code < 70000; ++code) codes.push_back(code);
    for (int bit = 0; bit < 31; ++bit) codes.push_back(1 << bit);
    for (const int32_t code : codes) {
        const auto known = names.find(code);
        EXPECT_EQ(Util::getClassName(code), known == names.end() ? " " : known->second) << code;
    }
}

TEST_F(LookupTest, NamesAndModeAreLookedUpInSilence) {
    EXPECT_THAT(LogOf([] {
                    Util::convert("USB_CLASS_AUDIO");
                    Util::convert("nothing");
                    Util::getClassName(8);
                    Util::getClassName(4);
                    Util::getMode();
                }),
                IsEmpty());
}

TEST_F(LookupTest, ANumberIsDigitsAndNothingElse) {
    const std::vector<std::string> numbers = {"0",          "7",          "007",
                                              "1234567890", "2147483648", std::string(5000, '9')};
    const std::vector<std::string> others = {"",         "-1",
                                             "+1",       " 12",
                                             "12 ",      "1a",
                                             "a1",       "0x10",
                                             "1.0",      "1e3",
                                             "1 2",      "1\n",
                                             "\xD9\xA3", "\xEF\xBC\x91",
                                             "/",        ":",
                                             ";",        "\xB2",
                                             "\x80",     "1\x80",
                                             "\t1",      std::string(5000, '9') + "/"};
    for (const std::string& text : numbers) EXPECT_TRUE(Util::isValidNumber(text)) << text;
    for (const std::string& text : others) EXPECT_FALSE(Util::isValidNumber(text)) << text;
    EXPECT_FALSE(Util::isValidNumber(std::string("1\0", 2)));
}

TEST_F(LookupTest, TheCheckOfANumberIsLoggedWhateverComesOfIt) {
    EXPECT_THAT(LogOf([] { Util::isValidNumber("007"); }), ElementsAre("I isValidNumber s--007"));
    EXPECT_THAT(LogOf([] { Util::isValidNumber("1a"); }), ElementsAre("I isValidNumber s--1a"));
    EXPECT_THAT(LogOf([] { Util::isValidNumber(""); }), ElementsAre("I isValidNumber s--"));
    EXPECT_THAT(LogOf([] { Util::isValidNumber("1\n2"); }), ElementsAre("I isValidNumber s--1\n2"));
    const base::ScopedLogSeverity only_warnings(base::WARNING);
    EXPECT_THAT(LogOf([] { Util::isValidNumber("7"); }), ElementsAre());
}

TEST_F(LookupTest, RestrictedClasses) {
    for (uint32_t code = 0; code < 1000; ++code) {
        const bool restricted =
                code == 0 || code == 3 || code == 9 || code == 239 || code == 254 || code == 255;
        const Strings log =
                LogOf([&] { EXPECT_EQ(Util::validateRestrictedClass(code), restricted) << code; });
        EXPECT_EQ(log, restricted ? Strings{"I Found CLASS : " + std::to_string(code) +
                                            " in restricted class list"}
                                  : Strings{});
    }
    for (const NamedCode& row : kVocabulary) {
        EXPECT_EQ(Util::validateRestrictedClass(static_cast<uint32_t>(row.code)), row.restricted);
    }
    EXPECT_FALSE(Util::validateRestrictedClass(0xFFFFFFFF));
    EXPECT_FALSE(Util::validateRestrictedClass(0x80000000));
}

TEST_F(LookupTest, ListedClasses) {
    SetPolicy("whitelist", {8, 256, 8}, {}, {});
    EXPECT_THAT(LogOf([] { EXPECT_TRUE(Util::validateClass(8)); }),
                ElementsAre("I Found CLASS : 8 in admin config list"));
    EXPECT_THAT(LogOf([] { EXPECT_TRUE(Util::validateClass(256)); }),
                ElementsAre("I Found CLASS : 256 in admin config list"));
    for (const uint32_t code : {0u, 1u, 7u, 9u, 255u, 257u, 0x80000008u, 0xFFFFFFFFu}) {
        EXPECT_THAT(LogOf([&] { EXPECT_FALSE(Util::validateClass(code)) << code; }), IsEmpty());
    }
    SetPolicy("whitelist", {}, {{8, "only classList counts"}}, {});
    EXPECT_FALSE(Util::validateClass(8));
}

struct VendorCase {
    std::multimap<int32_t, int32_t> rules;
    std::vector<int32_t> listed;
    std::vector<int32_t> unlisted;
};

TEST_F(LookupTest, AVendorCountsAsWholeIfItOrAHigherOneIs) {
    const std::vector<VendorCase> cases = {
            {{}, {}, {0, 100, -1}},
            {{{100, 5}, {200, -1}}, {100, 200}, {150, 300, 99, 101, 199, 201, 0, -1}},
            {{{100, -1}, {200, 5}}, {100}, {200, 150, 99}},
            {{{100, 5}, {200, 6}, {300, 7}}, {}, {100, 200, 300}},
            {{{100, 5}, {100, -1}, {100, 6}}, {100}, {99, 101}},
            {{{1, 1}, {2, 2}, {3, 3}, {4, -1}, {5, 5}}, {1, 2, 3, 4}, {0, 5, 6}},
            {{{0, -1}, {INT_MAX, -1}}, {0, INT_MAX}, {1, INT_MAX - 1, INT_MIN}},
            {{{0, 1}, {INT_MAX, 2}}, {}, {0, INT_MAX}},
    };
    for (const VendorCase& test : cases) {
        SetPolicy("whitelist", {}, {}, test.rules);
        for (const int32_t vid : test.listed) {
            EXPECT_THAT(LogOf([&] { EXPECT_TRUE(Util::validateVid(vid)) << vid; }),
                        ElementsAre("I Found VID : " + std::to_string(vid) +
                                    " without any pid associated inside admin config list."));
        }
        for (const int32_t vid : test.unlisted) {
            EXPECT_THAT(LogOf([&] { EXPECT_FALSE(Util::validateVid(vid)) << vid; }), IsEmpty());
        }
    }
}

TEST_F(LookupTest, AVendorAndProductMatchAsAPair) {
    SetPolicy("whitelist", {}, {}, {{0, 0}, {100, 5}, {100, 7}, {200, -1}, {INT_MAX, INT_MAX}});
    const std::vector<std::pair<int32_t, int32_t>> listed = {{0, 0},
                                                             {100, 5},
                                                             {100, 7},
                                                             {200, -1},
                                                             {INT_MAX, INT_MAX}};
    const std::vector<std::pair<int32_t, int32_t>> unlisted = {{100, 6}, {100, -1},   {200, 5},
                                                               {5, 100}, {0, 1},      {-1, -1},
                                                               {150, 5}, {INT_MAX, 0}};
    for (const auto& [vid, pid] : listed) {
        EXPECT_THAT(LogOf([vid = vid, pid = pid] {
                        EXPECT_TRUE(Util::validateVidPid(vid, pid)) << vid << " " << pid;
                    }),
                    ElementsAre("I Found VID_PID : " + std::to_string(vid) + "_" +
                                std::to_string(pid) + " combination inside admin config list"));
    }
    for (const auto& [vid, pid] : unlisted) {
        EXPECT_THAT(LogOf([vid = vid, pid = pid] {
                        EXPECT_FALSE(Util::validateVidPid(vid, pid)) << vid << " " << pid;
                    }),
                    IsEmpty());
    }
}

TEST_F(LookupTest, AWholeVendorIsFoundAsAPairToo) {
    SetPolicy("whitelist", {}, {}, {{100, -1}});
    EXPECT_TRUE(Util::validateVidPid(100, -1));
}

TEST_F(LookupTest, TheModeIsACopy) {
    Util::configMode = "blacklist";
    std::string mode = Util::getMode();
    mode += " changed";
    EXPECT_EQ(Util::configMode, "blacklist");
    EXPECT_EQ(Util::getMode(), "blacklist");
}

struct SourceCase {
    int32_t key;
    std::vector<int32_t> sources;
    Strings log;
};

TEST_F(LookupTest, SourceBitsAreSplitIntoSources) {
    const std::vector<SourceCase> cases = {
            {0x101,
             {256},
             {"I checkMultiClass key_val257", "I checkMultiClass--256", "I Key found"}},
            {0x2103,
             {256, 8192},
             {"I checkMultiClass key_val8451", "I checkMultiClass--8448", "I Key not found"}},
            {0, {}, {"I checkMultiClass key_val0", "I checkMultiClass--0", "I Key not found"}},
            {255, {}, {"I checkMultiClass key_val255", "I checkMultiClass--0", "I Key not found"}},
            {256, {256}, {"I checkMultiClass key_val256", "I checkMultiClass--256", "I Key found"}},
            {0x1000010,
             {0x1000000},
             {"I checkMultiClass key_val16777232", "I checkMultiClass--16777216", "I Key found"}},
            // A bit that is no source is passed over.
            {0x900,
             {256},
             {"I checkMultiClass key_val2304", "I checkMultiClass--2304", "I Key not found"}},
            {0x800,
             {},
             {"I checkMultiClass key_val2048", "I checkMultiClass--2048", "I Key not found"}},
            {-1,
             {0x100, 0x200, 0x400, 0x1000, 0x2000, 0x4000, 0x10000, 0x20000, 0x100000, 0x200000,
              0x400000, 0x1000000},
             {"I checkMultiClass key_val-1", "I checkMultiClass---256", "I Key not found"}},
            {INT_MIN,
             {},
             {"I checkMultiClass key_val-2147483648", "I checkMultiClass---2147483648",
              "I Key not found"}},
    };
    for (const SourceCase& test : cases) {
        EXPECT_EQ(LogOf([&] { EXPECT_EQ(Util::checkMultiClass(test.key), test.sources); }),
                  test.log)
                << test.key;
    }
}

TEST_F(LookupTest, EverySetOfSourcesIsSplit) {
    std::vector<int32_t> sources;
    for (const NamedCode& row : kVocabulary) {
        if (row.code > 255) sources.push_back(row.code);
    }
    for (uint32_t set = 0; set < 1u << sources.size(); ++set) {
        std::vector<int32_t> chosen;
        int32_t key = 0x5A;  // the bits of the source class do not matter
        for (size_t i = 0; i < sources.size(); ++i) {
            if ((set >> i & 1) == 0) continue;
            chosen.push_back(sources[i]);
            key |= sources[i];
        }
        EXPECT_EQ(Util::checkMultiClass(key), chosen) << key;
    }
}

}  // namespace
}  // namespace android::vus
