"""The schemas of the configuration files beside the program's own judgement, and the examples that are shipped."""

import re
import subprocess

import pytest
from conftest import PROJECT

DIST = PROJECT / "dist"

STOPPED = ["ERROR: running is disabled by \"no run\" file '/var/run/updater.norun'", "INFO: --- EXIT ERROR ---"]  # with nothing in front
REPOSITORY = '<repository id="base"><location href="http://127.0.0.1/"/></repository>'
PACKAGES = "<product><packages>{}</packages></product>"
ONE, TWO = "<package><name>a</name></package>", "<package><name>a</name><name>b</name></package>"

UPDATER = {  # by the verdicts of schema and program
    (True, True): [
        "", f"<tls trust='system'/>{REPOSITORY}<log/>", "<tls trust='/etc/hosts'/>",
        *(f'<log level="{level}"/>' for level in ("trace", "debug", "info", "warn", "error", "fatal")),
        *(f'<log><logger type="syslog"><facility>{word}</facility></logger></log>' for word in ("daemon", "user", "local0", "local7")),
        '<log><logger type="stderr"/><!-- both --><logger type="syslog"><facility>daemon</facility></logger></log>',
        "<product><packages/><name>a b &amp; c</name></product>", "<user-agent><prodname>a</prodname><base>b c</base></user-agent>",
        PACKAGES.format(f"<addons>{TWO}<group><name>System/Base One</name></group>{ONE}</addons><release>{ONE}</release>"),
        '<repository enabled="false" id="a b"><location href="/srv"/><name>n</name></repository>' + REPOSITORY,
        '<repository id="..."><location href="file:///srv"/></repository>',
        '<repository id="kelo42"><location href="https://[::1]:80/a?b"/></repository>',
        *(REPOSITORY.replace(">", f" signed={words}>", 1) for words in ("'false'", "'true'", "'true' max-age='009999'"))],
    (False, False): [
        "<log", '<log level="warning"/>', "<log><logger/></log>", '<log><logger type="syslog"/></log>',
        '<log><logger type="syslog"><facility>mail</facility></logger></log>', "<product><name/></product>", "<user-agent><base/></user-agent>",
        PACKAGES.format("<release/>"), PACKAGES.format(f"<release>{TWO}</release>"), PACKAGES.format(f"<release>{ONE}{ONE}</release>"),
        PACKAGES.format("<addons><package><name/></package></addons>"),
        PACKAGES.format(f"<release><group><name>g</name></group>{ONE}</release>"),
        *(f'<repository id="{id}"><location href="/srv"/></repository>' for id in ("", ".", "..", "a/b", "a&#10;b", "a\x7fb")),
        *(REPOSITORY.replace(">", f" {words}>", 1) for words in ("signed='yes'", "signed='false' max-age='1'", "max-age='1'", *(
            f"signed='true' max-age='{days}'" for days in ("", "0", "-1", "10000", "1d")))),
        '<repository><location href="/srv"/></repository>', '<repository id="a"/>', '<repository id="a"><location href=""/></repository>',
        '<repository id="a"><name/><location href="/srv"/></repository>', '<tls trust=""/>', '<tls trust="ca.pem"/>'],
    (False, True): [
        PACKAGES.format(f"<addon>{ONE}</addon>"), PACKAGES.format("<addons><package/></addons>"), f"<packages><addons>{ONE}</addons></packages>",
        PACKAGES.format("<addons><package><name> maps </name></package></addons>"), '<log><logger type="file"/></log>', '<log level=""/>',
        '<repository id="a" enabled="yes"><location href="/srv"/></repository>', '<repository id="a"><location href="host/path"/></repository>',
        "<product/><product/>", "text", "<verbose/>"],
    (True, False): [REPOSITORY + REPOSITORY.replace("base", "other"), REPOSITORY + REPOSITORY.replace(">", ' enabled="false">', 1),
                    '<tls trust="/etc/nowhere.pem"/>'],
}
PROXY = {
    (True, True): ["", *(f'<proxy server="a" port="{port}"/>' for port in (0, 80, "080", 59999, 64999, 65499, 65529, 65534)),
                   *(f'<proxy server="::1" bypassLocalNetwork="{word}" port="1"/>' for word in ("on", "off", "true", "false")),
                   '<proxy server="a" port="1" username="u" password=""/>'],
    (False, False): ["<proxy/>", '<proxy server="" port="1"/>', '<proxy server="a"/>', "<proxy",
                     *(f'<proxy server="a" port="{port}"/>' for port in ("", "-1", "80 ", "80a", 65535, 65540, 70000, 100000)),
                     '<proxy server="a" port="1"/><proxy server="b" port="2"/>'],
    (False, True): ["<Proxy/>", '<proxy server="a" port="+1"/>', '<proxy server="a" port="1" bypass="off"/>',
                    '<proxy server="a" port="1" bypassLocalNetwork="no"/>', '<proxy server="http://a/" port="1"/>'],
}


@pytest.mark.parametrize("schema, command, top, table", [
    ("updater.rng", "updater --conf-file $file", "updater", UPDATER),
    ("orvproxy.rng", "cp $file /etc/network/orvproxy.conf; updater", "proxyconf", PROXY),
], ids=["updater", "proxy"])
def test_the_schema_judges_as_the_program_does(device, schema, command, top, table):
    """As are the examples that are shipped or stand in the manual. The program stops behind its configuration."""
    shipped = [text for text in (path.read_text() for path in (DIST / "examples").glob("*.conf")) if f"<{top}>" in text]
    shown = re.findall(rf"^<{top}>\n.*?(?=^\.Ed)", (PROJECT / "man/updater.conf.5").read_text(), re.MULTILINE | re.DOTALL)
    assert shipped and shown
    documents = {f"<{top}>{part}</{top}>": verdict for verdict, parts in table.items() for part in parts}
    documents |= {**dict.fromkeys([*shipped, *shown], (True, True)), "": (False, False), "<other/>": (False, False)}
    device.write("/var/run/updater.norun", "")
    paths = [device.write(f"/srv/conf/{number:03}", document) for number, document in enumerate(documents)]
    device.shell(f"for file in /srv/conf/*; do {command} --log-to-stderr --log-level info 2>$file.log; done")
    judged = subprocess.run(["xmllint", "--noout", "--relaxng", DIST / schema, *paths], capture_output=True, text=True).stderr
    validated = set(re.findall(r"^(\S+) validates$", judged, re.MULTILINE))
    assert documents == {document: (str(path) in validated, path.with_name(path.name + ".log").read_text().splitlines() == STOPPED)
                         for path, document in zip(paths, documents, strict=True)}
