// SPDX-License-Identifier: Apache-2.0
#include "platform/property_store.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <cutils/properties.h>

namespace android::vus::platform {

namespace {

using base::StringPrintf;
using base::unique_fd;

// A name that can be set once has this prefix.
constexpr char kReadOnlyPrefix[] = "ro.";

bool IsReadOnly(const std::string& name) {
    return base::StartsWith(name, kReadOnlyPrefix);
}

bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_' || c == '@' || c == ':';
}

// Android's rule. That neither end is a dot and no two dots meet also keeps a name from
// meaning anything to the file system.
bool IsLegalName(const std::string& name) {
    if (name.empty() || name.size() > NAME_MAX) return false;
    if (name.front() == '.' || name.back() == '.') return false;
    if (name.find("..") != std::string::npos) return false;
    for (char c : name) {
        if (!IsNameCharacter(c)) return false;
    }
    return true;
}

// A value that can be read back by every caller fits property_get's buffer. Those of
// read-only properties (build fingerprints are long) may be longer, as on Android.
bool IsLegalValue(const std::string& name, const std::string& value) {
    if (value.find('\0') != std::string::npos) return false;
    return IsReadOnly(name) || value.size() < PROP_VALUE_MAX;
}

// A file written aside, which is removed unless it was renamed into place. Its name
// begins with a dot, which no property's does.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& directory) : path_(directory + "/.new-XXXXXX") {
        fd_.reset(mkostemp(path_.data(), O_CLOEXEC));
    }
    ~TemporaryFile() {
        if (fd_.ok()) unlink(path_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool Write(const std::string& text) {
        return fd_.ok() && base::WriteStringToFd(text, fd_) && fchmod(fd_.get(), 0644) == 0;
    }
    const char* path() const { return path_.c_str(); }

  private:
    std::string path_;
    unique_fd fd_;
};

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

std::string Failed(const char* what, const std::string& path) {
    return StringPrintf("cannot %s %s: %s", what, path.c_str(), strerror(errno));
}

std::string AlreadySet(const std::string& name) {
    return name + " is read-only and already set";
}

// link() fails if the name is taken: of two that set a read-only property at the same
// time, one succeeds.
std::string MoveIntoPlace(const TemporaryFile& file, const std::string& name,
                          const std::string& path) {
    bool moved = IsReadOnly(name) ? link(file.path(), path.c_str()) == 0
                                  : rename(file.path(), path.c_str()) == 0;
    if (moved) return {};
    if (IsReadOnly(name) && errno == EEXIST) return AlreadySet(name);
    return Failed("write", path);
}

}  // namespace

std::optional<std::string> PropertyStore::Get(const std::string& name) const {
    std::string value;
    if (!IsLegalName(name)) return {};
    if (base::ReadFileToString(directory_ + "/" + name, &value)) return value;
    return GetDefault(name);
}

std::optional<std::string> PropertyStore::GetDefault(const std::string& name) const {
    std::string value;
    if (defaults_.empty() || !base::ReadFileToString(defaults_ + "/" + name, &value)) return {};
    if (!value.empty() && value.back() == '\n') value.pop_back();
    return value;
}

std::string PropertyStore::Set(const std::string& name, const std::string& value) const {
    if (!IsLegalName(name)) return StringPrintf("\"%s\" is not a property name", name.c_str());
    if (!IsLegalValue(name, value)) {
        return StringPrintf("a value of %s has at most %d bytes, none of them zero", name.c_str(),
                            PROP_VALUE_MAX - 1);
    }
    if (IsReadOnly(name) && GetDefault(name)) return AlreadySet(name);
    if (mkdir(directory_.c_str(), 0755) != 0 && errno != EEXIST) {
        return Failed("create", directory_);
    }
    TemporaryFile file(directory_);
    if (!file.Write(value)) return Failed("write into", directory_);
    return MoveIntoPlace(file, name, directory_ + "/" + name);
}

std::map<std::string, std::string> PropertyStore::List() const {
    std::map<std::string, std::string> properties;
    for (const std::string& path : {directory_, defaults_}) {
        std::unique_ptr<DIR, DirCloser> dir(opendir(path.c_str()));
        while (const dirent* entry = dir ? readdir(dir.get()) : nullptr) {
            if (auto value = Get(entry->d_name)) properties[entry->d_name] = *value;
        }
    }
    return properties;
}

}  // namespace android::vus::platform
