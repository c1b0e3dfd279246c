#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Has zsh and fish complete the words of vusctl, by the scripts that it writes for them.

usage: prove_completion.py VUSCTL

Every command and every option that the help tells of is completed by both, and no other option;
files are where a file belongs, and nowhere else. (bash is asked by the unit tests.)
"""

import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import termios

SECONDS = 60  # for an answer; it takes milliseconds


def output_of(*words):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True).stdout


def commands_of(vusctl):
    """{"policy check": ["--strict", ...]}, by the help."""
    listed = re.findall(r"^  ([a-z]+(?: [a-z]+)?)  +\S", output_of(vusctl, "--help"), re.M)
    return {path: re.findall(r"^  (--[a-z-]+)", output_of(vusctl, "help", *path.split()), re.M)
            for path in listed}


class Fish:
    """Answers what fish offers."""

    def __init__(self, script):
        self.script = script

    def offers(self, line):
        ask = 'source $argv[1]; complete --do-complete $argv[2]'
        answer = output_of("fish", "--no-config", "-c", ask, self.script, line)
        return {offer.split("\t")[0] for offer in answer.splitlines()}

    def completed(self, line):
        """The line with its last word completed, if there is one way to."""
        offers = self.offers(line)
        return line.rpartition(" ")[0] + " " + offers.pop() if len(offers) == 1 else line


class Zsh:
    """A zsh at a terminal, whose key ^T completes the line and tells what it is then. The script is
    read beforehand, or found as a function of its own when it is called."""

    def __init__(self, script, directory, sourced):
        if sourced:
            loading = f"autoload -Uz compinit && compinit -D -u && . {script}"
        else:
            (directory / "_vusctl").write_text(script.read_text())
            loading = f"fpath=({directory} $fpath); autoload -Uz compinit && compinit -D -u"
        os.mkfifo(directory / "answers")
        self.answers = os.open(directory / "answers", os.O_RDWR)
        (directory / "setup").write_text(f"""
            PS1= PROMPT_EOL_MARK=
            {loading}
            unsetopt autolist automenu beep
            tell() {{ zle complete-word; print -r -- "$BUFFER" >{directory}/answers }}
            zle -N tell; bindkey -e; bindkey '^T' tell
            print ready >{directory}/answers
        """)
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.environ["TERM"] = "dumb"
            os.execvp("zsh", ["zsh", "-f", "-i"])
        modes = termios.tcgetattr(self.terminal)
        modes[3] &= ~termios.ECHO
        termios.tcsetattr(self.terminal, termios.TCSANOW, modes)
        os.write(self.terminal, f". {directory}/setup\n".encode())
        assert self.answer() == "ready\n"

    def answer(self):
        text = b""
        while not text.endswith(b"\n"):
            ready, _, _ = select.select([self.answers, self.terminal], [], [], SECONDS)
            assert ready, f"zsh does not answer: {text}"
            if self.terminal in ready:
                os.read(self.terminal, 65536)  # what it draws
            if self.answers in ready:
                text += os.read(self.answers, 65536)
        return text.decode()

    def completed(self, line):
        os.write(self.terminal, b"\x15" + line.encode() + b"\x14")
        return self.answer().rstrip("\n").rstrip(" ")

    def knows(self, line):
        """Whether the last word is one that it would have offered: a blank follows."""
        os.write(self.terminal, b"\x15" + line.encode() + b"\x14")
        return self.answer() == line + " \n"

    def close(self):
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)


# What both complete, in a folder with the files devices.json and fleet.xml.
COMPLETED = {
    "vusctl wa": "vusctl watch",
    "vusctl policy ex": "vusctl policy explain",
    "vusctl policy check fl": "vusctl policy check fleet.xml",
    "vusctl policy learn --list dev": "vusctl policy learn --list devices.json",
    "vusctl policy diff fleet.xml fl": "vusctl policy diff fleet.xml fleet.xml",
    "vusctl policy keep fl": "vusctl policy keep fl",
    "vusctl list fl": "vusctl list fl",
    "vusctl policy nothing": "vusctl policy nothing",
}


class Findings:
    def __init__(self):
        self.asked = self.wrong = 0

    def expect(self, what, got, expected):
        self.asked += 1
        if got != expected:
            self.wrong += 1
            print(f"{what}: {got!r}, expected {expected!r}")


def prove_both(name, shell, findings):
    for line, expected in COMPLETED.items():
        findings.expect(f"{name}: {line}", shell.completed(line), expected)


def prove_fish(shell, commands, findings):
    first = {path.split()[0] for path in commands}
    findings.expect("fish: first words", shell.offers("vusctl "), first)
    subs = {path.split()[1] for path in commands if " " in path}
    findings.expect("fish: policy", shell.offers("vusctl policy "), subs)
    for path, options in commands.items():
        findings.expect(f"fish: {path}", shell.offers(f"vusctl {path} --"), set(options))


def prove_zsh(shell, commands, findings):
    everything = sorted({option for options in commands.values() for option in options})
    for path, options in commands.items():
        findings.expect(f"zsh: {path}", shell.knows(f"vusctl {path}"), True)
        for option in everything:
            findings.expect(f"zsh: {path} {option}", shell.knows(f"vusctl {path} {option}"),
                            option in options)


def main(arguments):
    if len(arguments) != 1:
        print(__doc__, file=sys.stderr)
        return 2
    vusctl = str(pathlib.Path(arguments[0]).resolve())
    commands = commands_of(vusctl)
    assert len(commands) > 15 and "--list" in commands["policy explain"], commands
    findings = Findings()
    with tempfile.TemporaryDirectory() as name:
        directory = pathlib.Path(name)
        scripts = {shell: directory / f"vusctl.{shell}" for shell in ("zsh", "fish")}
        for shell, script in scripts.items():
            script.write_text(output_of(vusctl, "completion", shell))
        desk = directory / "desk"
        desk.mkdir()
        for file in ("devices.json", "fleet.xml"):
            (desk / file).touch()
        os.chdir(desk)
        os.environ["HOME"] = name
        fish = Fish(str(scripts["fish"]))
        prove_both("fish", fish, findings)
        prove_fish(fish, commands, findings)
        for sourced in (True, False):
            place = directory / f"zsh-{sourced}"
            place.mkdir()
            zsh = Zsh(scripts["zsh"], place, sourced)
            try:
                prove_both("zsh", zsh, findings)
                prove_zsh(zsh, commands, findings)
            finally:
                zsh.close()
        os.chdir("/")
    print(f"{len(commands)} commands; {findings.asked} questions, {findings.wrong} wrong answers")
    return 1 if findings.wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
