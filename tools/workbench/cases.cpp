// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/cases.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <android-base/stringprintf.h>
#include <tinyxml2.h>

#include "android/vus/class_names.h"
#include "tools/common/text.h"
#include "tools/workbench/explain.h"
#include "tools/workbench/json.h"
#include "tools/workbench/list.h"

namespace android::vus::workbench {

namespace {

// More than this is no file that people wrote; a list has no such bound.
constexpr size_t kLongestFile = 64 << 20;

bool takeText(const Json::Value& object, const char* name, std::optional<std::string>* text,
              std::string* error) {
    const Json::Value& member = object[name];
    if (member.isNull()) return true;
    if (!member.isString()) {
        *error = std::string(name) + " is not a text";
        return false;
    }
    *text = valid_utf8(member.asString());
    return true;
}

bool isVerdict(const std::string& text) {
    return text == "allowed" || text == "refused" || text == "input";
}

std::optional<Case> caseOf(const Json::Value& value, std::string* error) {
    if (!value.isObject()) {
        *error = "a case has to be an object";
        return std::nullopt;
    }
    Case test;
    auto device = deviceFromJson(value["device"], error);
    if (!device) return std::nullopt;
    test.device = std::move(*device);
    std::optional<std::string> name, verdict;
    if (!takeText(value, "name", &name, error) || !takeText(value, "verdict", &verdict, error) ||
        !takeText(value, "reason", &test.reason, error) ||
        !takeText(value, "rule", &test.rule, error)) {
        return std::nullopt;
    }
    const Json::Value& line = value["line"];
    if (line.isInt()) test.line = line.asInt();
    if (!line.isNull() && !line.isInt()) {
        *error = "line is not a number";
        return std::nullopt;
    }
    if (!verdict || !isVerdict(*verdict)) {
        *error = "verdict has to be \"allowed\", \"refused\" or \"input\"";
        return std::nullopt;
    }
    test.verdict = *verdict;
    test.name = name.value_or(describe(test.device));
    return test;
}

// The object with the policy's name in it; a case of its own has a device.
bool isCasesObject(const Json::Value& value) {
    return value.isMember("cases") && !value.isMember("device");
}

std::string readObject(const Json::Value& value, const std::string& file, Cases* cases) {
    const std::string where = printable(file) + ": ";
    std::string error;
    if (!takeText(value, "policy", &cases->policy, &error)) return where + error;
    if (!value["cases"].isArray()) return where + "cases is not a list";
    for (Json::ArrayIndex at = 0; at < value["cases"].size(); ++at) {
        auto test = caseOf(value["cases"][at], &error);
        if (!test) return where + "case " + std::to_string(at + 1) + ": " + error;
        cases->cases.push_back(std::move(*test));
    }
    return "";
}

std::string rulesText(const std::vector<Rule>& rules, bool lines) {
    std::string text;
    for (const Rule& rule : rules) {
        text += (text.empty() ? "" : ", ") +
                (lines ? "line " + std::to_string(rule.line) : ruleText(rule));
    }
    return text.empty() ? "no rule" : text;
}

std::string expectation(const Case& test) {
    std::string text = test.verdict;
    if (test.reason) text += ": " + *test.reason;
    if (test.rule) text += " by " + *test.rule;
    if (test.line) text += " by line " + std::to_string(*test.line);
    return text;
}

std::string outcome(const Case& test, const Explanation& explanation) {
    std::string text = explanation.verdict();
    const Judgement& judgement = explanation.judgement;
    if (test.reason) text += ": " + judgement.reason;
    if (test.rule) text += " by " + rulesText(judgement.matched, /*lines=*/false);
    if (test.line) text += " by " + rulesText(judgement.matched, /*lines=*/true);
    return text;
}

bool agrees(const Case& test, const Explanation& explanation) {
    const Judgement& judgement = explanation.judgement;
    const auto matches = [&judgement](auto condition) {
        return std::any_of(judgement.matched.begin(), judgement.matched.end(), condition);
    };
    return test.verdict == explanation.verdict() &&
           (!test.reason || *test.reason == judgement.reason) &&
           (!test.rule ||
            matches([&test](const Rule& rule) { return ruleText(rule) == *test.rule; })) &&
           (!test.line || matches([&test](const Rule& rule) { return rule.line == *test.line; }));
}

}  // namespace

std::string ruleText(const Rule& rule) {
    switch (rule.kind) {
        case Rule::Kind::kClass:
            return "class " + std::string(className(rule.id));
        case Rule::Kind::kVendor:
            return "vendor " + std::to_string(rule.id);
        case Rule::Kind::kProduct:
            return "product " + std::to_string(rule.id) + ":" + std::to_string(rule.product);
    }
    return "";
}

std::vector<Rule> rulesOf(const Policy& policy) {
    std::vector<Rule> rules;
    for (const ClassRule& rule : policy.classes) {
        rules.push_back({Rule::Kind::kClass, rule.code, 0, rule.line});
    }
    for (const VendorRule& rule : policy.vendors) {
        const bool whole = rule.product == kEveryProduct;
        rules.push_back({whole ? Rule::Kind::kVendor : Rule::Kind::kProduct, rule.vendor,
                         rule.product, rule.line});
    }
    std::stable_sort(rules.begin(), rules.end(),
                     [](const Rule& one, const Rule& other) { return one.line < other.line; });
    return rules;
}

std::string readCases(std::istream& in, const std::string& file, Cases* cases) {
    RecordReader reader(in, file, kLongestFile);
    while (const auto record = reader.next()) {
        if (cases->cases.empty() && isCasesObject(*record)) {
            const std::string error = readObject(*record, file, cases);
            if (!error.empty() || !reader.next()) return error + reader.error();
            return reader.errorHere("there is more behind the cases");
        }
        std::string error;
        auto test = caseOf(*record, &error);
        if (!test) return reader.errorHere(error);
        cases->cases.push_back(std::move(*test));
    }
    return reader.error();
}

CaseResult CaseRunner::run(const Case& test) {
    const Explanation explanation = explainer_.explain(test.device);
    // What is left to the input subsystem was not decided by any rule.
    const bool decided = explanation.screening == Screening::kJudged;
    for (const Rule& rule : decided ? explanation.judgement.matched : std::vector<Rule>()) {
        touched_.emplace(rule.line, ruleText(rule));
    }
    return {test, agrees(test, explanation), expectation(test), outcome(test, explanation)};
}

std::vector<Rule> CaseRunner::untouched() const {
    std::vector<Rule> rules = rulesOf(policy_);
    rules.erase(std::remove_if(rules.begin(), rules.end(),
                               [this](const Rule& rule) {
                                   return touched_.count({rule.line, ruleText(rule)}) != 0;
                               }),
                rules.end());
    return rules;
}

Json::Value toJson(const CaseResult& result) {
    Json::Value value(Json::objectValue);
    value["name"] = valid_utf8(result.test.name);
    value["passed"] = result.passed;
    value["expected"] = valid_utf8(result.expected);
    value["got"] = valid_utf8(result.got);
    value["device"] = toJson(result.test.device);
    return value;
}

std::string toJunit(const std::vector<CaseResult>& results, const std::string& suite) {
    const auto failed = std::count_if(results.begin(), results.end(),
                                      [](const CaseResult& each) { return !each.passed; });
    tinyxml2::XMLPrinter printer;
    printer.PushDeclaration("xml version=\"1.0\" encoding=\"UTF-8\"");
    printer.OpenElement("testsuite");
    printer.PushAttribute("name", printable(suite).c_str());
    printer.PushAttribute("tests", static_cast<int>(results.size()));
    printer.PushAttribute("failures", static_cast<int>(failed));
    for (const CaseResult& result : results) {
        printer.OpenElement("testcase");
        printer.PushAttribute("classname", "policy");
        printer.PushAttribute("name", printable(result.test.name).c_str());
        if (!result.passed) {
            printer.OpenElement("failure");
            const std::string text = printable(describe(result.test.device) + ": expected " +
                                               result.expected + ", got " + result.got);
            printer.PushAttribute("message", text.c_str());
            printer.CloseElement();
        }
        printer.CloseElement();
    }
    printer.CloseElement();
    return printer.CStr();
}

}  // namespace android::vus::workbench
