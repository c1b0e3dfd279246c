// SPDX-License-Identifier: Apache-2.0

// The loader of the policy file.

#include <charconv>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <tinyxml2.h>

#include "android/vus/util.h"

namespace android::vus {

namespace {

using tinyxml2::XMLElement;

// Why a load failed: the status text, and the log line in front of it. Log readers and the status
// file's watchers see the two in the order that each failure has always had.
struct Failure {
    std::string message;
    const char* log_prefix;  // a literal
    bool log_first = true;
};

using Result = std::optional<Failure>;

constexpr char kClassLogPrefix[] = "error in class val= ";
constexpr char kProductLogPrefix[] = "error in pid val= ";

// One load: the fresh tables, built aside, and the rules by which the file fills them.
class PolicyLoad {
  public:
    // Answers the bytes that were judged: the file may be another one by now.
    std::string run(const std::string& path) {
        tinyxml2::XMLDocument document(/*processEntities=*/true, tinyxml2::PRESERVE_WHITESPACE);
        const std::string text = read(path, &document);
        judge(document);
        return text;
    }

  private:
    static std::string read(const std::string& path, tinyxml2::XMLDocument* document) {
        std::string text;
        while (!base::ReadFileToString(path, &text, /*follow_symlinks=*/true)) {
            // Fails, too, and names the error; unless the file has come meanwhile.
            if (document->LoadFile(path.c_str()) != tinyxml2::XML_SUCCESS) return "";
        }
        document->Parse(text.data(), text.size());
        return text;
    }

    void judge(const tinyxml2::XMLDocument& document) {
        if (document.Error()) return reportLibraryError(document);
        if (const Result failure = readRoot(document.FirstChildElement())) {
            return reportFailure(*failure);
        }
        putInForce(/*success=*/true);
        if (!blocks_all_) return;
        // The text that the last load left, stale or not, on purpose.
        Util::updateErrorFile(Util::statusFilePath, currentStatusMessage());
    }

    static std::string currentStatusMessage() {
        const auto policy = Util::readPolicy();
        return Util::statusMessage;
    }

    Result readRoot(const XMLElement* root) {
        // A document can be free of errors and of elements: one of comments only, say.
        const std::string name = root == nullptr ? "" : root->Value();
        if (name != "usbconfig") {
            return Failure{"INVALID ROOT ELEMENT : " + name, "Invalid root element --", false};
        }
        const tinyxml2::XMLAttribute* mode = root->FindAttribute("mode");
        if (mode == nullptr) {
            return Failure{"MODE NOT PRESENT", "error in ATTRIBUTE MODE value= "};
        }
        // Kept even if it turns out invalid: decisions then treat it as a whitelist.
        mode_ = mode->Value();
        LOG(INFO) << "attribute--" << *mode_;
        if (*mode_ == "default") return std::nullopt;
        if (*mode_ != "whitelist" && *mode_ != "blacklist") {
            return Failure{"INVALID MODE", "Invalid mode is set in xml--", false};
        }
        return readRules(root->FirstChildElement());
    }

    Result readRules(const XMLElement* rule) {
        blocks_all_ = rule == nullptr;
        if (blocks_all_) LOG(INFO) << "no element, blocking all device";
        for (; rule != nullptr; rule = rule->NextSiblingElement()) {
            if (Result failure = readRule(*rule)) return failure;
        }
        return std::nullopt;
    }

    Result readRule(const XMLElement& rule) {
        const std::string_view name = rule.Value();
        if (name == "class") return readClass(rule.GetText());
        if (name == "vid") return readVendor(rule);
        return Failure{"INVALID TAG:" + std::string(name), "error in class value= "};
    }

    Result readClass(const char* text) {
        if (text == nullptr) return Failure{"EMPTY CLASS VALUE", kClassLogPrefix};
        const uint32_t code = Util::convert(text);
        if (code == Util::kNoClass || Util::validateRestrictedClass(code)) {
            return Failure{std::string("INVALID CLASS VALUE:") + text, kClassLogPrefix};
        }
        class_map_.try_emplace(static_cast<int32_t>(code), text);  // the first text stays
        class_list_.push_back(static_cast<int32_t>(code));
        LOG(INFO) << "class val--" << code;
        return std::nullopt;
    }

    Result readVendor(const XMLElement& rule) {
        const char* text = rule.Attribute("vendorid");
        if (text == nullptr) {
            return Failure{"vendorid TAG NOT PRESENT", "error in ATTRIBUTE value= "};
        }
        int32_t vendor = 0;
        if (!parseId(text, &vendor)) {
            return Failure{*text == '\0' ? "EMPTY VENDOR ID VALUE"
                                         : std::string("INVALID VENDOR ID VALUE:") + text,
                           "error in vid val= "};
        }
        const XMLElement* product = rule.FirstChildElement("pid");
        if (product == nullptr) {
            vendor_products_.emplace(vendor, Util::kWholeVendor);
            return std::nullopt;
        }
        return readProducts(vendor, product);
    }

    // From the first product on, every sibling is one, whatever its name.
    Result readProducts(int32_t vendor, const XMLElement* product) {
        for (; product != nullptr; product = product->NextSiblingElement()) {
            const char* text = product->GetText();
            if (text == nullptr) return Failure{"EMPTY PRODUCT ID VALUE", kProductLogPrefix};
            int32_t id = 0;
            if (!parseId(text, &id)) {
                return Failure{std::string("INVALID PRODUCT ID VALUE:") + text, kProductLogPrefix};
            }
            vendor_products_.emplace(vendor, id);
        }
        return std::nullopt;
    }

    // Digits only, and no more of them than a signed 32-bit number holds.
    static bool parseId(const std::string& text, int32_t* id) {
        if (!Util::isValidNumber(text)) return false;
        return std::from_chars(text.data(), text.data() + text.size(), *id).ec == std::errc();
    }

    // The file could not be read as XML: nothing of it takes effect, and statusMessage keeps the
    // text of an earlier load, on purpose.
    void reportLibraryError(const tinyxml2::XMLDocument& document) {
        putInForce(/*success=*/false);
        LOG(ERROR) << "xmlinput --Found error " << document.ErrorID()
                   << " name: " << tinyxml2::XMLDocument::ErrorIDToName(document.ErrorID());
        LOG(ERROR) << "xmlinput -- error string " << document.ErrorStr();
        Util::updateErrorFile(Util::statusFilePath, document.ErrorStr());
    }

    void reportFailure(const Failure& failure) {
        status_message_ = failure.message;
        putInForce(/*success=*/false);
        if (failure.log_first) LOG(ERROR) << failure.log_prefix << failure.message;
        Util::updateErrorFile(Util::statusFilePath, failure.message);
        if (!failure.log_first) LOG(ERROR) << failure.log_prefix << failure.message;
    }

    // All at once, so that no decision sees half a policy. What a failed load has read is put in
    // force, too: the watcher answers a failure with a load of the backup.
    void putInForce(bool success) {
        const auto policy = Util::changePolicy();
        if (mode_) Util::configMode.swap(*mode_);
        if (status_message_) Util::statusMessage.swap(*status_message_);
        Util::classList.swap(class_list_);
        Util::classMap.swap(class_map_);
        Util::vidPidMap.swap(vendor_products_);
        Util::xml_parse_status = success;
    }

    std::optional<std::string> mode_;
    std::optional<std::string> status_message_;
    std::vector<int32_t> class_list_;
    std::map<int32_t, std::string> class_map_;
    std::multimap<int32_t, int32_t> vendor_products_;
    bool blocks_all_ = false;
};

}  // namespace

void Util::createMapFromConfig(std::string path) {
    loadPolicy(path);
}

std::string Util::loadPolicy(const std::string& path) {
    return PolicyLoad().run(path);
}

}  // namespace android::vus
