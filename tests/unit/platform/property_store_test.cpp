// SPDX-License-Identifier: Apache-2.0
#include "platform/property_store.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <android-base/file.h>
#include <gtest/gtest.h>

namespace android::vus::platform {
namespace {

class PropertyStoreTest : public ::testing::Test {
  protected:
    std::string Path(const std::string& name) const { return directory_ + "/" + name; }

    // Everything in the directory, properties or not.
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        DIR* dir = opendir(directory_.c_str());
        while (const dirent* entry = dir ? readdir(dir) : nullptr) {
            std::string name = entry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        if (dir) closedir(dir);
        std::sort(names.begin(), names.end());
        return names;
    }

    TemporaryDir parent_;
    std::string directory_ = std::string(parent_.path) + "/properties";
    PropertyStore store_{directory_};
};

TEST_F(PropertyStoreTest, MissingDirectoryReadsAsNothingSet) {
    EXPECT_FALSE(store_.Get("ro.build.type").has_value());
    EXPECT_TRUE(store_.List().empty());
    EXPECT_NE(0, access(directory_.c_str(), F_OK)) << "reading created the directory";
}

TEST_F(PropertyStoreTest, SettingCreatesTheDirectoryAndAReadableFile) {
    EXPECT_EQ("", store_.Set("persist.vendor.monitor.dock", "1"));
    EXPECT_EQ("1", store_.Get("persist.vendor.monitor.dock"));
    struct stat st;
    ASSERT_EQ(0, stat(Path("persist.vendor.monitor.dock").c_str(), &st));
    EXPECT_EQ(0644u, st.st_mode & 07777);
}

TEST_F(PropertyStoreTest, MissingParentIsAnErrorThatNamesTheDirectory) {
    PropertyStore store(std::string(parent_.path) + "/no/such");
    EXPECT_EQ("cannot create " + std::string(parent_.path) + "/no/such: No such file or directory",
              store.Set("a", "1"));
}

TEST_F(PropertyStoreTest, FileInPlaceOfTheDirectoryIsAnError) {
    ASSERT_TRUE(base::WriteStringToFile("", directory_));
    EXPECT_EQ("cannot write into " + directory_ + ": Not a directory", store_.Set("a", "1"));
    EXPECT_FALSE(store_.Get("a").has_value());
}

TEST_F(PropertyStoreTest, SetReplacesTheWholeValue) {
    ASSERT_EQ("", store_.Set("a", "a long value"));
    ASSERT_EQ("", store_.Set("a", "b"));
    EXPECT_EQ("b", store_.Get("a"));
    ASSERT_EQ("", store_.Set("a", ""));
    EXPECT_EQ("", store_.Get("a"));
}

TEST_F(PropertyStoreTest, ValuesAreKeptByteForByte) {
    const std::string value = " two\nlines \xc3\xa9\t";
    ASSERT_EQ("", store_.Set("a", value));
    EXPECT_EQ(value, store_.Get("a"));
}

TEST_F(PropertyStoreTest, LongestValueAndOneMore) {
    EXPECT_EQ("", store_.Set("a", std::string(91, 'x')));
    EXPECT_EQ("a value of a has at most 91 bytes, none of them zero",
              store_.Set("a", std::string(92, 'y')));
    EXPECT_EQ(std::string(91, 'x'), store_.Get("a"));
}

TEST_F(PropertyStoreTest, ReadOnlyValueMayBeLonger) {
    EXPECT_EQ("", store_.Set("ro.build.fingerprint", std::string(92, 'x')));
    EXPECT_EQ(std::string(92, 'x'), store_.Get("ro.build.fingerprint"));
}

TEST_F(PropertyStoreTest, ZeroByteIsRefused) {
    using namespace std::string_literals;
    EXPECT_NE("", store_.Set("a", "b\0c"s));
    EXPECT_NE("", store_.Set("ro.a", "b\0c"s));
    EXPECT_TRUE(Files().empty());
}

TEST_F(PropertyStoreTest, LongestNameAndOneMore) {
    EXPECT_EQ("", store_.Set(std::string(255, 'n'), "1"));
    EXPECT_EQ("1", store_.Get(std::string(255, 'n')));
    EXPECT_NE("", store_.Set(std::string(256, 'n'), "1"));
}

TEST_F(PropertyStoreTest, NamesThatAreLegal) {
    for (const char* name : {"a", "Z", "9", "a.b.c", "a-b", "a_b", "a@b", "a:b", "-"}) {
        EXPECT_EQ("", store_.Set(name, "1")) << name;
        EXPECT_EQ("1", store_.Get(name)) << name;
    }
}

TEST_F(PropertyStoreTest, NamesThatAreNot) {
    ASSERT_EQ("", store_.Set("kept", "1"));
    for (const char* name : {"", ".", "..", ".a", "a.", "ro.", "a..b", "a b", "a/b", "../a", "a\n",
                             "a=b", "\xc3\xa9"}) {
        EXPECT_EQ(std::string("\"") + name + "\" is not a property name", store_.Set(name, "1"));
        EXPECT_FALSE(store_.Get(name).has_value()) << name;
    }
    EXPECT_EQ(std::vector<std::string>{"kept"}, Files());
}

TEST_F(PropertyStoreTest, ReadOnlyNameIsSetOnce) {
    EXPECT_EQ("", store_.Set("ro.build.type", "user"));
    EXPECT_EQ("ro.build.type is read-only and already set", store_.Set("ro.build.type", "eng"));
    EXPECT_EQ("user", store_.Get("ro.build.type"));
}

TEST_F(PropertyStoreTest, OnlyThePrefixMakesANameReadOnly) {
    for (const char* name : {"rox", "a.ro.b", "RO.a"}) {
        EXPECT_EQ("", store_.Set(name, "1"));
        EXPECT_EQ("", store_.Set(name, "2")) << name;
    }
}

TEST_F(PropertyStoreTest, ReadOnlyNameSetToNothingIsSet) {
    EXPECT_EQ("", store_.Set("ro.a", ""));
    EXPECT_NE("", store_.Set("ro.a", "1"));
}

TEST_F(PropertyStoreTest, NothingIsLeftBesideTheProperties) {
    ASSERT_EQ("", store_.Set("ro.a", "1"));
    ASSERT_NE("", store_.Set("ro.a", "2"));
    ASSERT_EQ("", store_.Set("b", "1"));
    ASSERT_EQ("", store_.Set("b", "2"));
    EXPECT_EQ((std::vector<std::string>{"b", "ro.a"}), Files());
}

TEST_F(PropertyStoreTest, ListIsByNameAndHoldsPropertiesOnly) {
    ASSERT_EQ("", store_.Set("b", "2"));
    ASSERT_EQ("", store_.Set("a", "1"));
    ASSERT_TRUE(base::WriteStringToFile("x", Path(".hidden")));
    ASSERT_EQ(0, mkdir(Path("directory").c_str(), 0755));
    EXPECT_EQ((std::map<std::string, std::string>{{"a", "1"}, {"b", "2"}}), store_.List());
}

// Runs body(0) to body(count - 1) on as many threads at once.
template <typename Body>
void InParallel(int count, Body body) {
    std::atomic<int> waiting{count};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            for (--waiting; waiting > 0;) std::this_thread::yield();
            body(i);
        });
    }
    for (auto& thread : threads) thread.join();
}

TEST_F(PropertyStoreTest, ReaderSeesAWholeValueWhileOthersWrite) {
    ASSERT_EQ("", store_.Set("a", std::string(91, '0')));
    std::atomic<int> torn{0}, failed{0};
    InParallel(4, [&](int i) {
        for (int round = 0; round < 300; ++round) {
            if (i < 2) {
                if (!store_.Set("a", std::string(91, static_cast<char>('0' + i))).empty()) ++failed;
                continue;
            }
            auto value = store_.Get("a");
            if (value != std::string(91, '0') && value != std::string(91, '1')) ++torn;
        }
    });
    EXPECT_EQ(0, torn);
    EXPECT_EQ(0, failed);
    EXPECT_EQ(std::vector<std::string>{"a"}, Files());
}

TEST_F(PropertyStoreTest, OneOfManyWritersSetsAReadOnlyName) {
    for (int round = 0; round < 20; ++round) {
        const std::string name = "ro.round" + std::to_string(round);
        std::atomic<int> winners{0}, winner{-1};
        InParallel(6, [&](int i) {
            if (store_.Set(name, std::to_string(i)).empty()) {
                ++winners;
                winner = i;
            }
        });
        EXPECT_EQ(1, winners);
        EXPECT_EQ(std::to_string(winner), store_.Get(name));
    }
}

class PropertyDefaultsTest : public PropertyStoreTest {
  protected:
    void SetDefault(const std::string& name, const std::string& value) const {
        mkdir(defaults_.c_str(), 0755);
        ASSERT_TRUE(base::WriteStringToFile(value, defaults_ + "/" + name));
    }

    std::string defaults_ = std::string(parent_.path) + "/defaults";
    PropertyStore with_defaults_{directory_, defaults_};
};

TEST_F(PropertyDefaultsTest, IsReadWhereNothingIsSet) {
    EXPECT_FALSE(with_defaults_.Get("a").has_value());
    SetDefault("a", "one\n");
    SetDefault("b", "two\n\n");
    SetDefault("c", "");
    EXPECT_EQ("one", with_defaults_.Get("a"));
    EXPECT_EQ("two\n", with_defaults_.Get("b"));
    EXPECT_EQ("", with_defaults_.Get("c"));
    EXPECT_FALSE(store_.Get("a").has_value());
}

TEST_F(PropertyDefaultsTest, GivesWayToWhatIsSet) {
    SetDefault("a", "one\n");
    EXPECT_EQ("", with_defaults_.Set("a", ""));
    EXPECT_EQ("", with_defaults_.Get("a"));
    std::string text;
    ASSERT_TRUE(base::ReadFileToString(defaults_ + "/a", &text));
    EXPECT_EQ("one\n", text) << "it is only read";
}

TEST_F(PropertyDefaultsTest, ReadOnlyOneCannotBeSet) {
    SetDefault("ro.build.type", "user\n");
    EXPECT_EQ("ro.build.type is read-only and already set",
              with_defaults_.Set("ro.build.type", "userdebug"));
    EXPECT_EQ("user", with_defaults_.Get("ro.build.type"));
}

TEST_F(PropertyDefaultsTest, AreListed) {
    SetDefault("a", "one\n");
    SetDefault("b", "two\n");
    ASSERT_EQ("", with_defaults_.Set("b", "set"));
    ASSERT_EQ("", with_defaults_.Set("c", "three"));
    const std::map<std::string, std::string> all = {{"a", "one"}, {"b", "set"}, {"c", "three"}};
    EXPECT_EQ(all, with_defaults_.List());
}

}  // namespace
}  // namespace android::vus::platform
