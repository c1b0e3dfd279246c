// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/list.h"

#include "tools/common/text.h"
#include "tools/workbench/json.h"

namespace android::vus::workbench {

namespace {

constexpr int kEnd = std::istream::traits_type::eof();

bool isBlank(int c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

int RecordReader::get() {
    const int c = in_.get();
    if (c == '\n') ++line_;
    return c;
}

int RecordReader::peekBeyondBlanks() {
    while (isBlank(in_.peek())) get();
    return in_.peek();
}

bool RecordReader::fails(const std::string& what) {
    recordLine_ = line_;
    error_ = errorHere(what);
    return false;
}

std::string RecordReader::errorHere(const std::string& what) const {
    return printable(file_) + ":" + std::to_string(recordLine_) + ": " + what;
}

// Goes to the next record. False at the end, and at what is no list.
bool RecordReader::findRecord() {
    if (shape_ == Shape::kUnknown) {
        shape_ = peekBeyondBlanks() == '[' ? Shape::kArray : Shape::kLines;
        if (shape_ == Shape::kArray) get();
    }
    int c = peekBeyondBlanks();
    if (shape_ == Shape::kLines) {
        if (c == kEnd) return in_.bad() ? fails("cannot be read") : false;
        return c == '{' || fails("expected an object, which begins with {");
    }
    if (c == ']') {
        get();
        return peekBeyondBlanks() == kEnd ? false : fails("there is more behind the list's end");
    }
    if (!first_ && c == ',') {
        get();
        c = peekBeyondBlanks();
    } else if (!first_) {
        return fails(c == kEnd ? "the list ends without ]" : "expected , or ]");
    }
    return c == '{' ||
           fails(c == kEnd ? "the list ends without ]" : "expected an object, which begins with {");
}

// The text from { to its }; the library says whether it is an object.
bool RecordReader::readRecord(std::string* text) {
    recordLine_ = line_;
    const int begin = line_;
    int depth = 0;
    bool inString = false;
    do {
        const int c = get();
        if (c == kEnd) {
            line_ = begin;
            return fails("the object is not closed");
        }
        text->push_back(static_cast<char>(c));
        if (text->size() > longest_) return fails("the object is too long");
        if (inString && c == '\\') {
            if (const int escaped = get(); escaped != kEnd) {
                text->push_back(static_cast<char>(escaped));
            }
        } else if (c == '"') {
            inString = !inString;
        } else if (!inString && (c == '{' || c == '[')) {
            ++depth;
        } else if (!inString && (c == '}' || c == ']')) {
            --depth;
        }
    } while (depth > 0);
    return true;
}

std::optional<Json::Value> RecordReader::next() {
    std::string text;
    if (!error_.empty() || !findRecord() || !readRecord(&text)) return std::nullopt;
    first_ = false;
    std::string what;
    int line = 0;
    auto value = parseJson(text, &what, &line);
    if (value) return value;
    recordLine_ += line;
    error_ = errorHere(what);
    return std::nullopt;
}

std::string readDevices(std::istream& in, const std::string& file,
                        const std::function<void(Device)>& take) {
    RecordReader reader(in, file);
    while (const auto record = reader.next()) {
        std::string what;
        auto device = deviceFromJson(*record, &what);
        if (!device) return reader.errorHere(what);
        take(std::move(*device));
    }
    return reader.error();
}

void writeDevice(std::ostream& out, const Device& device) {
    out << toJsonLine(toJson(device)) << "\n";
}

}  // namespace android::vus::workbench
