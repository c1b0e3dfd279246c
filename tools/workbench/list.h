// SPDX-License-Identifier: Apache-2.0
//
// Lists of devices: a JSON array, as `vusctl list --json` prints it, or an object a line. Both are
// read as a stream: memory is bounded by the longest record, however many there are.

#pragma once

#include <functional>
#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include <json/value.h>

#include "tools/workbench/device.h"

namespace android::vus::workbench {

// A record longer than this is an error: it would have to fit into memory.
inline constexpr size_t kLongestRecord = 1 << 20;

// Reads the objects of a list. Owns nothing; one thread.
class RecordReader {
  public:
    // `file` is how errors call the stream, which has to outlive the reader.
    RecordReader(std::istream& in, std::string file, size_t longest = kLongestRecord)
          : in_(in), file_(std::move(file)), longest_(longest) {}

    // The next record, an object. Nothing at the list's end, or if what follows is none: then
    // error() is not empty, and says file, line and what is wrong.
    std::optional<Json::Value> next();
    const std::string& error() const { return error_; }
    // An error of the record that was read last.
    std::string errorHere(const std::string& what) const;

  private:
    enum class Shape { kUnknown, kArray, kLines };

    int get();
    int peekBeyondBlanks();
    bool findRecord();
    bool readRecord(std::string* text);
    bool fails(const std::string& what);

    std::istream& in_;
    const std::string file_;
    const size_t longest_;  // of a record
    Shape shape_ = Shape::kUnknown;
    bool first_ = true;
    int line_ = 1;
    int recordLine_ = 1;
    std::string error_;
};

// Calls `take` with each device of the list, as it is read. Returns what is wrong with the list;
// an empty text if nothing is. The devices before an error have been taken.
std::string readDevices(std::istream& in, const std::string& file,
                        const std::function<void(Device)>& take);

// An object a line.
void writeDevice(std::ostream& out, const Device& device);

}  // namespace android::vus::workbench
