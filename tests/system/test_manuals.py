"""The manual pages beside the program: options, defaults, messages, files, and the grammar of report lines."""

import ctypes
import re
import subprocess
from pathlib import Path

import pytest
from device.device import Device, Package
from scenes import NEW, OLD, set_up, wait_until

PROJECT = Path(__file__).resolve().parents[2]
PAGES = {path.name: path.read_text() for path in sorted((PROJECT / "man").iterdir())}
REPORT = PAGES["updater-report.7"]
SOURCE = re.sub(r'"\s*\n\s*"', "", "".join(path.read_text() for path in sorted((PROJECT / "src").rglob("*.[ch]*"))))
MESSAGES = re.findall(r'logMessage\(\s*(\w+),\s*"((?:[^"\\]|\\.)*)"', SOURCE)


def section(page, name):
    return re.search(rf'^\.Sh {name}\n(.*?)(?=^\.Sh |\Z)', PAGES[page], re.MULTILINE | re.DOTALL)[1]


def blocks(text):
    """The literal displays of a piece of a page."""
    return [block.replace(r"\e", "\\") for block in re.findall(r"^\.Bd -literal.*?\n(.*?)^\.Ed$", text, re.MULTILINE | re.DOTALL)]


def item(page, head):
    """The text of an entry in a list."""
    return re.search(rf"^\.It [^\n]*{re.escape(head)}(?= |\n)(.*?)(?=^\.It |^\.El)", PAGES[page], re.MULTILINE | re.DOTALL)[1]


def listed_messages(text):
    return [line.replace(r"\(dq", '"') for line in re.findall(r'^\.It Li "(.*)"$', text, re.MULTILINE)]


class Grammar:
    """As much of ABNF as the page uses, turned into regular expressions."""

    SIGNS = {"/": "|", "(": "(?:", ")": ")", "[": "(?:", "]": ")?"}

    def __init__(self, text):
        self.rules = {"DIGIT": "%x30-39", "LF": "%x0A"} | dict(re.findall(r"^([\w-]+) += (.*(?:\n +.*)*)", text, re.MULTILINE))

    def of(self, name):
        return "".join(map(self._piece, re.findall(r'(?:%s)?"[^"]*"|%x[\dA-F-]+|\*?[\w-]+|[()\[\]/]', self.rules[name])))

    def _piece(self, token):
        if token.startswith("%x"):
            return "[" + "-".join(rf"\x{code}" for code in token[2:].split("-")) + "]"
        if '"' in token:
            return re.escape(token[3:-1]) if token.startswith("%s") else f"(?i:{re.escape(token[1:-1])})"
        return self.SIGNS.get(token) or f"(?:{self.of(token.lstrip('*'))}){'*' * token.startswith('*')}"

    def fits(self, name, text):
        return re.fullmatch(self.of(name), text.encode().decode("latin-1")) is not None


GRAMMAR = Grammar("".join(blocks(REPORT)[:1] + blocks(section("updater-report.7", "ORDER"))))


def reports_of(lines):
    """What looks like a report line, from a log without and with levels."""
    return "".join(line + "\n" for line in lines if re.search(r"(^|: ?)---|---$", line))


@pytest.fixture(scope="module")
def runs(program):
    """What processes of all kinds print, by a name that says what each is: kind in the grammar, exit code, lines."""
    found = {}
    with Device(program) as device:
        def run(name, kind, *arguments):
            result = device.run(*arguments)
            found[name] = kind, result.returncode, result.lines

        device.import_key()
        set_up(device)
        device.write("/etc/network/orvproxy.conf", '<proxyconf><proxy server="p" port="1"/></proxyconf>')
        for mode in ("--check-only", "--test"):
            run(mode, "worker", mode)
            run(f"{mode} --quiet", "worker", mode, "--quiet")
        run("background", "parent", "-bn")
        found["its child"] = "worker", 0, device.read("/var/log/updater/lastlog").splitlines()
        run("background --quiet", "parent", "-bnq")
        device.answer("hook download", exit=1)
        run("update", "worker")
        device.publish()
        run("nothing", "worker", "-n")
        run("nothing --quiet", "worker", "-nq")
        device.install(Package("updater", "1.1-1"))
        device.publish(Package("app", "2-1", requires=("nowhere",)), *NEW[1:], Package("updater", "1.2-1"))
        run("retry", "worker", "-n")
        for word, kind in (("CORRUPTED", "refused"), ("REBOOTING", "worker")):
            device.status = word
            run(word, kind, *["-b"] * (kind == "refused"))
        device.status = "UPDATING"
        run("UPDATING", "worker")
        device.write("/var/run/updater.norun", "")
        run("no run", "refused")
    return found


@pytest.mark.parametrize("page", PAGES)
def test_pages_are_sound(page):
    done = subprocess.run(["mandoc", "-Tlint", "-Wwarning", PROJECT / "man" / page], capture_output=True, text=True)
    assert (done.returncode, done.stdout + done.stderr) == (0, "")


def test_options_are_those_of_the_help(device):
    help_ = device.shell("updater --help").stdout
    shown = re.findall(r"^ +(?:-(.), )?--([\w-]+)(?:=(\S+))?", help_, re.MULTILINE)
    described = re.findall(r"^\.It (?:Fl (?:\\&)?(\S+) , )?Fl -([\w-]+)(?: Ns = Ns Ar (\S+))?$", section("updater.8", "OPTIONS"), re.MULTILINE)
    assert described == shown and len(shown) > 18
    for path in re.findall(r"'(/[^']*)'", help_):
        assert f"The default is\n.Pa {path} ." in PAGES["updater.8"]


def default(option):
    return re.search(r"The default is(?: |\n\.Pa )(\S+?)(?: ?\.)?$", item("updater.8", f"Fl -{option}"), re.MULTILINE)[1]


def test_defaults_are_those_of_the_program(device):
    set_up(device)
    device.write("/etc/updater.conf", re.sub(r' level="\w+"', "", device.read("/etc/updater.conf")))
    level = re.search(r"\.Cm (\w+)\nif that has none", item("updater.8", "Fl -log-level"))[1]
    assert device.run("-nl", level).lines == device.run("-n").lines != device.run("-nl", "debug").lines
    assert device.path(default("cache-dir") + "base/repomd.xml").is_file()

    device.hold_at("hook init")
    first = device.start()
    first.wait_for("hook init")
    device.write("/tmp/log", "")
    second = device.start("--log-to=/tmp/log")
    wait_until(lambda: "secs\n" in device.read("/tmp/log"))
    second.signal(15)
    assert f"will timeout in {default('lock-timeout')} secs" in second.wait().stderr
    device.release()
    first.wait()
    device.status = "READY"

    libc = ctypes.CDLL(None)
    for seed in range(1, 100_000):  # one that makes the wait almost as long as it can be
        libc.srand(seed)
        if (random := libc.rand()) > 0x7fffffff * 0.9999:
            break
    device.configure("http://127.0.0.1:9/")
    device.write("/tmp/seed", seed.to_bytes(4, "little") * 1000)
    waiting = device.shell("mount --bind /tmp/seed /dev/urandom; updater --log-to=/tmp/wait & "
                           "until grep -q waiting /tmp/wait; do sleep 0.02; done; kill $!; wait")
    assert f"INFO: waiting {int(default('max-wait-time')) * random // 0x7fffffff} secs before connection" in waiting.lines


def test_every_message_in_a_page_is_one_of_the_program():
    known = [(level, re.compile(".+".join(map(re.escape, re.split(r"%[a-z]+", text.replace(r"\"", '"')))))) for level, text in MESSAGES]
    listed = [line.partition(": ") for page in PAGES.values() for line in listed_messages(page)]
    assert len(listed) > 30
    assert [line for line in listed if not any(line[0] == level and text.fullmatch(line[2]) for level, text in known)] == []
    quoted = [text for page in PAGES.values() for text in re.findall(r"^\.Ql ([a-z]+ [a-z]+[a-z ,]*?)(?: [,.])?$", page, re.MULTILINE)]
    assert len(quoted) > 4 and [text for text in quoted if not any(text in message for _, message in MESSAGES)] == []


def test_files_are_those_of_the_program():
    used = set(re.findall(r'"(/(?:etc|usr|var|proc|sys|dev)/[^"]*)"', SOURCE)) - {"/dev/null"}
    listed = set(re.findall(r"^\.It Pa (/\S+)$", section("updater.8", "FILES"), re.MULTILINE))
    assert listed == used and len(used) > 10


def test_what_the_page_of_the_hook_says(device):
    named = re.findall(r"^\.It Cm (\w+)( Ar count)?$", PAGES["updater-hook.7"], re.MULTILINE)
    set_up(device)
    device.write("/usr/lib/updater/hook", """#!/bin/sh
{ echo $0 $*; pwd; umask; readlink /proc/self/fd/0; grep SigIgn /proc/self/status; env | grep FOO; } >>/tmp/found""", 0o755)
    assert device.shell("umask 0; cd /srv; updater --test app; updater app", FOO="bar").returncode == 0
    found = [call.splitlines() for call in device.read("/tmp/found").split("/usr/lib/updater/hook ")[1:]]
    assert {(call[0].split()[0], " Ar count" * (len(call[0].split()) > 2)) for call in found} == set(named)
    for call in found:
        ignored = "0" * 15 + ("0" if call[0].startswith("init") else "1")
        assert call[1:] == ["/", "0022", "/dev/null", f"SigIgn:\t{ignored}", "FOO=bar"]


def test_figures_are_those_of_the_program():
    version, = re.findall(r"^project\(updater VERSION ([\d.]+)", (PROJECT / "CMakeLists.txt").read_text(), re.MULTILINE)
    assert f"which is {version}," in PAGES["updater-hook.7"] and f".Ql BASE/{version} (" in PAGES["updater.conf.5"]
    limits = section("updater.conf.5", "LIMITS")
    for name in ("k_iConnectTimeout", "k_iReadTimeout", "k_uMaxRequests", "k_iMaxRedirects", "k_uMaxPath"):
        figure = re.search(rf"{name} = (\d+)", SOURCE)[1]
        assert re.search(rf"\b{figure}\b", limits), name
    assert re.search(r'k_sAlphabet =\s*"(.*)"', SOURCE)[1] in blocks(PAGES["updater.conf.5"])[1]


def test_every_report_line_fits_the_grammar(runs):
    codes = {word: int(code) for word, code in re.findall(r"^\.Cm (\w+)\n(?:goes )?with (?:exit code )?(\d)", item("updater-report.7", "EXIT"), re.M)}
    seen = ""
    for name, (kind, code, lines) in runs.items():
        assert [line for line in lines if not GRAMMAR.fits("log-line", line + "\n")] == [], name
        reports = reports_of(lines)
        quiet = "quiet" in name
        assert quiet or all(GRAMMAR.fits(rule, reports) for rule in ("process", kind)), (name, reports)
        assert quiet == (reports == "") and (quiet or codes[re.search(r"EXIT (\w+) ---\n$", reports)[1]] == code), name
        seen += reports
    never = [rule for rule in re.findall(r"[\w-]+", GRAMMAR.rules["report-line"]) if not re.search(GRAMMAR.of(rule), seen)]
    words = re.findall(r'%s"(\w+)"', GRAMMAR.rules["mode"] + GRAMMAR.rules["exit"])
    assert never + [word for word in words if f" {word} ---\n" not in seen] == [] and len(words) == 6
    for text in ("INFO: --- EXIT UNKNOWN ---\n", "INFO:   --- EXIT OK ---\n", "INFO: --- 01 UPDATE(S) ---\n", "INFO: --- EXIT OK ---"):
        assert not GRAMMAR.fits("report-line", text)


def test_quiet_removes_what_the_page_says(runs):
    forms = [re.compile(re.sub(r"\b(VERSION|NAME|HOST|N|URL)\b", ".+", re.escape(line)))
             for line in listed_messages(section("updater-report.7", "WHERE THE LINES GO"))]
    removed = []
    for name in runs:
        if f"{name} --quiet" in runs:
            loud, quiet = runs[name][2], runs[f"{name} --quiet"][2]
            assert [line for line in loud if line in quiet] == quiet
            removed += [line for line in loud if line not in quiet]
    left = [line for line in removed if not GRAMMAR.fits("report-line", line + "\n")]
    assert [line for line in left if not any(form.fullmatch(line) for form in forms)] == []
    assert [form.pattern for form in forms if not any(form.fullmatch(line) for line in left)] == []


def test_examples_of_report_lines(device):
    *examples, command = blocks(section("updater-report.7", "EXAMPLES"))
    assert [example for example in examples if not GRAMMAR.fits("process", example)] == [] and len(examples) > 3
    set_up(device)
    assert device.shell(command).stdout == "4\n"


def test_status_words(device):
    words = dict(re.findall(r"^\.It Sy (\w+)\n(.*?)(?=^\.It|^\.El)", section("updater-report.7", "STATUS WORDS"), re.M | re.S))
    assert list(words) == re.findall(r'"(\w+)"', re.search(r"k_vWords = {(.*?)}", SOURCE, re.DOTALL)[1])
    device.install(*OLD)
    device.publish()
    for word, text in words.items():
        device.status = word
        code = re.search(r"next run\s+(?:works()|.*?exit code (\d))", text, re.DOTALL)[2]
        assert device.run("-n").returncode == int(code or 0), word
        assert device.status == (word if word == "REBOOTING" else "CORRUPTED" if code else "READY")
