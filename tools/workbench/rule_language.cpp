// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/rule_language.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <system_error>

#include <android-base/strings.h>

namespace android::vus::workbench {

namespace {

constexpr std::array<std::string_view, 5> kOperators = {"one-of", "all-of", "none-of", "equals",
                                                        "equals-ordered"};
// What a rule may say of a device besides its id and interfaces.
constexpr std::array<std::string_view, 7> kTextAttributes = {"name",     "serial",
                                                             "hash",     "parent-hash",
                                                             "via-port", "with-connect-type",
                                                             "label"};

template <typename Names>
bool isAmong(const Names& names, std::string_view word) {
    return std::find(names.begin(), names.end(), word) != names.end();
}

// A word of a rule: a quoted text, a brace, or what stands between blanks.
struct Token {
    std::string text;
    bool quoted = false;
};

// Takes a line apart. False, with `error`, if it cannot be.
bool tokensOf(const std::string& line, std::vector<Token>* tokens, std::string* error) {
    for (size_t at = 0; at < line.size();) {
        const char c = line[at];
        if (c == ' ' || c == '\t' || c == '\r') {
            ++at;
        } else if (c == '#') {
            return true;
        } else if (c == '{' || c == '}') {
            tokens->push_back({std::string(1, c)});
            ++at;
        } else if (c == '"') {
            Token token{"", true};
            for (++at; at < line.size() && line[at] != '"'; ++at) {
                if (line[at] == '\\' && at + 1 < line.size()) ++at;
                token.text += line[at];
            }
            if (at == line.size()) {
                *error = "a quoted text does not end";
                return false;
            }
            ++at;
            tokens->push_back(std::move(token));
        } else {
            const size_t end = std::min(line.find_first_of(" \t\r{}\"#", at), line.size());
            tokens->push_back({line.substr(at, end - at)});
            at = end;
        }
    }
    return true;
}

// Exactly `digits` hexadecimal digits, or "*".
bool readHex(const std::string& text, size_t digits, std::optional<int32_t>* number) {
    if (text == "*") {
        number->reset();
        return true;
    }
    if (text.size() != digits) return false;
    int32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, 16);
    *number = value;
    return result.ec == std::errc() && result.ptr == end && text[0] != '-';
}

bool readId(const std::string& text, RuleId* id) {
    const std::vector<std::string> parts = base::Split(text, ":");
    return parts.size() == 2 && readHex(parts[0], 4, &id->vendor) &&
           readHex(parts[1], 4, &id->product) && (id->vendor || !id->product);
}

bool readInterface(const std::string& text, InterfaceType* type) {
    const std::vector<std::string> parts = base::Split(text, ":");
    std::optional<int32_t> code;
    if (parts.size() != 3 || !readHex(parts[0], 2, &code) || !code) return false;
    type->code = *code;
    return readHex(parts[1], 2, &type->subclass) && readHex(parts[2], 2, &type->protocol);
}

// Reads one rule, token by token.
class RuleReader {
  public:
    RuleReader(const std::vector<Token>& tokens, ForeignRule* rule)
          : tokens_(tokens), rule_(*rule) {}

    bool read() {
        if (!readTarget()) return fails("a rule begins with allow, block or reject");
        RuleId id;
        if (at_ < tokens_.size() && !peek().quoted && readId(peek().text, &id)) {
            rule_.ids.push_back(id);
            ++at_;
        }
        while (at_ < tokens_.size()) {
            if (!readAttribute()) return false;
        }
        return true;
    }

    std::string error;

  private:
    const Token& peek() const { return tokens_[at_]; }

    bool fails(const std::string& message) {
        error = message;
        return false;
    }

    bool readTarget() {
        if (tokens_.empty() || peek().quoted) return false;
        const std::string& word = tokens_[at_++].text;
        if (word == "block") rule_.target = ForeignRule::Target::kBlock;
        if (word == "reject") rule_.target = ForeignRule::Target::kReject;
        return word == "allow" || word == "block" || word == "reject";
    }

    bool readAttribute() {
        const Token name = tokens_[at_++];
        if (name.quoted) return fails("a value without an attribute");
        if (name.text == "if") {
            rule_.others.push_back("if");
            at_ = tokens_.size();  // a condition is never one of ours
            return true;
        }
        if (name.text != "id" && name.text != "with-interface" &&
            !isAmong(kTextAttributes, name.text)) {
            return fails("unknown attribute: " + name.text);
        }
        std::string op;
        std::vector<Token> values;
        if (!readValues(name.text, &op, &values)) return false;
        if (name.text == "id") return takeIds(op, values);
        if (name.text == "with-interface") return takeInterfaces(op, values);
        rule_.others.push_back(name.text);
        return true;
    }

    bool readValues(const std::string& name, std::string* op, std::vector<Token>* values) {
        if (at_ < tokens_.size() && !peek().quoted && isAmong(kOperators, peek().text)) {
            *op = tokens_[at_++].text;
        }
        if (at_ == tokens_.size()) return fails(name + " has no value");
        if (peek().quoted || peek().text != "{") {
            if (!op->empty()) return fails(name + " " + *op + " takes values in braces");
            values->push_back(tokens_[at_++]);
            return true;
        }
        for (++at_; at_ < tokens_.size(); ++at_) {
            if (!peek().quoted && peek().text == "}") {
                ++at_;
                return values->empty() ? fails(name + " has no value") : true;
            }
            values->push_back(peek());
        }
        return fails("a brace is not closed");
    }

    bool takeIds(const std::string& op, const std::vector<Token>& values) {
        rule_.id_operator = op;
        for (const Token& value : values) {
            RuleId id;
            if (!readId(value.text, &id)) return fails("not an id: " + value.text);
            rule_.ids.push_back(id);
        }
        return true;
    }

    bool takeInterfaces(const std::string& op, const std::vector<Token>& values) {
        rule_.interface_operator = op;
        rule_.has_interfaces = true;
        for (const Token& value : values) {
            InterfaceType type;
            if (!readInterface(value.text, &type)) {
                return fails("not an interface type: " + value.text);
            }
            rule_.interfaces.push_back(type);
        }
        return true;
    }

    const std::vector<Token>& tokens_;
    ForeignRule& rule_;
    size_t at_ = 0;
};

}  // namespace

ForeignRules readForeignRules(const std::string& text) {
    ForeignRules read;
    int number = 0;
    for (const std::string& each : base::Split(text, "\n")) {
        ++number;
        ForeignRule rule;
        rule.line = number;
        rule.text = base::Trim(each);
        std::vector<Token> tokens;
        std::string error;
        if (tokensOf(each, &tokens, &error)) {
            if (tokens.empty()) continue;
            RuleReader reader(tokens, &rule);
            if (reader.read()) {
                read.rules.push_back(std::move(rule));
                continue;
            }
            error = reader.error;
        }
        read.errors.push_back({number, rule.text, error});
    }
    return read;
}

}  // namespace android::vus::workbench
