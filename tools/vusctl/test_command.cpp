// SPDX-License-Identifier: Apache-2.0

#include <errno.h>
#include <string.h>

#include <fstream>
#include <iostream>

#include <android-base/file.h>

#include "tools/common/text.h"
#include "tools/vusctl/sources.h"
#include "tools/vusctl/workbench_commands.h"
#include "tools/workbench/cases.h"

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

// How many of a hundred rules are touched, rounded down; of a policy without rules all are.
size_t print_coverage(const Policy& policy, const workbench::CaseRunner& runner,
                      std::ostream& out) {
    const size_t rules = workbench::rulesOf(policy).size();
    const std::vector<Rule> untouched = runner.untouched();
    for (const Rule& rule : untouched) {
        out << "no case for line " << rule.line << ": " << workbench::ruleText(rule) << "\n";
    }
    const size_t touched = rules - untouched.size();
    const size_t percent = rules == 0 ? 100 : touched * 100 / rules;
    out << "coverage: " << touched << " of " << rules << " rules (" << percent << " %)\n";
    return percent;
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

    workbench::CaseRunner runner(*policy);
    std::vector<workbench::CaseResult> results;
    size_t failed = 0;
    for (const workbench::Case& test : cases.cases) {
        results.push_back(runner.run(test));
        print_result(results.back(), context.out);
        if (!results.back().passed) ++failed;
    }
    context.out << results.size() << " cases: " << results.size() - failed << " passed, " << failed
                << " failed\n";
    const auto junit = call.value("--junit");
    if (junit && !base::WriteStringToFile(workbench::toJunit(results, call.plain[0]), *junit)) {
        return context.failed("cannot write " + printable(*junit) + ": " + strerror(errno));
    }
    bool enough = true;
    if (call.has("--coverage") || call.has("--threshold")) {
        const size_t percent = print_coverage(*policy, runner, context.out);
        enough = !call.has("--threshold") || percent >= *threshold_of(call);
        if (!enough) context.out << "that is less than " << *call.value("--threshold") << " %\n";
    }
    return failed == 0 && enough ? kDone : kRefused;
}

}  // namespace android::vus::ctl
