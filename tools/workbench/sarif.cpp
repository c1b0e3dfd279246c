// SPDX-License-Identifier: Apache-2.0
//
// SARIF 2.1.0, for the tools that show findings beside the lines of a change.

#include <string.h>

#include <string>

#include "tools/workbench/check.h"
#include "tools/workbench/inputs.h"
#include "tools/workbench/json.h"

namespace android::vus::workbench {

namespace {

constexpr char kSchema[] = "https://json.schemastore.org/sarif-2.1.0.json";
// The id of what is no finding, but the daemon's own verdict.
constexpr char kRejected[] = "rejected";

Json::Value message(std::string_view text) {
    Json::Value value(Json::objectValue);
    value["text"] = std::string(text);
    return value;
}

// A path as a relative or absolute URI reference.
std::string uriOf(const std::string& path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string uri;
    for (const char c : path) {
        if (isalnum(static_cast<unsigned char>(c)) != 0 || strchr("/._-~", c) != nullptr) {
            uri += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        uri += '%';
        uri += kDigits[byte >> 4];
        uri += kDigits[byte & 0xF];
    }
    return uri;
}

Json::Value locationOf(const std::string& path, int line) {
    Json::Value place(Json::objectValue);
    place["artifactLocation"]["uri"] = uriOf(path);
    if (line != kNoLine) place["region"]["startLine"] = line;
    Json::Value location(Json::objectValue);
    location["physicalLocation"] = place;
    return location;
}

Json::Value resultOf(const std::string& path, std::string_view id, std::string_view level, int line,
                     const std::string& text) {
    Json::Value result(Json::objectValue);
    result["ruleId"] = std::string(id);
    result["level"] = std::string(level);
    result["message"] = message(text);
    result["locations"].append(locationOf(path, line));
    return result;
}

Json::Value ruleOf(std::string_view id, std::string_view level, std::string_view title) {
    Json::Value rule(Json::objectValue);
    rule["id"] = std::string(id);
    rule["shortDescription"] = message(title);
    rule["defaultConfiguration"]["level"] = std::string(level);
    return rule;
}

Json::Value driver() {
    Json::Value driver(Json::objectValue);
    driver["name"] = "vusctl";
    for (const LintRule& rule : lintRules()) {
        driver["rules"].append(ruleOf(rule.id, nameOf(rule.level), rule.title));
    }
    driver["rules"].append(
            ruleOf(kRejected, nameOf(Level::kError), "The daemon rejects the policy"));
    return driver;
}

}  // namespace

std::string toSarif(const std::string& path, const Rejection* rejection,
                    const std::vector<Finding>& findings) {
    Json::Value run(Json::objectValue);
    run["tool"]["driver"] = driver();
    run["results"] = Json::Value(Json::arrayValue);
    if (rejection != nullptr) {
        const std::string hint = rejection->hint.empty() ? "" : " Did you mean: " + rejection->hint;
        run["results"].append(resultOf(path, kRejected, nameOf(Level::kError), rejection->line,
                                       rejection->status + hint));
    }
    for (const Finding& finding : findings) {
        run["results"].append(
                resultOf(path, finding.rule->id, nameOf(finding.rule->level), finding.line,
                         finding.message + " Shown by: " + describe(exampleOf(finding.witness)) +
                                 ", " + (finding.allowed ? "allowed" : "refused") +
                                 ". Instead: " + finding.advice));
    }
    Json::Value log(Json::objectValue);
    log["$schema"] = kSchema;
    log["version"] = "2.1.0";
    log["runs"].append(run);
    return toJsonText(log);
}

}  // namespace android::vus::workbench
