// SPDX-License-Identifier: Apache-2.0

// The loader beside its table: documents that cannot be read, sizes, and what runs meanwhile.

#include <limits.h>
#include <sys/stat.h>
#include <tinyxml2.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <shared_mutex>
#include <thread>

#include "loader_test.h"
#include "tests/support/waiting.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

TEST_F(LoaderTest, EveryOtherModeIsInvalidAndKept) {
    for (const std::string mode : {"", " ", "Default", "WHITELIST", "default ", " blacklist",
                                   "whitelist,blacklist", "none", "\xE2\x9C\x93"}) {
        SCOPED_TRACE(mode);
        WriteFile(kStatusFile, kUntouched);
        EXPECT_THAT(LogOf([&] { Load(PolicyXml(mode, "<class>USB_CLASS_AUDIO</class>")); }),
                    ElementsAre("I attribute--" + mode, Written("INVALID MODE"),
                                "E Invalid mode is set in xml--INVALID MODE"));
        EXPECT_FALSE(Util::xml_parse_status);
        EXPECT_EQ(Util::configMode, mode);
        EXPECT_EQ(Util::statusMessage, "INVALID MODE");
        EXPECT_EQ(ReadFile(kStatusFile), "INVALID MODE");
        ExpectEmptyTables();
    }
}

// Line ends of any kind reach the status file as line feeds. The log cuts them into lines.
TEST_F(LoaderTest, LineEndsBecomeLineFeeds) {
    EXPECT_THAT(LogOf([] { Load(Whitelist("<class>a\r\nb\rc</class>")); }),
                ElementsAre("I attribute--whitelist", "E error in class val= INVALID CLASS VALUE:a",
                            "E b", "E c", Written("INVALID CLASS VALUE:a"), "I b", "I c"));
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID CLASS VALUE:a\nb\nc");
}

// The one success that writes the status file, and it writes what an earlier load left.
TEST_F(LoaderTest, AListWithoutRulesWritesTheStaleStatus) {
    for (const std::string mode : {"whitelist", "blacklist"}) {
        for (const std::string content : {"", "<!-- none -->", "text", " \n "}) {
            WriteFile(kStatusFile, kUntouched);
            EXPECT_THAT(LogOf([&] { Load(PolicyXml(mode, content)); }),
                        ElementsAre("I attribute--" + mode, "I no element, blocking all device",
                                    Written(kOldStatus)));
            EXPECT_TRUE(Util::xml_parse_status);
            EXPECT_EQ(Util::configMode, mode);
            EXPECT_EQ(Util::statusMessage, kOldStatus);
            EXPECT_EQ(ReadFile(kStatusFile), kOldStatus);
            ExpectEmptyTables();
        }
    }
}

TEST_F(LoaderTest, TheStaleStatusIsTheLastFailure) {
    Load(Whitelist("<x/>"));
    Load(Whitelist(""));
    EXPECT_TRUE(Util::xml_parse_status);
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID TAG:x");
}

TEST_F(LoaderTest, EveryNameIsAcceptedUnlessItIsRestricted) {
    size_t accepted = 0;
    for (int32_t code = 0; code < 0x2000000; code = code < 256 ? code + 1 : code * 2) {
        const std::string name = Util::getClassName(code);
        if (name == " ") continue;
        Load(Whitelist("<class>" + name + "</class>"));
        const bool restricted = code == 0 || code == 3 || code == 9 || code >= 239;
        if (restricted && code < 256) {
            EXPECT_FALSE(Util::xml_parse_status) << name;
            EXPECT_EQ(ReadFile(kStatusFile), "INVALID CLASS VALUE:" + name);
            ExpectEmptyTables();
            continue;
        }
        ++accepted;
        EXPECT_TRUE(Util::xml_parse_status) << name;
        EXPECT_THAT(Util::classList, ElementsAre(code));
        EXPECT_EQ(Util::classMap, (Names{{code, name}}));
    }
    EXPECT_EQ(accepted, 23u);
}

// A file that the XML library itself refuses. Its words go to the status file only.
class UnreadableTest : public LoaderTest {
  protected:
    void ExpectLibraryError(const std::string& path) {
        tinyxml2::XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);
        document.LoadFile(path.c_str());
        ASSERT_TRUE(document.Error()) << "the library reads it";
        SetPolicy(kOldMode, {77}, {{77, "old"}}, {{77, 78}});
        Util::xml_parse_status = true;
        WriteFile(kStatusFile, kUntouched);
        EXPECT_THAT(LogOf([&] { Util::createMapFromConfig(path); }),
                    ElementsAre("E xmlinput --Found error " +
                                        std::to_string(static_cast<int>(document.ErrorID())) +
                                        " name: " + document.ErrorName(),
                                std::string("E xmlinput -- error string ") + document.ErrorStr(),
                                Written(document.ErrorStr())));
        EXPECT_FALSE(Util::xml_parse_status);
        EXPECT_EQ(Util::configMode, kOldMode);
        EXPECT_EQ(Util::statusMessage, kOldStatus);
        EXPECT_EQ(ReadFile(kStatusFile), document.ErrorStr());
        ExpectEmptyTables();
    }
};

TEST_F(UnreadableTest, AMissingFile) {
    ExpectLibraryError(kPolicyFile);
    EXPECT_THAT(ReadFile(kStatusFile), HasSubstr("XML_ERROR_FILE_NOT_FOUND"));
    EXPECT_THAT(ReadFile(kStatusFile), HasSubstr(kPolicyFile));
}

TEST_F(UnreadableTest, PathsThatAreNoFile) {
    MakeDir("/data/a-directory");
    for (const std::string path : {"", "/", "/data/a-directory", "/data/nowhere/file"}) {
        SCOPED_TRACE(path);
        ExpectLibraryError(path);
    }
    ExpectLibraryError("/data/" + std::string(300, 'n'));
}

TEST_F(UnreadableTest, EveryBrokenDocument) {
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "<a>";
    const std::string whole =
            Whitelist("<class>USB_CLASS_AUDIO</class><vid vendorid=\"5\"><pid>7</pid></vid>");
    std::vector<std::string> documents = {
            "",
            " \n\t",
            "\xEF\xBB\xBF",
            "text",
            "<",
            "<>",
            "<usbconfig",
            "<usbconfig mode=\"default\"></usbConfig>",
            "<usbconfig mode=default/>",
            "<usbconfig mode=\"default/>",
            "<usbconfig mode=\"whitelist\" mode=\"default\"/>",
            Whitelist("<class>USB_CLASS_AUDIO"),
            Whitelist("<class>USB_CLASS_AUDIO</class") + ">",
            PolicyXml("default", "<!-- not closed"),
            PolicyXml("default", "<![CDATA[not closed"),
            PolicyXml("default", "<?late declaration?>"),
            std::string("<usbconfig \0 mode=\"default\"/>", 29),
            std::string("\xFF\xFE<\0u\0", 6),
            "\x7F"
            "ELF",
            deep,
            Whitelist("<class>USB_CLASS_AUDIO</class>" + deep),
    };
    // Cut short anywhere.
    for (size_t length = 0; length < whole.size(); ++length) {
        documents.push_back(whole.substr(0, length));
    }
    for (const std::string& document : documents) {
        SCOPED_TRACE(document.substr(0, 200));
        WriteFile(kPolicyFile, document);
        ExpectLibraryError(kPolicyFile);
    }
}

TEST_F(LoaderTest, ALoadReplacesThePolicyBefore) {
    Load(Whitelist("<class>USB_CLASS_AUDIO</class><vid vendorid=\"5\"/>"));
    Load(PolicyXml("blacklist", "<vid vendorid=\"6\"><pid>1</pid></vid>"));
    EXPECT_TRUE(Util::xml_parse_status);
    EXPECT_EQ(Util::configMode, "blacklist");
    EXPECT_THAT(Util::classList, IsEmpty());
    EXPECT_THAT(Util::classMap, IsEmpty());
    EXPECT_EQ(Util::vidPidMap, (Vendors{{6, 1}}));
    Load(PolicyXml("default", "<class>USB_CLASS_AUDIO</class>"));
    EXPECT_EQ(Util::configMode, "default");
    ExpectEmptyTables();
}

TEST_F(LoaderTest, AFailureBeforeTheModeKeepsTheModeAndDropsTheRules) {
    Load(PolicyXml("blacklist", "<class>USB_CLASS_AUDIO</class>"));
    Load("<other/>");
    EXPECT_EQ(Util::configMode, "blacklist");
    ExpectEmptyTables();
}

TEST_F(LoaderTest, AnUnwritableStatusFileChangesNothingElse) {
    RemoveTree(kConfigDir);
    const std::string path = "/data/policy.xml";
    WriteFile(path, Whitelist("<class>8</class>"));
    Util::createMapFromConfig(path);
    EXPECT_FALSE(Util::xml_parse_status);
    EXPECT_EQ(Util::statusMessage, "INVALID CLASS VALUE:8");
    EXPECT_NE(access(kConfigDir, F_OK), 0) << "the directory is not made";
}

TEST_F(LoaderTest, ManyRules) {
    constexpr int32_t kRules = 10000;
    std::string rules;
    for (int32_t i = 0; i < kRules; ++i) {
        rules += "<vid vendorid=\"" + std::to_string(i) + "\"><pid>" + std::to_string(i * 2) +
                 "</pid></vid><class>USB_CLASS_AUDIO</class>";
    }
    Load(Whitelist(rules));
    EXPECT_TRUE(Util::xml_parse_status);
    EXPECT_EQ(Util::classList, Classes(kRules, 1));
    EXPECT_EQ(Util::classMap.size(), 1u);
    ASSERT_EQ(Util::vidPidMap.size(), static_cast<size_t>(kRules));
    EXPECT_THAT(*Util::vidPidMap.begin(), Pair(0, 0));
    EXPECT_THAT(*Util::vidPidMap.rbegin(), Pair(kRules - 1, kRules * 2 - 2));
}

TEST_F(LoaderTest, HugeNamesAndTexts) {
    const std::string huge(2000000, 'x');
    Load("<" + huge + "/>");
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID ROOT ELEMENT : " + huge);
    Load("<usbconfig mode=\"" + huge + "\"/>");
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID MODE");
    EXPECT_EQ(Util::configMode, huge);
    Load(Whitelist("<class>" + huge + "</class>"));
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID CLASS VALUE:" + huge);
    Load(Whitelist("<vid vendorid=\"" + huge + "\"/>"));
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID VENDOR ID VALUE:" + huge);
    Load(Whitelist("<!--" + huge + "--><class>USB_CLASS_AUDIO</class>"));
    EXPECT_TRUE(Util::xml_parse_status);
}

TEST_F(LoaderTest, DeepNestingThatTheLibraryAccepts) {
    std::string open;
    std::string close;
    for (int i = 0; i < 90; ++i) {
        open += "<a>";
        close += "</a>";
    }
    Load(Whitelist("<class>USB_CLASS_AUDIO" + open + close + "</class>"));
    EXPECT_TRUE(Util::xml_parse_status);
    EXPECT_THAT(Util::classList, ElementsAre(1));
}

// Whoever backs the policy up must not take the file's next content for what is in force.
TEST_F(LoaderTest, ALoadAnswersTheBytesThatItJudged) {
    const std::string nul("\0<usbconfig/>", 13);
    for (const std::string& text : {Whitelist("\r\n<class>USB_CLASS_AUDIO</class>"),
                                    std::string("<torn"), std::string(), nul}) {
        WriteFile(kPolicyFile, text);
        EXPECT_EQ(Util::loadPolicy(kPolicyFile), text);
    }
    remove(kPolicyFile);
    EXPECT_EQ(Util::loadPolicy(kPolicyFile), "");
    EXPECT_EQ(Util::loadPolicy(kConfigDir), "");
}

// What other threads may see of a load.
class LoadInProgressTest : public LoaderTest {
  protected:
    void WaitForLine(const std::string& line) {
        ASSERT_TRUE(Eventually([&] {
            const Strings lines = logs_.Lines();
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        })) << "not logged: "
            << line;
    }
};

// Another thread looks at the policy at the moment in which the status is about to be written.
TEST_F(LoadInProgressTest, NoLockIsHeldWhileTheStatusFileIsWritten) {
    int looks = 0;
    base::SetLogger([&](base::LogId, base::LogSeverity, const char*, const char*, unsigned,
                        const char* message) {
        if ("I " + std::string(message) != Written("INVALID TAG:x")) return;
        std::thread([&] {
            ++looks;
            ASSERT_TRUE(Util::policy_mutex.try_lock()) << "the policy is locked";
            EXPECT_THAT(Util::classList, ElementsAre(1)) << "the result is in force already";
            EXPECT_FALSE(Util::xml_parse_status);
            Util::policy_mutex.unlock();
        }).join();
    });
    Load(Whitelist("<class>USB_CLASS_AUDIO</class><x/>"));
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID TAG:x");
}

// A decision under way keeps its policy; the next one has the new.
TEST_F(LoadInProgressTest, ALoadWaitsForTheDecisionsUnderWay) {
    SetPolicy("whitelist", {8}, {}, {});
    std::atomic<bool> loaded{false};
    std::thread load;
    {
        const std::shared_lock<std::shared_mutex> decision(Util::policy_mutex);
        load = std::thread([&] {
            Load(PolicyXml("blacklist", "<class>USB_CLASS_AUDIO</class>"));
            loaded = true;
        });
        WaitForLine("I class val--1");
        EXPECT_FALSE(loaded);
        EXPECT_EQ(Util::getMode(), "whitelist");
        EXPECT_TRUE(Util::validateClass(8));
        EXPECT_FALSE(Util::validateClass(1));
    }
    load.join();
    EXPECT_EQ(Util::getMode(), "blacklist");
    EXPECT_FALSE(Util::validateClass(8));
    EXPECT_TRUE(Util::validateClass(1));
}

TEST_F(LoadInProgressTest, NoDecisionSeesPartsOfTwoPolicies) {
    const std::string first = "/data/first.xml";
    const std::string second = "/data/second.xml";
    WriteFile(first, Whitelist("<class>USB_CLASS_AUDIO</class><vid vendorid=\"1\"/>"));
    WriteFile(second, PolicyXml("blacklist",
                                "<class>USB_CLASS_VIDEO</class>"
                                "<vid vendorid=\"2\"><pid>2</pid></vid>"));
    Util::createMapFromConfig(first);
    std::atomic<bool> done{false};
    std::atomic<int> decisions{0};
    std::thread loads([&] {
        EXPECT_TRUE(Eventually([&] { return decisions > 0; }));
        for (int i = 0; i < 500; ++i) Util::createMapFromConfig(i % 2 == 0 ? second : first);
        done = true;
    });
    int mixed = 0;
    while (!done) {
        const std::shared_lock<std::shared_mutex> decision(Util::policy_mutex);
        const bool is_first = Util::getMode() == "whitelist";
        const bool whole =
                Util::validateClass(1) == is_first && Util::validateClass(14) != is_first &&
                Util::validateVid(1) == is_first && Util::validateVidPid(2, 2) != is_first;
        ++decisions;
        if (!whole) ++mixed;
    }
    loads.join();
    EXPECT_EQ(mixed, 0);
}

}  // namespace
}  // namespace android::vus
