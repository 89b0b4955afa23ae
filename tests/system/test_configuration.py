"""The schemas of the configuration files beside the program's own judgement, and the examples that are shipped."""

import re
import subprocess
from pathlib import Path

import pytest

PROJECT = Path(__file__).resolve().parents[2]
DIST = PROJECT / "dist"

STOPPED = ["ERROR: running is disabled by \"no run\" file '/var/run/updater.norun'", "INFO: --- EXIT ERROR ---"]  # with nothing in front
REPOSITORY = '<repository id="base"><location href="http://127.0.0.1/"/></repository>'
PACKAGES = "<product><packages>{}</packages></product>"
ONE, TWO = "<package><name>a</name></package>", "<package><name>a</name><name>b</name></package>"

ACCEPTED = [
    "", "<!-- nothing --> \n", REPOSITORY, f"<tls trust='system'/>{REPOSITORY}<log/>", "<tls trust='/etc/hosts'/>",
    *(f'<log level="{level}"/>' for level in ("trace", "debug", "info", "warn", "error", "fatal")),
    *(f'<log><logger type="syslog"><facility>{word}</facility></logger></log>' for word in
      ("daemon", "user", "local0", "local1", "local2", "local3", "local4", "local5", "local6", "local7")),
    '<log><logger type="stderr"/><!-- both --><logger type="syslog"><facility>daemon</facility></logger></log>',
    "<product><packages/><name>a b &amp; c</name></product>", "<product><name><![CDATA[Example]]></name></product>",
    "<user-agent><prodname>a</prodname><base>b c</base></user-agent>",
    PACKAGES.format(f"<addons>{TWO}<group><name>System/Base One</name></group>{ONE}</addons><release>{ONE}</release>"),
    '<repository enabled="false" id="a b"><location href="/srv"/><name>n</name></repository>' + REPOSITORY,
    '<repository id="..."><location href="file:///srv"/></repository>',
    '<repository id="kelo42"><location href="https://[::1]:80/a?b"/></repository>',
]
REFUSED = [
    "<log", "<log></updater>", '<log level="warning"/>', '<log level="INFO"/>', '<log level=" info"/>',
    "<log><logger/></log>", '<log><logger type="syslog"/></log>', '<log><logger type="syslog"><facility/></logger></log>',
    '<log><logger type="syslog"><facility>mail</facility></logger></log>',
    '<log><logger type="syslog"><facility> daemon</facility></logger></log>',
    "<product><name/></product>", "<user-agent><base/></user-agent>", "<user-agent><prodname></prodname></user-agent>",
    PACKAGES.format("<release/>"), PACKAGES.format(f"<release>{TWO}</release>"), PACKAGES.format(f"<release>{ONE}{ONE}</release>"),
    PACKAGES.format("<release><package/></release>"), PACKAGES.format("<addons><package><name/></package></addons>"),
    PACKAGES.format(f"<release><group><name>g</name></group>{ONE}</release>"),
    *(f'<repository id="{id}"><location href="/srv"/></repository>' for id in ("", ".", "..", "a/b", "a&#10;b", "a\x7fb")),
    '<repository><location href="/srv"/></repository>', '<repository id="a"/>', '<repository id="a"><location/></repository>',
    '<repository id="a"><location href=""/></repository>', '<repository id="a"><name/><location href="/srv"/></repository>',
    "<tls/>", '<tls trust=""/>', '<tls trust="ca.pem"/>', '<tls trust="System"/>',
]
SCHEMA_ALONE = [
    PACKAGES.format(f"<addon>{ONE}</addon>"), PACKAGES.format("<addons><package/></addons>"), f"<packages><addons>{ONE}</addons></packages>",
    PACKAGES.format("<addons><package>maps</package></addons>"), PACKAGES.format("<addons><package><name> maps </name></package></addons>"),
    PACKAGES.format("<addons><name>maps</name></addons>"), '<log><logger type="file"/></log>', "<logger type='stderr'/>", '<log level=""/>',
    '<repository id="a" enabled="yes"><location href="/srv"/></repository>', '<repository id="a" Enabled="false"><location href="/srv"/></repository>',
    '<repository id="a"><location href="HTTPS://host/"/></repository>', '<repository id="a"><location href="host/path"/></repository>',
    '<repository id="a"><location href="/srv"/><location href="/srv2"/></repository>', "<product/><product/>", "text", "<verbose/>",
    f"<repositories>{REPOSITORY}</repositories>", "<user-agent><product>a</product></user-agent>",
]
PROGRAM_ALONE = [
    REPOSITORY + REPOSITORY.replace("base", "other"), REPOSITORY + REPOSITORY.replace(">", ' enabled="false">', 1),
    REPOSITORY + REPOSITORY.replace("base", "kelo42"), '<tls trust="/etc/nowhere.pem"/>',
]
DOCUMENTS = ["<Updater/>", "<configuration/>", ""]  # refused as well

PROXIES = {  # by the verdicts of schema and program
    (True, True): ["", "<!-- none -->", *(f'<proxy server="a" port="{port}"/>' for port in (0, 80, "080", 9999, 59999, 64999, 65499, 65529, 65534)),
                   *(f'<proxy server="::1" bypassLocalNetwork="{word}" port="1"/>' for word in ("on", "off", "true", "false")),
                   '<proxy server="a" port="1" username="u" password=""/>'],
    (False, False): ["<proxy/>", '<proxy port="1"/>', '<proxy server="" port="1"/>', '<proxy server="a"/>', "<proxy",
                     *(f'<proxy server="a" port="{port}"/>' for port in ("", " ", "-1", "80 ", "80a", 65535, 65540, 70000, 100000)),
                     '<proxy server="a" port="1"/><proxy server="b" port="2"/>'],
    (False, True): ["<Proxy/>", '<proxy server="a" port="+1"/>', '<proxy server="a" port=" 1"/>', '<proxy server="a" port="1" bypass="off"/>',
                    '<proxy server="a" port="1" bypassLocalNetwork="no"/>', '<proxy server="http://a/" port="1"/>',
                    '<proxy server="a" port="1" user="u"/>', '<proxy server="a" port="1" password="p"/>'],
}


def verdicts(device, schema, documents, command):
    """For each document whether schema and program accept it. The program stops behind its configuration."""
    device.write("/var/run/updater.norun", "")
    paths = [device.write(f"/srv/conf/{number:03}", document) for number, document in enumerate(documents)]
    device.shell(f"for file in /srv/conf/*; do {command} --log-to-stderr --log-level info 2>$file.log; done")
    judged = subprocess.run(["xmllint", "--noout", "--relaxng", DIST / schema, *paths], capture_output=True, text=True).stderr
    validated = set(re.findall(r"^(\S+) validates$", judged, re.MULTILINE))
    return {document: (str(path) in validated, path.with_name(path.name + ".log").read_text().splitlines() == STOPPED)
            for path, document in zip(paths, documents, strict=True)}


def test_the_schema_judges_as_the_program_does(device):
    expected = {**dict.fromkeys(ACCEPTED, (True, True)), **dict.fromkeys(REFUSED, (False, False)),
                **dict.fromkeys(SCHEMA_ALONE, (False, True)), **dict.fromkeys(PROGRAM_ALONE, (True, False))}
    documents = {f"<updater>{part}</updater>": verdict for part, verdict in expected.items()} | dict.fromkeys(DOCUMENTS, (False, False))
    assert verdicts(device, "updater.rng", documents, "updater --conf-file $file") == documents


def test_the_schema_of_the_proxy_file_judges_as_the_program_does(device):
    documents = {f"<proxyconf>{part}</proxyconf>": verdict for verdict, parts in PROXIES.items() for part in parts}
    documents["<proxy server='a' port='1'/>"] = (False, False)
    assert verdicts(device, "orvproxy.rng", documents, "cp $file /etc/network/orvproxy.conf; updater") == documents


@pytest.mark.parametrize("schema, command, top", [
    ("updater.rng", "updater --conf-file $file", "<updater>"),
    ("orvproxy.rng", "cp $file /etc/network/orvproxy.conf; updater", "<proxyconf>"),
])
def test_examples_that_are_shipped_or_stand_in_the_manual(device, schema, command, top):
    page = (PROJECT / "man/updater.conf.5").read_text()
    shipped = [text for text in (path.read_text() for path in (DIST / "examples").glob("*.conf")) if top in text]
    shown = re.findall(rf"^{top}\n.*?(?=^\.Ed)", page, re.MULTILINE | re.DOTALL)
    assert shipped and shown
    assert verdicts(device, schema, [*shipped, *shown], command) == dict.fromkeys([*shipped, *shown], (True, True))
