// SPDX-License-Identifier: Apache-2.0
//
// System properties on a Linux host: a directory of small files, one a property, its
// text the value.
//
// Android keeps properties in shared memory that only init may write. Here the
// directory's own permissions say who may write, and the file system makes a write
// atomic: a value is written aside and then renamed (or, for a name that can be set only
// once, linked) into place, so that a reader finds the old value or the new one and never
// a part of one. Names and values are bounded as on Android.
//
// A store holds nothing but its directory's name; any number of threads and processes may
// use the same directory.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace android::vus::platform {

// Where property_get, getprop and the others look. Gone after a restart of the machine, as
// properties are.
inline constexpr char kPropertyDir[] = "/run/vus-properties";

class PropertyStore {
  public:
    explicit PropertyStore(std::string directory) : directory_(std::move(directory)) {}

    // The value, or nothing if the property was never set (or the directory is missing, or
    // the name is none that could be set).
    std::optional<std::string> Get(const std::string& name) const;

    // Sets a property and creates the directory (not its parents) if need be. Returns why it
    // could not, in words for a person; an empty text is success.
    [[nodiscard]] std::string Set(const std::string& name, const std::string& value) const;

    // Every property, by name.
    std::map<std::string, std::string> List() const;

  private:
    std::string directory_;
};

}  // namespace android::vus::platform
