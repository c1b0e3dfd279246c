// SPDX-License-Identifier: Apache-2.0
//
// What the analyser says of pairs of policies, for a prover that knows nothing of it. Reads lines
// of JSON: {"before": TEXT, "after": TEXT, "alias": {...}}; writes a line of JSON for each.

#include <iostream>
#include <optional>
#include <string>
#include <variant>

#include <json/value.h>

#include "tools/workbench/dead_rules.h"
#include "tools/workbench/difference.h"
#include "tools/workbench/inputs.h"
#include "tools/workbench/json.h"
#include "tools/workbench/lint.h"
#include "tools/workbench/surface.h"

namespace android::vus::workbench {
namespace {

Policy policyOf(const Json::Value& text) {
    return std::get<Policy>(parsePolicy(text.asString()));
}

Json::Value toJson(const Difference& difference) {
    Json::Value value(Json::objectValue);
    value["subject"] = static_cast<int>(difference.subject);
    value["admitted"] = difference.admitted;
    value["code"] = difference.code;
    value["device"] = toJson(exampleOf(difference.witness));
    return value;
}

Json::Value deadLinesOf(const Policy& policy) {
    Json::Value lines(Json::arrayValue);
    for (const DeadRule& each : deadRules(policy, ClosedForm(policy))) lines.append(each.line);
    return lines;
}

std::optional<int32_t> fieldOf(const Json::Value& alias, const char* name) {
    if (alias[name].isNull()) return std::nullopt;
    return alias[name].asInt();
}

Json::Value check(const std::string& text) {
    const auto result = parsePolicy(text);
    const auto* policy = std::get_if<Policy>(&result);
    Json::Value value(Json::objectValue);
    value["accepted"] = policy != nullptr;
    value["status"] = policy != nullptr ? "SUCCESS" : std::get<PolicyFailure>(result).status;
    value["findings"] = Json::Value(Json::arrayValue);
    if (policy == nullptr) return value;
    for (const Finding& each : lint(text, *policy, nullptr)) {
        value["findings"].append(std::string(each.rule->id));
    }
    return value;
}

Json::Value compare(const Json::Value& question) {
    const Policy before = policyOf(question["before"]), after = policyOf(question["after"]);
    Json::Value value(Json::objectValue);
    value["differences"] = Json::Value(Json::arrayValue);
    for (const Difference& each : differences(ClosedForm(before), ClosedForm(after))) {
        value["differences"].append(toJson(each));
    }
    value["dead"] = deadLinesOf(before);
    const Alias alias = {fieldOf(question["alias"], "vendor"),
                         fieldOf(question["alias"], "product"), fieldOf(question["alias"], "class"),
                         "driver"};
    if (const auto witness = admittedBy(ClosedForm(before), alias)) {
        value["reached"] = toJson(exampleOf(*witness));
    }
    return value;
}

int run() {
    for (std::string line; std::getline(std::cin, line);) {
        std::string error;
        int at = 0;
        const auto question = parseJson(line, &error, &at);
        if (!question) {
            std::cerr << error << "\n";
            return 1;
        }
        const bool isText = question->isMember("text");
        std::cout << toJsonLine(isText ? check((*question)["text"].asString()) : compare(*question))
                  << "\n";
    }
    return 0;
}

}  // namespace
}  // namespace android::vus::workbench

int main() {
    return android::vus::workbench::run();
}
