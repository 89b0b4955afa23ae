"""The manual pages and the operator's guide beside the program: options, defaults, messages, files, report lines."""

import re
import subprocess

import pytest
from conftest import PROJECT
from device.device import Device, Package
from scenes import NEW, OLD, set_up

PAGES = {path.name: path.read_text() for path in sorted((PROJECT / "man").iterdir())}
GUIDE = (PROJECT / "docs/operating.md").read_text(encoding="utf-8")
SOURCE = re.sub(r'"\s*\n\s*"', "", "".join(path.read_text() for path in sorted((PROJECT / "src").rglob("*.[ch]*"))
                                       if path.parent.name != "publisher"))
LEVELS = ["INFO", "WARNING", "ERROR", "FATAL"]
TEXT = r'"((?:[^"\\]|\\.)*)"'
CALLS = re.findall(rf"logMessage\(\s*(\w+)(\[.*?\])?,\s*(?:[\w.]+ \? )?{TEXT}(?:\s*: {TEXT})?", SOURCE)


def shown(text):
    """A format as the guide shows it: "…" for what differs, and no line breaks."""
    return " ".join(re.sub(r"%[a-z]+", "…", re.sub(r"\\[nt]", " ", text).replace(r"\"", '"')).split())


#: All lines of the log. rpm's own come at each level.
LINES = {f"{level}: {shown(text)}" for name, any_level, *texts in CALLS
         for level in (LEVELS if any_level else [name]) for text in texts if text}


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


RULES = {"DIGIT": "%x30-39", "LF": "%x0A"}
RULES |= dict(re.findall(r"^([\w-]+) += (.*(?:\n +.*)*)", PAGES["updater-report.7"], re.MULTILINE))
SIGNS = {"/": "|", "(": "(?:", ")": ")", "[": "(?:", "]": ")?"}


def pattern_of(rule):
    """A rule of the grammar as a regular expression, for as much of ABNF as the page uses."""
    def piece(token):
        if token.startswith("%x"):
            return "[" + "-".join(rf"\x{code}" for code in token[2:].split("-")) + "]"
        if '"' in token:
            return re.escape(token[3:-1]) if token.startswith("%s") else f"(?i:{re.escape(token[1:-1])})"
        return SIGNS.get(token) or f"(?:{pattern_of(token.lstrip('*'))}){'*' * token.startswith('*')}"
    return "".join(map(piece, re.findall(r'(?:%s)?"[^"]*"|%x[\dA-F-]+|\*?[\w-]+|[()\[\]/]', RULES[rule])))


def fits(rule, text):
    return re.fullmatch(pattern_of(rule), text.encode().decode("latin-1")) is not None


def reports_of(lines):
    """What looks like a report line, from a log without and with levels."""
    return "".join(line + "\n" for line in lines if re.search(r"(^|: ?)---|---$", line))


@pytest.fixture(scope="module")
def runs(program):
    """What processes of all kinds print: kind in the grammar, exit code, lines, and for some the lines with --quiet."""
    found = []
    with Device(program) as device:
        def run(kind, *arguments, quiet=False):
            result = device.run(*arguments)
            found.append((kind, result.returncode, result.lines, device.run(*arguments, "--quiet").lines if quiet else None))

        device.import_key()
        set_up(device)
        device.write("/etc/network/orvproxy.conf", '<proxyconf><proxy server="p" port="1"/></proxyconf>')
        run("worker", "--check-only", quiet=True)
        run("worker", "--test", quiet=True)
        run("parent", "-bn")
        found.append(("worker", 0, device.read("/var/log/updater/lastlog").splitlines(), None))
        run("parent", "-bn", quiet=True)
        device.answer("hook download", exit=1)
        run("worker")
        device.publish()
        run("worker", "-n", quiet=True)
        device.install(Package("updater", "1.1-1"))
        device.publish(Package("app", "2-1", requires=("nowhere",)), *NEW[1:], Package("updater", "1.2-1"))
        run("worker", "-n")
        for word, kind, *arguments in (("CORRUPTED", "refused", "-b"), ("REBOOTING", "worker"), ("UPDATING", "worker")):
            device.status = word
            run(kind, *arguments)
        device.write("/var/run/updater.norun", "")
        run("refused")
    return found


def test_pages_are_sound():
    pages = [PROJECT / "man" / page for page in PAGES]
    done = subprocess.run(["mandoc", "-Tlint", "-Wwarning", *pages], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout + done.stderr) == (0, "")


def test_options_are_those_of_the_help(device):
    help_ = device.shell("updater --help").stdout
    shown = re.findall(r"^ +(?:-(.), )?--([\w-]+)(?:=(\S+))?", help_, re.MULTILINE)
    described = re.findall(r"^\.It (?:Fl (?:\\&)?(\S+) , )?Fl -([\w-]+)(?: Ns = Ns Ar (\S+))?$", section("updater.8", "OPTIONS"), re.MULTILINE)
    assert described == shown and len(shown) > 18
    for path in re.findall(r"'(/[^']*)'", help_):
        assert f"The default is\n.Pa {path} ." in PAGES["updater.8"]


def test_defaults_are_those_of_the_program():
    fields = {"log-level": "logLevel", "max-wait-time": "maxWaitTime", "lock-timeout": "lockTimeout", "cache-dir": "cacheDir"}
    for option, field in fields.items():
        text = " ".join(re.sub(r"^\.\w+ ", "", item("updater.8", f"Fl -{option}"), flags=re.MULTILINE).split())
        default = re.search(r"The default is (?:the level .*, and )?([\w/]+)", text)[1]
        assert re.search(rf' {field} = "?{default}"?;', SOURCE, re.IGNORECASE), option


def test_the_guide_has_every_line_of_the_log_and_no_other():
    rows = re.findall(r"^\|.*", GUIDE, re.MULTILINE)
    told = {" ".join(line.split()) for row in rows for line in re.findall(rf"`((?:{'|'.join(LEVELS)}): [^`]*)`", row)}
    assert told == {line for line in LINES if not re.match(r"TRACE|DEBUG|INFO: ---", line)}
    assert len(told) > 200 and len(CALLS) == len(re.findall(r"logMessage\((?!level|\))", SOURCE))


def test_every_message_in_a_page_is_one_of_the_program():
    known = re.compile("|".join(re.escape(line).replace("…", ".+") for line in LINES))
    listed = [line for page in PAGES.values() for line in listed_messages(page)]
    assert [line for line in listed if not known.fullmatch(line)] == [] and len(listed) > 30


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
    for kind, code, lines, quiet in runs:
        assert [line for line in [*lines, *(quiet or [])] if not fits("log-line", line + "\n")] == []
        reports = reports_of(lines)
        assert all(fits(rule, reports) for rule in ("process", kind)) and not reports_of(quiet or []), (kind, reports)
        assert codes[re.search(r"EXIT (\w+) ---\n$", reports)[1]] == code
        seen += reports
    never = [rule for rule in re.findall(r"[\w-]+", RULES["report-line"]) if not re.search(pattern_of(rule), seen)]
    words = re.findall(r'%s"(\w+)"', RULES["mode"] + RULES["exit"])
    assert never + [word for word in words if f" {word} ---\n" not in seen] == [] and len(words) == 6
    for text in ("INFO: --- EXIT UNKNOWN ---\n", "INFO:   --- EXIT OK ---\n", "INFO: --- 01 UPDATE(S) ---\n", "INFO: --- EXIT OK ---"):
        assert not fits("report-line", text)


def test_quiet_removes_what_the_page_says(runs):
    forms = [re.compile(re.sub(r"\b(VERSION|NAME|HOST|N|URL)\b", ".+", re.escape(line)))
             for line in listed_messages(section("updater-report.7", "WHERE THE LINES GO"))]
    removed = []
    for _, _, loud, quiet in runs:
        if quiet is not None:
            assert [line for line in loud if line in quiet] == quiet
            removed += [line for line in loud if line not in quiet and not fits("report-line", line + "\n")]
    assert [line for line in removed if not any(form.fullmatch(line) for form in forms)] == []
    assert [form.pattern for form in forms if not any(form.fullmatch(line) for line in removed)] == []


def test_examples_of_report_lines(device):
    *examples, command = blocks(section("updater-report.7", "EXAMPLES"))
    assert [example for example in examples if not fits("process", example)] == [] and len(examples) > 3
    set_up(device)
    assert device.shell(command).stdout == "4\n"


def test_status_words(device):
    words = dict(re.findall(r"^\.It Sy (\w+)\n(.*?)(?=^\.It|^\.El)", section("updater-report.7", "STATUS WORDS"), re.M | re.S))
    of_program = re.findall(r'"(\w+)"', re.search(r"k_vWords = {(.*?)}", SOURCE, re.DOTALL)[1])
    of_guide = re.findall(r"^\| `([A-Z]+)`", GUIDE[:GUIDE.index("## Exit codes")], re.MULTILINE)
    assert list(words) == of_program == of_guide
    device.install(*OLD)
    device.publish()
    for word, text in words.items():
        device.status = word
        code = re.search(r"next run\s+(?:works()|.*?exit code (\d))", text, re.DOTALL)[2]
        assert device.run("-n").returncode == int(code or 0), word
        assert device.status == (word if word == "REBOOTING" else "CORRUPTED" if code else "READY")
