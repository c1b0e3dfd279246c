// SPDX-License-Identifier: Apache-2.0

#include <string.h>

#include <algorithm>

#include "tools/vusctl/analysis_commands.h"
#include "tools/vusctl/command.h"
#include "tools/vusctl/daemon_commands.h"
#include "tools/vusctl/inspect_commands.h"
#include "tools/vusctl/policy_commands.h"
#include "tools/vusctl/report_options.h"
#include "tools/vusctl/sources.h"
#include "tools/vusctl/workbench_commands.h"

namespace android::vus::ctl {

namespace {

constexpr char kNoNotes[] = "";

constexpr char kListNotes[] =
        "With the classes of the interfaces; of an input device its source bits. On a\n"
        "terminal names and reasons are cut to its width; --json has all of them.\n";

constexpr char kJudgeNotes[] =
        "This acts on the real daemon: the device enters its list and stays there, and\n"
        "the first record of an id stays, so take an id that no device has. If the id is\n"
        "that of an attached USB device and the answer is no, that device is switched\n"
        "off. `vusctl forget ID` takes the record out again; `vusctl policy explain`\n"
        "tells the same of a file and touches nothing.\n"
        "Numbers are decimal, or hexadecimal with 0x; a leading zero is an error.\n";

constexpr char kResetNotes[] =
        "Of the controllers that have a `mode` file, those in host mode are switched off\n"
        "and on. On a common PC none has one, and nothing happens.\n";

constexpr char kStatusNotes[] =
        "And whether the file on disk is the policy in force: exit status 1 if it is\n"
        "not. With --json the member onDisk says so: \"in force\", \"not in force\",\n"
        "\"no policy\" or \"unknown\".\n";

constexpr char kWhyNotes[] =
        "Both kinds of device with this id, judged by the policy in force, step by step.\n";

constexpr char kVerifyNotes[] =
        "The daemon's list against this machine's sysfs: what was refused has to be\n"
        "switched off and without a driver, what is attached has to be listed. Exit\n"
        "status 1: there is a difference.\n";

constexpr char kExposureNotes[] =
        "Sums up what `vus_hotplug --events FILE` has written: how many devices there\n"
        "were, how many of them were refused, and for how long they worked nevertheless.\n"
        "FILE is where the shipped units write if you name none; FILE.1 is read, too.\n"
        "Lines that are none are counted. Exit status 1: some device worked for longer\n"
        "than MS without being allowed, or does so still.\n";

constexpr char kRecordNotes[] =
        "An object a line, to the output or to DIR/devices.json, for --list of the other\n"
        "commands. With --redact each name and serial number becomes a hash, keyed with\n"
        "random bytes that are forgotten at once: the same for the same text within this\n"
        "recording, and nobody can look it up, or guess. For the recordings of a fleet,\n"
        "which are to be joined, --key FILE has the key: 32 bytes or more, kept secret,\n"
        "for instance of: head -c 32 /dev/urandom > FILE\n";

constexpr char kForgetNotes[] =
        "For what `vusctl judge` has left there. A device that is attached stays.\n";

constexpr char kSetNotes[] =
        "Checks it, writes it in place and waits for the daemon's answer. On a terminal\n"
        "you see first what changes for the attached devices, and are asked; with --yes\n"
        "you see it and are not asked. A script (no terminal) is never asked, and\n"
        "nobody is with --json.\n"
        "Exit status 0: the policy is in force.\n";

constexpr char kTryNotes[] =
        "Puts it in force, and takes it back after the time (60 seconds if you do not\n"
        "say) unless `vusctl policy keep` is said before. It is taken back as well if\n"
        "vusctl is killed, if the terminal closes, and by a start of the daemon or of\n"
        "the machine: until it is kept, the file on disk is the last good policy.\n";

constexpr char kKeepNotes[] =
        "The policy on trial becomes the policy on disk. It is in force already: nothing\n"
        "is reset.\n";

constexpr char kRepairNotes[] =
        "For the time before the daemon starts: a policy that is torn then would allow\n"
        "everything. What loads is never touched, and what did not load is kept beside\n"
        "the policy. Exit status 1: there is no backup that loads, either.\n";

constexpr char kImportNotes[] =
        "FILE has rules in the language of USBGuard: allow, block or reject, an id in\n"
        "hexadecimal, and conditions. What a policy can say goes to the output as a\n"
        "whitelist; each rule that it cannot say to the error output, with its line and\n"
        "why. What is left out is refused.\n"
        "Exit status 1: some rule that allows was left out.\n";

constexpr char kCheckNotes[] =
        "Each finding has a line, a device that shows it, and what to write instead.\n"
        "Their ids stay as they are; vus-policy-lint(7) has each.\n";

constexpr char kDiffNotes[] =
        "Exact: no difference is missing, and each is shown by a device. With --format\n"
        "html as a page of its own, whose tables sort and filter without a network.\n";

constexpr char kSurfaceNotes[] =
        "A device may have any ids, and any interfaces besides those that admit it. The\n"
        "score is the share of the kernel's USB drivers, in per cent, that some admitted\n"
        "device binds.\n";

constexpr char kExplainNotes[] =
        "Each device with its verdict, the rule and its line, and what was looked at on\n"
        "the way. For a refusal: what would admit the device, and what else that would\n"
        "admit. With --json an object a line, with --format html a page of its own, whose\n"
        "table sorts and filters without a network. Options may be repeated.\n";

constexpr char kTestNotes[] =
        "CASES is a JSON object with the members \"policy\" (a path from where CASES is)\n"
        "and \"cases\", or a list of cases. A case has a \"device\" (as list --json and\n"
        "record print it), the \"verdict\" (allowed, refused, or input for what is left\n"
        "to the input subsystem), and if you like a \"name\", the \"reason\", the \"rule\"\n"
        "(\"class USB_CLASS_AUDIO\", \"vendor 1133\", \"product 1133:49948\") or its \"line\".\n"
        "Exit status 1: a case failed, or too few rules are touched.\n";

constexpr char kLearnNotes[] =
        "A whitelist of their products on the output, with a comment for each; what it\n"
        "cannot separate as warnings on the error output. Options may be repeated.\n"
        "Exit status 1: some device cannot be admitted.\n";

constexpr char kCompletionNotes[] =
        "SHELL is bash, zsh or fish; man is the manual page's synopsis and commands.\n"
        "For this shell only: . <(vusctl completion bash), the same for zsh (behind\n"
        "compinit), and vusctl completion fish | source\n";

constexpr Option kUsbRecord = {"--usb", nullptr, "the USB device of that id"};
constexpr Option kInputRecord = {"--input", nullptr, "the input device of that id"};

std::vector<Option> none() {
    return {};
}

std::vector<Option> json() {
    return {{"--json", nullptr, "for programs"}};
}

std::vector<Option> check_options() {
    return std::vector<Option>{{"--strict", nullptr, "exit status 5 if anything is found"},
                               {"--allow", "ID", "a finding that is meant; may be given often"},
                               {"--format", "FORMAT", "text, json or sarif"}} +
           json();
}

std::vector<Option> diff_options() {
    return std::vector<Option>{{"--devices", "LIST", "which of these are judged differently"},
                               {"--no-new-access", nullptr,
                                "exit status 1 if NEW admits what OLD refuses"}} +
           report_options();
}

std::vector<Option> surface_options() {
    return std::vector<Option>{{"--modules-alias", "FILE",
                                "of which kernel; the running one if not given"},
                               {"--fail-above", "SCORE", "exit status 1 if the score is higher"}} +
           json();
}

std::vector<Option> exposure_options() {
    return std::vector<Option>{{"--fail-above", "MS", "exit status 1 if one is longer"}} + json();
}

std::vector<Option> test_options() {
    return {{"--policy", "FILE", "the policy, where the cases name none, or another one"},
            {"--junit", "FILE", "write the results for a build server"},
            {"--coverage", nullptr, "tell which rules no case touches"},
            {"--threshold", "N", "fail below so many of a hundred rules touched"}};
}

std::vector<Option> yes() {
    return {{"--yes", nullptr, "do not ask"}};
}

std::vector<Option> trial_options() {
    return {{"--seconds", "N", "how long (1 to 86400)"}};
}

std::vector<Option> loose() {
    return {{"--loose", nullptr, "import the id alone of rules that ask for more"}};
}

std::vector<Option> redact() {
    return {{"--redact", nullptr, "hashes for names and serial numbers"},
            {"--key", "FILE", "by which hashes of several recordings are the same"}};
}

// The record of an id stays: without an id of its own a device would get another one's.
std::vector<Option> judge_options() {
    std::vector<Option> options = device_options();
    for (Option& option : options) option.required = strcmp(option.name, "--id") == 0;
    std::stable_partition(options.begin(), options.end(),
                          [](const Option& option) { return option.required; });
    return options + json();
}

std::vector<Option> of_record() {
    return {kUsbRecord, kInputRecord};
}

// Of the machine and its daemon.
std::vector<Command> daemon_rows() {
    return {
            {"list", "", "", 0, 0, json(), "--json or nothing",
             "the known devices, with verdict and reason", kListNotes, list_devices},
            {"why", "", "ID", 1, 1, of_record() + json(), "the ID of a listed device",
             "why a listed device has its verdict", kWhyNotes, explain_listed},
            {"verify", "", "", 0, 0, json(), "--json or nothing",
             "is what the list says true of this machine?", kVerifyNotes, verify_list},
            {"exposure", "", "[FILE]", 0, 1, exposure_options(), "at most one FILE",
             "did refused devices work, and for how long?", kExposureNotes, show_exposure},
            {"record", "", "[DIR]", 0, 1, redact(), "at most one DIR, --redact and --key FILE",
             "this machine's devices as a list", kRecordNotes, record_devices},
            {"judge", "", "", 0, 0, judge_options(), "a device's description",
             "ask the daemon whether a described device is allowed", kJudgeNotes, judge_device},
            {"forget", "", "ID", 1, 1, of_record(), "the ID of a listed device",
             "take a record that is no device out of the daemon's list", kForgetNotes,
             forget_device},
            {"reset", "", "", 0, 0, none(), "no argument",
             "reset the board's controllers, and judge their devices again", kResetNotes,
             reset_ports},
            {"undock", "", "MS", 1, 1, none(), "a number of milliseconds above 0",
             "undock virtually for that many milliseconds", kNoNotes, undock},
            {"watch", "", "", 0, 0, json(), "--json or nothing",
             "USB devices as they are added and removed", kNoNotes, watch_devices},
            {"dump", "", "[test]", 0, 1, none(), "at most one argument",
             "the daemon's own dump; test: the USB tree", kNoNotes, dump_daemon},
            {"status", "", "", 0, 0, json(), "--json or nothing", "what became of the last policy",
             kStatusNotes, show_status},
    };
}

// Of the policy in force.
std::vector<Command> policy_rows() {
    return {
            {"policy", "show", "", 0, 0, none(), "no argument", "print the policy file", kNoNotes,
             show_policy},
            {"policy", "set", "FILE", 1, 1, yes() + json(), "FILE", "put a policy in force",
             kSetNotes, set_policy_file},
            {"policy", "try", "FILE", 1, 1, trial_options() + json(), "FILE",
             "put a policy in force for a time", kTryNotes, try_policy_file},
            {"policy", "keep", "", 0, 0, json(), "--json or nothing",
             "keep the policy that is on trial", kKeepNotes, keep_tried_policy},
            {"policy", "repair", "", 0, 0, none(), "no argument",
             "put the last good policy back if the file does not load", kRepairNotes,
             repair_policy_file},
    };
}

// Of any policy; these need no daemon.
std::vector<Command> workbench_rows() {
    return {
            {"policy", "check", "FILE", 1, 1, check_options(), "FILE",
             "the daemon's verdict on a policy, and its pitfalls", kCheckNotes, check_policy_file},
            {"policy", "diff", "OLD NEW", 2, 2, diff_options(), "OLD and NEW",
             "what a change of the policy means, over all possible devices", kDiffNotes,
             diff_policies},
            {"policy", "surface", "FILE", 1, 1, surface_options(), "FILE",
             "which kernel drivers an admitted device can reach", kSurfaceNotes, show_surface},
            {"policy", "explain", "FILE", 1, 1,
             device_source_options() + report_options() + device_options(), "FILE",
             "why a policy admits or refuses devices", kExplainNotes, explain_policy},
            {"policy", "test", "CASES", 1, 1, test_options() + json(), "CASES",
             "do devices get the verdicts that they should?", kTestNotes, test_policy},
            {"policy", "learn", "", 0, 0, device_source_options() + json(),
             "--list, --tree or --live", "write a policy that admits these devices and no others",
             kLearnNotes, learn_policy},
            {"policy", "import", "FILE", 1, 1, loose() + json(), "FILE",
             "make a policy of rules of another language", kImportNotes, import_policy},
            {"completion", "", "SHELL", 1, 1, none(), "bash, zsh, fish or man",
             "what a shell, or the manual page, knows of these words", kCompletionNotes,
             print_completion},
    };
}

std::vector<Command> all_rows() {
    std::vector<Command> all = daemon_rows();
    for (const auto& rows : {policy_rows(), workbench_rows()}) {
        all.insert(all.end(), rows.begin(), rows.end());
    }
    return all;
}

}  // namespace

const std::vector<Command>& commands() {
    static const std::vector<Command> table = all_rows();
    return table;
}

}  // namespace android::vus::ctl
