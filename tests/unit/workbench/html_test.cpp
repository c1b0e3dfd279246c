// SPDX-License-Identifier: Apache-2.0
//
// Reports for a browser: nothing that a text holds becomes anything but text. What a browser makes
// of them is tested in one, see tests/proof/prove_report.py.

#include "tools/workbench/html.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <variant>

#include "tools/workbench/digest.h"
#include "tools/workbench/report.h"

namespace android::vus::workbench {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Each of them ends something, in a page that does not escape.
const std::string kHostile[] = {
        "<script>alert(1)</script>",
        "</td></table></script><img src=x onerror=alert(1)>",
        "\" onmouseover=\"alert(1)\" x=\"",
        "' autofocus onfocus='alert(1)",
        "&lt;script&gt;&#60;",
        "--><!--",
        "\xE2\x80\xAE"
        "gpj.exe"
        "\xE2\x81\xA6",  // turned round
        "\x1b]0;title\x07\r\nforged: row",
        "\xC0\xBCscript\xC0\xBE \xFF",  // an overlong form of <
};

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
    return count;
}

std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
    const size_t from = text.find(begin) + begin.size();
    return text.substr(from, text.find(end, from) - from);
}

Device Named(const std::string& name) {
    Device device;
    device.claim = {0, {8, 255}, 0x951, 0x1666};
    device.name = name;
    return device;
}

Policy Parsed(const std::string& text) {
    return std::get<Policy>(parsePolicy(text));
}

std::string PageOf(const std::string& title, const std::vector<Device>& devices) {
    const Policy policy =
            Parsed("<usbconfig mode=\"whitelist\">\n<class>USB_CLASS_AUDIO</class></usbconfig>");
    const Explainer explainer(policy);
    std::ostringstream out;
    ExplanationReport report(out, title);
    for (const Device& each : devices) report.add(explainer.explain(each));
    report.end("the sum", true);
    return out.str();
}

TEST(HtmlEscaped, LeavesNothingThatHasAMeaning) {
    EXPECT_EQ(htmlEscaped("<a href=\"x\">'&'</a>"),
              "&lt;a href=&quot;x&quot;&gt;&#39;&amp;&#39;&lt;/a&gt;");
    EXPECT_EQ(htmlEscaped("a\x1b[2J\n\xE2\x80\xAE\xFF\xC3\xA4"), "a?[2J??\xEF\xBF\xBD\xC3\xA4");
    for (const std::string& text : kHostile) {
        const std::string escaped = htmlEscaped(text);
        EXPECT_EQ(escaped.find_first_of("<>\"'\n\r\x1b"), std::string::npos) << escaped;
    }
}

TEST(HtmlReport, HostileTextsAddNoElementAndNoAttribute) {
    std::vector<Device> devices;
    for (const std::string& text : kHostile) devices.push_back(Named(text));
    const std::vector<Device> plain(devices.size(), Named("plain"));
    const auto tags = [](const std::string& page) {
        const std::regex tag("<[^>]*>");
        std::string all;
        for (std::sregex_iterator at(page.begin(), page.end(), tag), end; at != end; ++at) {
            all += at->str() + "\n";
        }
        return all;
    };
    const std::string page = PageOf("policy.xml", devices);
    EXPECT_EQ(tags(page), tags(PageOf("policy.xml", plain)));
    EXPECT_EQ(CountOf(page, "<tr class=\"refused\">"), devices.size());
    for (const std::string& text : kHostile) {
        EXPECT_EQ(tags(PageOf(text, {})), tags(PageOf("policy.xml", {})));
    }
}

TEST(HtmlReport, AsksForNothing) {
    const std::string page = PageOf("policy.xml", {Named("Disk")});
    for (const char* word : {"http:", "https:", "src=", "href=", "url(", "@import", "fetch("}) {
        EXPECT_THAT(page, Not(HasSubstr(word)));
    }
}

TEST(HtmlReport, AllowsItsOwnScriptAndStyleOnly) {
    const std::string page = PageOf("policy.xml", {Named("<script>alert(1)</script>")});
    EXPECT_EQ(CountOf(page, "<script"), 1u);
    EXPECT_EQ(CountOf(page, "<style"), 1u);
    const std::string policy =
            Between(page, "<meta http-equiv=\"Content-Security-Policy\" content=\"", "\">");
    EXPECT_EQ(policy,
              "default-src 'none'; base-uri 'none'; form-action 'none'; style-src 'sha256-" +
                      sha256Base64(Between(page, "<style>", "</style>")) +
                      "'; script-src 'sha256-" +
                      sha256Base64(Between(page, "<script>", "</script>")) + "'");
    EXPECT_LT(page.find("Content-Security-Policy"), page.find("<style>"));
}

TEST(HtmlReport, IsATableWithoutScript) {
    const std::string page = PageOf("fleet.xml", {Named("Disk")});
    EXPECT_THAT(page, StartsWith("<!DOCTYPE html>\n<html lang=\"en\">"));
    EXPECT_THAT(page, HasSubstr("<title>What fleet.xml says of these devices</title>"));
    EXPECT_THAT(page, HasSubstr("<th scope=\"col\" data-kind=\"choice\">Verdict</th>"));
    EXPECT_THAT(page, HasSubstr("<tr class=\"refused\"><td class=\"number\"><span>1</span></td>"
                                "<td class=\"choice\"><span>usb</span></td>"
                                "<td class=\"word\"><span>0951:1666</span></td>"
                                "<td class=\"text\"><span>8,255</span></td>"
                                "<td class=\"text\"><span>Disk</span></td>"
                                "<td class=\"choice\"><strong>refused</strong></td>"
                                "<td class=\"number\"><span></span></td>"
                                "<td class=\"text\"><span>No matching rule found to Whitelist the "
                                "device</span><ul><li>interface 0: 8 USB_CLASS_MASS_STORAGE: not "
                                "listed: no class match</li>"));
    EXPECT_THAT(page, HasSubstr("<li>would be admitted: add &lt;class&gt;USB_CLASS_MASS_STORAGE"
                                "&lt;/class&gt;</li><li>and with it: "));
    EXPECT_THAT(page, EndsWith("</tbody>\n</table>\n<p>the sum</p>\n</body>\n</html>\n"));
}

TEST(ExplanationReport, SaysOfAKeyboardThatNoPolicyIsAsked) {
    Device keyboard = Named("Keyboard");
    keyboard.claim.interfaceClasses = {3};
    keyboard.vendorHid = false;
    const std::string known = PageOf("policy.xml", {keyboard});
    EXPECT_THAT(known, HasSubstr("<strong>input</strong>"));
    EXPECT_THAT(known, Not(HasSubstr("No matching rule")));
    keyboard.vendorHid.reset();
    EXPECT_THAT(PageOf("policy.xml", {keyboard}),
                HasSubstr("the policy decides, as follows: refused: No matching rule found"));
}

TEST(ExplanationReport, SortsByTheFirstLine) {
    const Policy policy =
            Parsed("<usbconfig mode=\"whitelist\">\n\n<class>USB_CLASS_AUDIO</class>\n"
                   "<class>USB_CLASS_VIDEO</class></usbconfig>");
    Device camera = Named("Camera");
    camera.claim.interfaceClasses = {1, 14};
    std::ostringstream out;
    ExplanationReport report(out, "policy.xml");
    report.add(Explainer(policy).explain(camera));
    EXPECT_THAT(out.str(), HasSubstr("<td class=\"number\" data-key=\"3\">"
                                     "<span>line 3, line 4</span></td>"));
}

// A fleet's list does not fit into memory.
TEST(ExplanationReport, IsWrittenAsItComes) {
    const Policy policy = Parsed("<usbconfig mode=\"whitelist\"/>");
    const Explainer explainer(policy);
    std::ostringstream out;
    ExplanationReport report(out, "policy.xml");
    for (int at = 0; at < 3; ++at) {
        report.add(explainer.explain(Named("Disk " + std::to_string(at))));
        EXPECT_THAT(out.str(), HasSubstr("<span>Disk " + std::to_string(at) + "</span>"));
        EXPECT_THAT(out.str(), EndsWith("</tr>\n"));
        out.str("");
    }
}

TEST(ExplanationReport, DoesNotLookWholeIfItIsNot) {
    std::ostringstream out;
    ExplanationReport report(out, "policy.xml");
    report.end("0 devices", false);
    EXPECT_THAT(out.str(), HasSubstr("<p class=\"warning\" role=\"alert\">Not every device"));
    EXPECT_THAT(out.str(), EndsWith("</html>\n"));
}

}  // namespace
}  // namespace android::vus::workbench
