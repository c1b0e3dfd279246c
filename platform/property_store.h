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
// Beside it there may be a second directory of the same form, the administrator's: what is not set
// is looked for there. It is only read.
//
// A store holds nothing but its directories' names; any number of threads and processes may
// use the same directories.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace android::vus::platform {

// Where property_get, getprop and the others look. Gone after a restart of the machine, as
// properties are.
inline constexpr char kPropertyDir[] = "/run/vus-properties";
// What is so after every start.
inline constexpr char kPropertyDefaultsDir[] = "/etc/vus/properties.d";

class PropertyStore {
  public:
    // Without `defaults`, there is only the one directory.
    explicit PropertyStore(std::string directory, std::string defaults = "")
          : directory_(std::move(directory)), defaults_(std::move(defaults)) {}

    // The value, or nothing if the property was never set and has no default (or the directories
    // are missing, or the name is none that could be set). The line end of a default is no part of
    // it: people write them with editors.
    std::optional<std::string> Get(const std::string& name) const;

    // Sets a property and creates the directory (not its parents) if need be. Returns why it
    // could not, in words for a person; an empty text is success.
    [[nodiscard]] std::string Set(const std::string& name, const std::string& value) const;

    // Every property, by name.
    std::map<std::string, std::string> List() const;

  private:
    std::optional<std::string> GetDefault(const std::string& name) const;

    std::string directory_, defaults_;
};

// The machine's own.
inline PropertyStore SystemProperties() {
    return PropertyStore(kPropertyDir, kPropertyDefaultsDir);
}

}  // namespace android::vus::platform
