// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/hid_descriptor.h"

#include <algorithm>
#include <map>
#include <utility>

#include "tools/hotplug/hid_capabilities.h"

namespace android::vus::hotplug {

namespace {

// The kernel's own bounds.
constexpr size_t kMaxUsages = 12288;
constexpr size_t kMaxPushed = 4;
constexpr uint32_t kMaxReportSize = 256;
constexpr uint32_t kMaxReportId = 255;

constexpr uint32_t kPhysical = 0;
constexpr uint32_t kApplication = 1;

constexpr uint32_t kConstant = 1 << 0;
constexpr uint32_t kRelative = 1 << 2;

// Which collections the input subsystem serves.
bool is_input_usage(uint32_t usage) {
    constexpr uint32_t kDesktop = 0x10000, kMultiAxis = 0x10008, kRadioControls = 0x1000C;
    constexpr uint32_t kSystemControl = 0x10080, kConsumerControl = 0xC0001;
    constexpr uint32_t kDigitizer = 0xD0001, kWhiteboard = 0xD0006;
    return (usage >= kDesktop && usage <= kMultiAxis) ||
           (usage >= kDigitizer && usage <= kWhiteboard) || usage == kSystemControl ||
           usage == kConsumerControl || usage == kRadioControls;
}

struct Item {
    enum class Type { kMain, kGlobal, kLocal, kReserved };
    Type type;
    unsigned tag;
    uint32_t value;
    size_t size;
};

class Parser {
  public:
    explicit Parser(const std::vector<uint8_t>& text) : text_(text) {}

    std::optional<HidNature> run() {
        if (text_.empty() || text_.size() > kMaxReportDescriptor) return std::nullopt;
        while (at_ < text_.size()) {
            Item item = {};
            if (!next(&item) || !take(item)) return std::nullopt;
        }
        if (!collections_.empty() || in_delimiter_) return std::nullopt;
        for (const uint32_t usage : order_) {
            nature_.applications.push_back({usage, capabilities_[usage].sources()});
        }
        return std::move(nature_);
    }

  private:
    struct Globals {
        uint32_t page = 0;
        uint32_t report_size = 0;
        uint32_t report_id = 0;
        uint32_t report_count = 0;
    };
    struct Usage {
        uint32_t value;
        bool has_page;
    };
    struct Collection {
        uint32_t type;
        uint32_t usage;
    };

    bool next(Item* item) {
        constexpr uint8_t kLong = 0xFE;
        constexpr size_t kSizes[] = {0, 1, 2, 4};
        const uint8_t prefix = text_[at_++];
        if (prefix == kLong) return false;
        item->size = kSizes[prefix & 3];
        item->type = static_cast<Item::Type>(prefix >> 2 & 3);
        item->tag = prefix >> 4;
        if (text_.size() - at_ < item->size) return false;
        for (size_t byte = 0; byte < item->size; ++byte) {
            item->value |= static_cast<uint32_t>(text_[at_++]) << 8 * byte;
        }
        return true;
    }

    bool take(const Item& item) {
        switch (item.type) {
            case Item::Type::kMain:
                return take_main(item);
            case Item::Type::kGlobal:
                return take_global(item);
            case Item::Type::kLocal:
                return take_local(item);
            case Item::Type::kReserved:
                return true;
        }
        return false;
    }

    bool take_main(const Item& item) {
        constexpr unsigned kInput = 8, kCollection = 10, kEnd = 12;
        for (Usage& usage : usages_) {
            if (!usage.has_page) usage.value = (usage.value & 0xFFFF) | globals_.page << 16;
        }
        const bool ends_nothing = item.tag == kEnd && collections_.empty();
        if (item.tag == kInput) add_field(item.value);
        if (item.tag == kCollection) open_collection(item.value & 0xFF);
        if (item.tag == kEnd && !ends_nothing) collections_.pop_back();
        usages_.clear();
        branch_ = 0;
        in_delimiter_ = false;
        range_begin_ = 0;
        return !ends_nothing;
    }

    void open_collection(uint32_t type) {
        const uint32_t usage = usages_.empty() ? 0 : usages_[0].value;
        collections_.push_back({type, usage});
        nature_.is_input |= (type == kApplication || type == kPhysical) && is_input_usage(usage);
    }

    uint32_t innermost(uint32_t type) const {
        const auto found = std::find_if(collections_.rbegin(), collections_.rend(),
                                        [type](const Collection& one) { return one.type == type; });
        return found == collections_.rend() ? 0 : found->usage;
    }

    void add_field(uint32_t flags) {
        // What has no usage is padding.
        if (usages_.empty()) return;
        const uint32_t application = innermost(kApplication);
        // The report is its first field's application's, whatever its other fields are.
        const uint32_t owner = owners_.try_emplace(globals_.report_id, application).first->second;
        const auto [at, fresh] = capabilities_.try_emplace(owner);
        if (fresh) order_.push_back(owner);
        if ((flags & kConstant) != 0 || globals_.report_count == 0) return;
        const HidField field = {application, innermost(kPhysical), (flags & kRelative) != 0,
                                globals_.report_size == 1};
        for (const Usage& usage : usages_) at->second.add(field, usage.value);
    }

    bool take_global(const Item& item) {
        switch (item.tag) {
            case 0:
                globals_.page = item.value & 0xFFFF;
                return true;
            case 7:
                globals_.report_size = item.value;
                return item.value <= kMaxReportSize;
            case 8:
                globals_.report_id = item.value;
                return item.value != 0 && item.value <= kMaxReportId;
            case 9:
                globals_.report_count = item.value;
                return item.value <= kMaxUsages;
            case 10:
                pushed_.push_back(globals_);
                return pushed_.size() <= kMaxPushed;
            case 11:
                if (pushed_.empty()) return false;
                globals_ = pushed_.back();
                pushed_.pop_back();
                return true;
            default:
                return item.tag < 7;  // bounds and units
        }
    }

    bool take_local(const Item& item) {
        constexpr unsigned kUsage = 0, kUsageMinimum = 1, kUsageMaximum = 2, kDelimiter = 10;
        if (item.tag == kDelimiter) return delimit(item.value != 0);
        // Of alternatives the first counts.
        if (branch_ > 1 || item.tag > kUsageMaximum) return true;
        const bool has_page = item.size > 2;
        if (item.tag == kUsageMinimum) range_begin_ = item.value;
        if (item.tag == kUsage) return add_usages(item.value, item.value, has_page);
        return item.tag == kUsageMinimum || add_usages(range_begin_, item.value, has_page);
    }

    bool delimit(bool opens) {
        if (opens == in_delimiter_) return false;
        in_delimiter_ = opens;
        branch_ += opens ? 1 : 0;
        return true;
    }

    // A range that is too long is cut, as the kernel does it.
    bool add_usages(uint32_t first, uint32_t last, bool has_page) {
        if (usages_.size() >= kMaxUsages) return false;
        const size_t room = kMaxUsages - usages_.size();
        for (size_t count = 0; count < room && first <= last; ++count) {
            usages_.push_back({first, has_page});
            if (first++ == last) break;
        }
        return true;
    }

    const std::vector<uint8_t>& text_;
    size_t at_ = 0;
    Globals globals_;
    std::vector<Globals> pushed_;
    std::vector<Usage> usages_;
    uint32_t range_begin_ = 0;
    bool in_delimiter_ = false;
    int branch_ = 0;
    std::vector<Collection> collections_;
    HidNature nature_;
    std::map<uint32_t, uint32_t> owners_;               // applications, by the numbers of reports
    std::map<uint32_t, HidCapabilities> capabilities_;  // by application
    std::vector<uint32_t> order_;                       // of the latter
};

// One of the descriptors that stand one behind the other.
struct Descriptor {
    const uint8_t* bytes;
    size_t length;
    uint8_t type() const { return bytes[1]; }
};

// In their order, up to one that is none.
std::vector<Descriptor> split(const std::vector<uint8_t>& text) {
    std::vector<Descriptor> all;
    for (size_t at = 0; at + 2 <= text.size();) {
        const size_t length = text[at];
        if (length < 2 || text.size() - at < length) break;
        all.push_back({&text[at], length});
        at += length;
    }
    return all;
}

// The last one that it lists, as for the kernel.
std::optional<size_t> announced_length(const Descriptor& hid) {
    constexpr uint8_t kReport = 0x22;
    constexpr size_t kCountAt = 5, kListAt = 6, kEntry = 3;
    if (hid.length < kListAt + kEntry) return std::nullopt;
    const size_t count = std::min<size_t>(hid.bytes[kCountAt], (hid.length - kListAt) / kEntry);
    size_t length = 0;
    for (size_t nth = 0; nth < count; ++nth) {
        const uint8_t* const entry = hid.bytes + kListAt + nth * kEntry;
        if (entry[0] == kReport) length = static_cast<size_t>(entry[1] | entry[2] << 8);
    }
    if (length == 0 || length > kMaxReportDescriptor) return std::nullopt;
    return length;
}

}  // namespace

std::optional<size_t> report_descriptor_length(const std::vector<uint8_t>& descriptors,
                                               int32_t configuration, int32_t interface_number) {
    constexpr uint8_t kConfiguration = 2, kInterface = 4, kHid = 0x21;
    constexpr size_t kValueAt = 5, kNumberAt = 2, kAlternateAt = 3;
    bool in_configuration = false;
    bool in_interface = false;
    for (const Descriptor& one : split(descriptors)) {
        if (one.type() == kConfiguration && one.length > kValueAt) {
            in_configuration = one.bytes[kValueAt] == configuration;
            in_interface = false;
        } else if (one.type() == kInterface && one.length > kAlternateAt) {
            in_interface = in_configuration && one.bytes[kNumberAt] == interface_number &&
                           one.bytes[kAlternateAt] == 0;
        } else if (one.type() == kHid && in_interface) {
            return announced_length(one);
        }
    }
    return std::nullopt;
}

bool is_source_of_input(const HidNature& nature) {
    return nature.is_input &&
           std::any_of(nature.applications.begin(), nature.applications.end(),
                       [](const HidApplication& one) { return one.sources != 0; });
}

std::optional<HidNature> parse_report_descriptor(const std::vector<uint8_t>& descriptor) {
    return Parser(descriptor).run();
}

}  // namespace android::vus::hotplug
