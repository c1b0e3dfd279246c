// SPDX-License-Identifier: Apache-2.0

#include "tests/support/world.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

namespace android::vus {

namespace fs = std::filesystem;

namespace {

constexpr char kPropertyDir[] = "/run/vus-properties";
constexpr const char* kEmptiedDirs[] = {"/data", "/sys", "/run"};  // before each test

void Require(bool done, const std::string& what) {
    if (done) return;
    fprintf(stderr, "private root: %s: %s\n", what.c_str(), strerror(errno));
    exit(2);
}

void BecomeRootOfOwnNamespaces() {
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    Require(unshare(uid == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) == 0, "unshare");
    if (uid == 0) return;
    base::WriteStringToFile("deny", "/proc/self/setgroups");
    Require(base::WriteStringToFile("0 " + std::to_string(uid) + " 1", "/proc/self/uid_map"),
            "uid_map");
    Require(base::WriteStringToFile("0 " + std::to_string(gid) + " 1", "/proc/self/gid_map"),
            "gid_map");
}

void BindFromHost(const std::string& root, const std::string& path) {
    if (fs::is_symlink(path)) {
        fs::copy_symlink(path, root + path);
        return;
    }
    if (!fs::exists(path)) return;
    if (fs::is_directory(path)) {
        fs::create_directories(root + path);
    } else {
        std::ofstream(root + path);
    }
    Require(mount(path.c_str(), (root + path).c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
            "bind " + path);
}

void MountTmpfs(const std::string& path) {
    fs::create_directories(path);
    Require(mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=755") == 0, "tmpfs on " + path);
}

bool IsTmpfs(const char* path) {
    struct statfs fs;
    return statfs(path, &fs) == 0 && fs.f_type == TMPFS_MAGIC;
}

void EmptyDir(const std::string& path) {
    ASSERT_TRUE(IsTmpfs(path.c_str())) << path << " is not the test's own";
    for (const auto& entry : fs::directory_iterator(path)) fs::remove_all(entry.path());
}

// EmptyWorld() would empty a build tree below one of its directories.
void RequireOutsideEmptied(const std::string& build) {
    for (const std::string dir : kEmptiedDirs) {
        if (!base::StartsWith(build, dir + "/")) continue;
        fprintf(stderr, "private root: tests cannot run from a build tree below %s\n", dir.c_str());
        exit(2);
    }
}

}  // namespace

void EnterPrivateRoot() {
    // The build tree stays visible: vusd is in it, and coverage counters are written to it.
    const std::string build = fs::read_symlink("/proc/self/exe").parent_path().parent_path();
    RequireOutsideEmptied(build);
    BecomeRootOfOwnNamespaces();
    Require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    char root[] = "/tmp/vus-root.XXXXXX";
    Require(mkdtemp(root) != nullptr, "temporary directory");
    // By it the mount point is removed from the host's /tmp after that has gone out of sight.
    const base::unique_fd hosts_tmp(open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC));
    MountTmpfs(root);
    for (const char* path : {"/usr", "/bin", "/sbin", "/lib", "/lib64", "/etc", "/proc"}) {
        BindFromHost(root, path);
    }
    // The machine's own settings are none of a test's.
    if (fs::exists("/etc/vus")) MountTmpfs(std::string(root) + "/etc/vus");
    fs::create_directories(std::string(root) + "/dev");
    for (const char* path : {"/dev/null", "/dev/zero", "/dev/urandom", "/dev/full"}) {
        BindFromHost(root, path);
    }
    for (const char* path : {"/data", "/sys", "/run", "/tmp"}) MountTmpfs(std::string(root) + path);
    BindFromHost(root, build);
    Require(chdir(root) == 0 && syscall(SYS_pivot_root, ".", ".") == 0, "pivot_root");
    Require(umount2(".", MNT_DETACH) == 0 && chdir("/") == 0, "leaving the host's root");
    unlinkat(hosts_tmp.get(), basename(root), AT_REMOVEDIR);
    for (const char* path : {"/", "/data", "/sys", "/run"}) Require(IsTmpfs(path), path);
}

void EmptyWorld() {
    for (const char* path : kEmptiedDirs) EmptyDir(path);
}

void MakeDir(const std::string& path) {
    fs::create_directories(path);
}

void WriteFile(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    EXPECT_TRUE(base::WriteStringToFile(text, path)) << path << ": " << strerror(errno);
}

std::string ReadFile(const std::string& path) {
    std::string text;
    if (!base::ReadFileToString(path, &text)) text.clear();
    return text;
}

void RemoveFile(const std::string& path) {
    EXPECT_EQ(unlink(path.c_str()), 0) << path << ": " << strerror(errno);
}

void RemoveTree(const std::string& path) {
    fs::remove_all(path);
}

void SetProperty(const char* name, const char* value) {
    WriteFile(std::string(kPropertyDir) + "/" + name, value);
}

LogCapture::LogCapture() {
    base::SetLogger([this](base::LogId, base::LogSeverity severity, const char*, const char*,
                           unsigned, const char* message) { Add(severity, message); });
}

void LogCapture::Add(base::LogSeverity severity, const std::string& message) {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.emplace_back(severity, message);
}

LogCapture::~LogCapture() {
    base::SetLogger(base::StderrLogger);
}

std::vector<std::string> LogCapture::Messages() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> messages;
    for (const auto& [severity, message] : lines_) messages.push_back(message);
    return messages;
}

std::vector<std::string> LogCapture::Errors() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> messages;
    for (const auto& [severity, message] : lines_) {
        if (severity == base::ERROR) messages.push_back(message);
    }
    return messages;
}

std::vector<std::string> LogCapture::Lines() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> lines;
    for (const auto& [severity, message] : lines_) {
        lines.push_back(std::string(1, "VDIWEFF"[severity]) + " " + message);
    }
    return lines;
}

void LogCapture::Clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

}  // namespace android::vus
