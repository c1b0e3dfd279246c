// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/surface.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <utility>

#include "android/vus/class_names.h"

namespace android::vus::workbench {

namespace {

using Mode = ClosedForm::Mode;

constexpr std::string_view kUsbAlias = "alias usb:";

// Takes the fields of an alias off its front, one after the other.
class Fields {
  public:
    explicit Fields(std::string_view text) : text_(text) {}

    // A name and as many hexadecimal digits as it has to have, or "*".
    bool take(std::string_view name, size_t digits, std::optional<int32_t>* value) {
        if (!skip(name)) return false;
        if (skip("*")) {
            value->reset();
            return true;
        }
        if (text_.size() < digits) return false;
        int32_t number = 0;
        const char* const end = text_.data() + digits;
        const auto result = std::from_chars(text_.data(), end, number, 16);
        if (result.ec != std::errc() || result.ptr != end) return false;
        *value = number;
        text_.remove_prefix(digits);
        return true;
    }

    // A name and anything up to the next name.
    bool pass(std::string_view name, std::string_view next) {
        if (!skip(name)) return false;
        const size_t end = text_.find(next);
        if (end == std::string_view::npos) return false;
        text_.remove_prefix(end);
        return true;
    }

    bool skip(std::string_view prefix) {
        if (text_.substr(0, prefix.size()) != prefix) return false;
        text_.remove_prefix(prefix.size());
        return true;
    }

    std::string_view rest() const { return text_; }

  private:
    std::string_view text_;
};

bool takeAlias(Fields* fields, Alias* alias) {
    std::optional<int32_t> unused;
    const bool taken = fields->take("v", 4, &alias->vendor) &&
                       fields->take("p", 4, &alias->product) &&
                       // Releases may be ranges.
                       fields->pass("d", "dc") && fields->take("dc", 2, &unused) &&
                       fields->take("dsc", 2, &unused) && fields->take("dp", 2, &unused) &&
                       fields->take("ic", 2, &alias->interfaceClass) &&
                       fields->take("isc", 2, &unused) && fields->take("ip", 2, &unused);
    if (!taken) return false;
    // Older kernels have no interface number in it.
    if (!fields->take("in", 2, &unused) && !fields->skip("*") &&
        fields->rest().substr(0, 1) != " ") {
        return false;
    }
    fields->skip("*");
    if (!fields->skip(" ")) return false;
    alias->driver = fields->rest();
    return !alias->driver.empty();
}

// The interfaces of a device that has the one that the driver asks for, and that the class rules
// match or do not match, as wanted.
std::optional<std::vector<int32_t>> interfacesWith(const ClosedForm& form,
                                                   std::optional<int32_t> wanted, bool match) {
    const std::vector<int32_t>& listed = form.usbClasses();
    if (match) {
        if (listed.empty()) return std::nullopt;
        if (!wanted || form.listsClass(*wanted))
            return std::vector{wanted.value_or(listed.front())};
        if (isRestrictedClass(*wanted)) return std::vector{listed.front(), *wanted};
        return std::nullopt;
    }
    if (!wanted) return std::vector{kNeutralClass};
    // Beside a listed class, one that cannot be listed ends the search. Beside HID, anything else
    // keeps the device from being left to the input rules.
    constexpr int32_t kUnnamedClass = 0x04;
    if (form.listsClass(*wanted)) return std::vector{*wanted, kUnnamedClass};
    if (*wanted == kUsbClassHid) return std::vector{*wanted, kNeutralClass};
    return std::vector{*wanted};
}

bool bindsHid(const Alias& alias) {
    return !alias.interfaceClass || *alias.interfaceClass == kUsbClassHid;
}

}  // namespace

std::optional<Alias> parseAlias(std::string_view line, bool* understood) {
    *understood = true;
    Fields fields(line);
    if (!fields.skip(kUsbAlias)) return std::nullopt;
    Alias alias;
    *understood = takeAlias(&fields, &alias);
    return *understood ? std::optional(std::move(alias)) : std::nullopt;
}

Aliases readAliases(std::istream& in) {
    Aliases aliases;
    for (std::string line; std::getline(in, line);) {
        bool understood = true;
        if (auto alias = parseAlias(line, &understood)) aliases.usb.push_back(std::move(*alias));
        if (!understood) ++aliases.notUnderstood;
    }
    return aliases;
}

std::optional<Claim> admittedBy(const ClosedForm& form, const Alias& alias) {
    for (const bool idsMatch : {false, true}) {
        const auto ids = form.idsThat(idsMatch, alias.vendor, alias.product);
        if (!ids) continue;
        for (const bool classMatches : {true, false}) {
            if (!form.admits(classMatches, idsMatch)) continue;
            if (auto interfaces = interfacesWith(form, alias.interfaceClass, classMatches)) {
                return usbClaim(std::move(*interfaces), *ids);
            }
        }
    }
    return std::nullopt;
}

Surface surfaceOf(const ClosedForm& form, const Aliases& aliases) {
    struct Driver {
        size_t aliases = 0;
        size_t reachable = 0;
        bool unjudged = false;
        Claim witness;
    };
    std::map<std::string_view, Driver> drivers;
    for (const Alias& alias : aliases.usb) {
        Driver& driver = drivers[alias.driver];
        ++driver.aliases;
        driver.unjudged |= bindsHid(alias);
        if (auto witness = admittedBy(form, alias)) {
            if (driver.reachable++ == 0) driver.witness = std::move(*witness);
        }
    }
    Surface surface;
    surface.drivers = drivers.size();
    surface.aliases = aliases.usb.size();
    for (auto& [name, driver] : drivers) {
        surface.unjudged += driver.unjudged ? 1 : 0;
        if (driver.reachable == 0) continue;
        surface.reachable.push_back(
                {std::string(name), driver.aliases, driver.reachable, std::move(driver.witness)});
    }
    return surface;
}

int Surface::score() const {
    return drivers == 0 ? 0 : static_cast<int>((100 * reachable.size() + drivers - 1) / drivers);
}

}  // namespace android::vus::workbench
