// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/exposures.h"

#include <limits>
#include <set>
#include <utility>

#include <android-base/stringprintf.h>

#include "tools/common/text.h"
#include "tools/workbench/json.h"

namespace android::vus::ctl {

namespace {

using base::StringPrintf;

// Tenths of a millisecond, where there are any.
std::string milliseconds(double time) {
    std::string text = StringPrintf("%.1f", time);
    if (text == "0.0") text = time > 0 ? "less than 0.1" : "0";
    return text + " ms";
}

bool is_time(const Json::Value& value) {
    return value.isNumeric() && value.asDouble() >= 0;
}

// What has to be in the line of a device. A number beyond its range is no number of ours.
bool is_device(const Json::Value& line) {
    const std::string verdict = line["verdict"].isString() ? line["verdict"].asString() : "";
    const bool judged = verdict == "none" || verdict == "allowed" || verdict == "refused";
    const bool measured = is_time(line["exposedMs"]) != line["notMeasured"].isString();
    return judged && measured && line["time"].isString() && is_time(line["uptimeMs"]) &&
           line["entry"].isString() && line["turn"].isInt() && line["vendorId"].isInt() &&
           line["productId"].isInt() && line["deviceName"].isString();
}

}  // namespace

void Exposures::add(const std::string& line) {
    std::string error;
    int at = 0;
    const auto value = workbench::parseJson(line, &error, &at);
    const bool is_object = value && value->isObject();
    if (is_object && (*value)["eventsLost"].isBool()) {
        ++events_lost_;
    } else if (is_object && (*value)["linesLost"].isInt()) {
        lines_lost_ += (*value)["linesLost"].asInt();
    } else if (!is_object || !add_device(*value)) {
        ++malformed_;
    }
}

bool Exposures::add_device(const Json::Value& line) {
    if (!is_device(line)) return false;
    const Device device = {line["time"].asString(), line["uptimeMs"].asDouble(),
                           line["entry"].asString()};
    Case& known = cases_[{device, line["turn"].asInt()}];
    known.verdict = line["verdict"].asString();
    known.not_measured = line["notMeasured"].isString() ? line["notMeasured"].asString() : "";
    known.exposed_ms = known.not_measured.empty() ? line["exposedMs"].asDouble() : 0;
    known.on = line["on"].isBool() && line["on"].asBool();
    known.line = line;
    return true;
}

Exposures::Sum Exposures::sum() const {
    Sum sum;
    std::set<Device> devices, refused, not_judged, present, unheard;
    const auto longest = [](const Case** known, const Case& other) {
        if (other.exposed_ms == 0) return;
        if (*known == nullptr || (*known)->exposed_ms < other.exposed_ms) *known = &other;
    };
    for (auto at = cases_.begin(); at != cases_.end(); ++at) {
        const auto& [device, turn] = at->first;
        const Case& known = at->second;
        const auto next = std::next(at);
        const bool is_last = next == cases_.end() || next->first.first != device;
        devices.insert(device);
        if (known.verdict == "refused") refused.insert(device);
        if (known.verdict == "none") not_judged.insert(device);
        if (known.not_measured == "present") present.insert(device);
        if (!known.not_measured.empty() && known.not_measured != "present") unheard.insert(device);
        if (known.verdict == "refused" && !known.not_measured.empty()) ++sum.unmeasured_refusals;
        longest(known.is_allowed() ? &sum.early : &sum.worst, known);
        if (known.is_allowed()) continue;
        sum.exposed_ms += known.exposed_ms;
        if (!known.on || !is_last) continue;
        ++sum.on;
        sum.still_on = &known;
    }
    sum.devices = static_cast<int>(devices.size());
    sum.refused = static_cast<int>(refused.size());
    sum.not_judged = static_cast<int>(not_judged.size());
    sum.present = static_cast<int>(present.size());
    sum.unheard = static_cast<int>(unheard.size());
    return sum;
}

std::string Exposures::describe(const Case& device) {
    const std::string name = printable(device.line["deviceName"].asString());
    return StringPrintf("%s %04x:%04x", printable(device.line["entry"].asString()).c_str(),
                        static_cast<unsigned>(device.line["vendorId"].asInt()),
                        static_cast<unsigned>(device.line["productId"].asInt())) +
           (name.empty() ? "" : " \"" + name + "\"");
}

std::string Exposures::notes(const Sum& sum) const {
    std::string text;
    const auto note = [&text](bool applies, const std::string& line) {
        if (applies) text += "  " + line + "\n";
    };
    if (sum.on != 0) {
        note(true, StringPrintf("%d without being allowed on when last heard of: ", sum.on) +
                           describe(*sum.still_on));
    }
    if (sum.early != nullptr) {
        note(true, "allowed ones were in use before that for at most " +
                           milliseconds(sum.early->exposed_ms) + ": " + describe(*sum.early));
    }
    note(sum.unmeasured_refusals != 0,
         StringPrintf("not measured: %d of the refusals", sum.unmeasured_refusals));
    note(sum.present != 0, StringPrintf("there before, and not measured: %d", sum.present));
    note(sum.unheard != 0,
         StringPrintf("there while events were lost, and not measured: %d", sum.unheard));
    note(events_lost_ != 0, StringPrintf("events were lost, times: %d", events_lost_));
    note(lines_lost_ != 0, StringPrintf("lines that could not be written: %d", lines_lost_));
    note(malformed_ != 0, StringPrintf("lines that are none: %d", malformed_));
    return text;
}

std::string Exposures::to_text() const {
    const Sum all = sum();
    std::string text = StringPrintf("%d device%s, %d refused", all.devices,
                                    all.devices == 1 ? "" : "s", all.refused);
    if (all.not_judged != 0) text += StringPrintf(", %d not judged", all.not_judged);
    text += ", " + milliseconds(all.exposed_ms) + " exposed";
    if (all.worst != nullptr) {
        text += "; worst: " + describe(*all.worst) + ", " + milliseconds(all.worst->exposed_ms);
    }
    return text + "\n" + notes(all);
}

Json::Value Exposures::to_json() const {
    const Sum all = sum();
    Json::Value value(Json::objectValue);
    value["devices"] = all.devices;
    value["refused"] = all.refused;
    value["notJudged"] = all.not_judged;
    value["exposedMs"] = all.exposed_ms;
    value["stillOn"] = all.on;
    Json::Value& not_measured = value["notMeasured"] = Json::Value(Json::objectValue);
    not_measured["refused"] = all.unmeasured_refusals;
    not_measured["present"] = all.present;
    not_measured["lost"] = all.unheard;
    value["eventsLost"] = events_lost_;
    value["linesLost"] = lines_lost_;
    value["malformed"] = malformed_;
    if (all.worst != nullptr) value["worst"] = all.worst->line;
    if (all.early != nullptr) value["worstAllowed"] = all.early->line;
    return value;
}

double Exposures::worst_ms() const {
    const Sum all = sum();
    if (all.on != 0) return std::numeric_limits<double>::infinity();
    return all.worst == nullptr ? 0 : all.worst->exposed_ms;
}

}  // namespace android::vus::ctl
