// SPDX-License-Identifier: Apache-2.0

// The load of the policy file: parse, put in force, report.

#include <cstdio>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include <android-base/logging.h>
#include <tinyxml2.h>

#include "android/vus/file_io.h"
#include "android/vus/gathered_log.h"
#include "android/vus/util.h"
#include "android/vus/util_log.h"

namespace android::vus {

namespace {

using Parsed = std::variant<Policy, PolicyFailure>;

// What one load puts in force.
struct Tables {
    std::optional<std::string> mode;  // none: the mode stays
    std::vector<int32_t> classes;
    std::map<int32_t, std::string> names;
    std::multimap<int32_t, int32_t> vendors;
};

Tables tablesOf(Policy policy, bool hasMode) {
    Tables tables;
    if (hasMode) tables.mode = std::move(policy.mode);
    tables.classes.reserve(policy.classes.size());
    for (ClassRule& rule : policy.classes) {
        tables.classes.push_back(rule.code);
        tables.names.try_emplace(rule.code, std::move(rule.name));  // the first text stays
    }
    for (const VendorRule& rule : policy.vendors) {
        tables.vendors.emplace_hint(tables.vendors.end(), rule.vendor, rule.product);
    }
    return tables;
}

// All at once, so that no decision sees half a policy.
void putInForce(Tables tables, std::optional<std::string> status, bool success) {
    const PolicyWriteLock policy;
    if (tables.mode) Util::configMode.swap(*tables.mode);
    if (status) Util::statusMessage.swap(*status);
    Util::classList.swap(tables.classes);
    Util::classMap.swap(tables.names);
    Util::vidPidMap.swap(tables.vendors);
    Util::xml_parse_status = success;
}

std::string currentStatusMessage() {
    const PolicyReadLock policy;
    return Util::statusMessage;
}

void accept(Policy policy) {
    const bool blocksAll = policy.mode != kModeDefault && policy.hasNoRules();
    putInForce(tablesOf(std::move(policy), /*hasMode=*/true), std::nullopt, /*success=*/true);
    // The text that the last load left, stale or not; kept: oddity 14.
    if (blocksAll) Util::updateErrorFile(Util::statusFilePath, currentStatusMessage());
}

void report(const XmlError& error) {
    LOG(ERROR) << "xmlinput --Found error " << error.id << " name: " << error.name;
    LOG(ERROR) << "xmlinput -- error string " << error.text;
    Util::updateErrorFile(Util::statusFilePath, error.text);
}

// The log line and the status file, in the order that the failure has always had.
void report(const PolicyFailure& failure) {
    if (failure.logFirst) LOG(ERROR) << failure.logPrefix << failure.status;
    Util::updateErrorFile(Util::statusFilePath, failure.status);
    if (!failure.logFirst) LOG(ERROR) << failure.logPrefix << failure.status;
}

// What a failed load has read is put in force, too: the watcher answers a failure with a load of
// the backup. Of a file that is no XML nothing takes effect, and statusMessage keeps the text of an
// earlier load; kept: oddity 15.
void reject(PolicyFailure failure) {
    const auto* error = std::get_if<XmlError>(&failure.library);
    putInForce(tablesOf(std::move(failure.read), failure.hasMode),
               error == nullptr ? std::optional(failure.status) : std::nullopt, /*success=*/false);
    error == nullptr ? report(failure) : report(*error);
}

PolicyFailure unreadable(const tinyxml2::XMLDocument& document) {
    PolicyFailure failure;
    failure.status = document.ErrorStr();
    failure.library =
            XmlError{document.ErrorID(), tinyxml2::XMLDocument::ErrorIDToName(document.ErrorID()),
                     document.ErrorStr()};
    return failure;
}

// What the library's own loader says, of a stand-in: of the file itself it might never say it.
PolicyFailure unreadable(const std::string& path, PolicyText::Fault fault) {
    tinyxml2::XMLDocument document;
    if (fault == PolicyText::Fault::kNotFound) {
        document.LoadFile("");
        PolicyFailure failure = unreadable(document);
        std::get<XmlError>(failure.library).text = failure.status += path;
        return failure;
    }
    char byte = 0;
    const std::unique_ptr<FILE, int (*)(FILE*)> write_only(fmemopen(&byte, 1, "w"), fclose);
    if (write_only != nullptr) document.LoadFile(write_only.get());
    return unreadable(document);
}

// The bytes of the file go to `text`: it may be another one by the time they are judged.
Parsed readAndParse(const std::string& path, std::string* text) {
    PolicyText read = read_policy_text(path);
    if (!read.ok()) return unreadable(path, read.fault);
    *text = std::move(read.bytes);
    const GatheredLog log;
    return parsePolicy(*text, logParseStep);
}

}  // namespace

void Util::createMapFromConfig(std::string path) {
    loadPolicy(path);
}

std::string Util::loadPolicy(const std::string& path) {
    std::string text;
    Parsed parsed = readAndParse(path, &text);
    if (auto* policy = std::get_if<Policy>(&parsed)) {
        accept(std::move(*policy));
    } else {
        reject(std::get<PolicyFailure>(std::move(parsed)));
    }
    return text;
}

}  // namespace android::vus
