// SPDX-License-Identifier: Apache-2.0

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <android-base/file.h>

#include "tools/common/text.h"
#include "tools/vusctl/sources.h"
#include "tools/vusctl/workbench_commands.h"
#include "tools/workbench/cases.h"
#include "tools/workbench/json.h"

namespace android::vus::ctl {

namespace {

int load_cases(Context& context, const std::string& path, workbench::Cases* cases) {
    std::string error;
    if (path == "-") {
        error = workbench::readCases(std::cin, "standard input", cases);
    } else {
        std::string content;
        if (!base::ReadFileToString(path, &content, /*follow_symlinks=*/true)) {
            return context.failed("cannot read " + printable(path) + ": " + strerror(errno));
        }
        std::istringstream file(content);
        error = workbench::readCases(file, path, cases);
    }
    return error.empty() ? kDone : context.failed(error);
}

// The policy that the call names, or the cases do: by a path from where they are.
std::string policy_path(const Call& call, const workbench::Cases& cases) {
    if (const auto path = call.value("--policy")) return *path;
    if (!cases.policy) return "";
    const std::string& file = call.plain[0];
    const size_t slash = file.rfind('/');
    const bool beside = slash != std::string::npos && cases.policy->rfind('/', 0) != 0;
    return beside ? file.substr(0, slash + 1) + *cases.policy : *cases.policy;
}

void print_result(const workbench::CaseResult& result, std::ostream& out) {
    out << (result.passed ? "ok    " : "FAIL  ")
        << shortened(printable(result.test.name), kScreenWidth - 6) << "\n";
    if (result.passed) return;
    out << wrapped("device: " + workbench::describe(result.test.device), 6, kScreenWidth)
        << wrapped("expected: " + printable(result.expected), 6, kScreenWidth)
        << wrapped("got: " + printable(result.got), 6, kScreenWidth);
}

// What of a policy the cases touched.
struct RuleCoverage {
    size_t rules = 0;
    std::vector<Rule> untouched;

    size_t touched() const { return rules - untouched.size(); }
    // Rounded down; of a policy without rules all are.
    size_t percent() const { return rules == 0 ? 100 : touched() * 100 / rules; }
};

struct TestReport {
    std::vector<workbench::CaseResult> results;
    std::optional<RuleCoverage> coverage;  // if it was asked for

    size_t failed() const {
        return static_cast<size_t>(std::count_if(results.begin(), results.end(),
                                                 [](const auto& each) { return !each.passed; }));
    }
};

TestReport run_cases(const Policy& policy, const workbench::Cases& cases, bool coverage) {
    TestReport report;
    workbench::CaseRunner runner(policy);
    for (const workbench::Case& test : cases.cases) report.results.push_back(runner.run(test));
    if (coverage) report.coverage = {workbench::rulesOf(policy).size(), runner.untouched()};
    return report;
}

void print_coverage(const RuleCoverage& coverage, std::ostream& out) {
    for (const Rule& rule : coverage.untouched) {
        out << "no case for line " << rule.line << ": " << workbench::ruleText(rule) << "\n";
    }
    out << "coverage: " << coverage.touched() << " of " << coverage.rules << " rules ("
        << coverage.percent() << " %)\n";
}

void print_text(const TestReport& report, std::ostream& out) {
    for (const workbench::CaseResult& result : report.results) print_result(result, out);
    out << report.results.size() << " cases: " << report.results.size() - report.failed()
        << " passed, " << report.failed() << " failed\n";
    if (report.coverage) print_coverage(*report.coverage, out);
}

Json::Value json_of(const RuleCoverage& coverage) {
    Json::Value value(Json::objectValue);
    value["rules"] = static_cast<Json::UInt64>(coverage.rules);
    value["touched"] = static_cast<Json::UInt64>(coverage.touched());
    value["percent"] = static_cast<Json::UInt64>(coverage.percent());
    Json::Value& untouched = value["untouched"] = Json::Value(Json::arrayValue);
    for (const Rule& rule : coverage.untouched) {
        Json::Value each(Json::objectValue);
        each["line"] = rule.line;
        each["rule"] = workbench::ruleText(rule);
        untouched.append(std::move(each));
    }
    return value;
}

Json::Value json_of(const TestReport& report) {
    Json::Value value(Json::objectValue);
    Json::Value& cases = value["cases"] = Json::Value(Json::arrayValue);
    for (const workbench::CaseResult& each : report.results) cases.append(workbench::toJson(each));
    value["passed"] = static_cast<Json::UInt64>(report.results.size() - report.failed());
    value["failed"] = static_cast<Json::UInt64>(report.failed());
    if (report.coverage) value["coverage"] = json_of(*report.coverage);
    return value;
}

std::optional<size_t> threshold_of(const Call& call) {
    const auto number = workbench::parseNumber(*call.value("--threshold"));
    if (!number || *number < 0 || *number > 100) return std::nullopt;
    return static_cast<size_t>(*number);
}

}  // namespace

int test_policy(Context& context, const Call& call) {
    if (call.has("--threshold") && !threshold_of(call)) {
        return context.usage_error("--threshold takes a percentage, 0 to 100");
    }
    workbench::Cases cases;
    int status = load_cases(context, call.plain[0], &cases);
    if (status != kDone) return status;
    const std::string path = policy_path(call, cases);
    if (path.empty()) return context.usage_error("no policy: the cases name none; give --policy");
    const auto policy = load_policy(context, path, &status);
    if (!policy) return kFailed;

    const bool json = call.has("--json");
    const TestReport report =
            run_cases(*policy, cases, call.has("--coverage") || call.has("--threshold"));
    if (json) {
        context.out << workbench::toJsonText(json_of(report));
    } else {
        print_text(report, context.out);
    }
    const auto junit = call.value("--junit");
    if (junit &&
        !base::WriteStringToFile(workbench::toJunit(report.results, call.plain[0]), *junit)) {
        return context.failed("cannot write " + printable(*junit) + ": " + strerror(errno));
    }
    const bool enough =
            !call.has("--threshold") || report.coverage->percent() >= *threshold_of(call);
    if (!enough && !json) {
        context.out << "that is less than " << *call.value("--threshold") << " %\n";
    }
    return report.failed() == 0 && enough ? kDone : kRefused;
}

}  // namespace android::vus::ctl
