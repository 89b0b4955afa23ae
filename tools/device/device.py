"""A private device in namespaces, in which the unchanged program runs at its real paths.

The device's files lie in a plain directory of the host, so that a test reads and writes them from
outside, and they persist between runs. Each run enters fresh namespaces (script `enter`) in which
nothing of the host can be written. No need to be root. In short:

    with Device(program) as device:             # temporary, gone at the end
        device.import_key()                     # the public key "vendor", which packages have by default
        device.install(Package("app", "1-1"))   # the real rpm, quick when it was done before
        device.publish(Package("app", "2-1", requires=("lib >= 2",)), Package("lib", "2-1"))
        device.configure(release="firmware", addons=["addon"])      # for file:///srv/repo
        result = device.run("--check-only")     # or .shell("updater & updater; wait")
        result.returncode; result.lines         # 0, ["INFO: updater version 1.1, product Demo", ...]
        device.status                           # "READY"; "" without a status file
        device.installed()                      # ["app-1-1", "base-system-1-1"]
        device.calls                            # ["hook init 1.1", "rpm -v -U lib-2-1.noarch.rpm ...",
                                                #  "telinit u", "shutdown -r +1 rebooting after upgrade"]
        device.path("/var/cache/updater")       # the directory on the host; .write(), .read() go there

A returncode is the exit code, or 128 + n if signal n ended the program (143: SIGTERM, 137: SIGKILL);
it never is negative. A finding of a sanitizer raises SanitizerError whatever the program returned.
`rpm`, `telinit`, `shutdown` and the hook are stubs that note their calls. By default all succeed, and
`rpm` goes on to the real one. A rule changes that; `call` is the beginning of a line of `calls`, and
`nth` counts such calls from the moment the rule is made (None: every one):

    device.cut_power_at("hook update")          # all processes die at once; run() returns 137
    device.cut_power_at("rpm -v -U", "in")      # "before", "in" (first package is in place), "behind"
    device.answer("hook download", exit=3, output="no space")
    device.answer("rpm -v -U", exit=1, output="failed")     # in place of the real rpm
    device.answer("rpm -v -U", signal=9, inside=True)       # real rpm, killed behind its first package
    device.answer("rpm -v -U", to_updater="TERM")           # signals the program, then does what is usual
    device.hold_at("hook download")             # with start(): waits there until release()
    device.remove("/usr/lib/updater/hook")      # or "/device/bin/shutdown": a missing program
    running = device.start(); running.wait_for("hook download"); running.signal(15); device.release()
    running.wait()                              # a Result like run()'s
    device.trace("--test").events               # ["hook init 1.1", "ANALYZING", ..., "TESTING", "fsync",
                                                #  "rpm --test -U a-2-1.noarch.rpm", "PKGSDONE", "fsync", ...]

A run has a network of its own: lo with 127.0.0.1, ::1 and 10.9.9.1/24. With a server, all later runs
are in the server's network, still with processes of their own:

    device.serve("/usr/sbin/nginx", "-c", "/srv/nginx.conf", port=8080)     # until close()

/usr is the host's and cannot be written. With Device(program, packaged=True) those of its directories
in which the package of updater has files are the device's own, and empty: rpm installs it there.
"""

import dataclasses
import os
import shlex
import shutil
import subprocess
import tempfile
import time
from collections.abc import Callable, Iterable
from pathlib import Path
from xml.sax.saxutils import escape, quoteattr

from . import cache, keys, packages, repository, root
from .packages import Package
from .running import STATUS_FILE, Result, Running, SanitizerError, events_of

__all__ = ["Device", "Package", "Result", "Running", "SanitizerError"]

HERE = Path(__file__).parent
REPO = "/srv/repo"
RPM_OWNS = ("opt", "var/lib/rpm")
SANITIZERS = {"ASAN_OPTIONS": "exitcode=99:log_path=/device/sanitizer:detect_stack_use_after_return=1",
              "UBSAN_OPTIONS": "exitcode=99:halt_on_error=1:print_stacktrace=1:log_path=/device/sanitizer",
              "LSAN_OPTIONS": "exitcode=99:suppressions=/device/leaks:print_suppressions=0"}


class Device:
    """One device, see above. `program` is the path of the `updater` to run."""

    def __init__(self, program: Path | str, directory: Path | None = None, packaged: bool = False) -> None:
        self.directory = directory or Path(tempfile.mkdtemp(prefix="device-"))
        self._rules = 0
        self._servers: list[Running] = []
        self._alive: list[Running] = []  # what may be running, servers among them
        self._state: str | None = "base"  # names what is installed, None when not known for sure
        try:
            root.make(self.directory, Path(program).resolve(), packaged)
            self._restore_or_make("base", lambda: self._rpm("-i", packages.build(packages.BASE)))
        except BaseException:
            self.close()
            raise

    def __enter__(self) -> "Device":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends all that still runs in it, the latest first, and removes its files, also those in
        directories that a test has locked."""
        while self._alive:
            self._alive.pop().kill()
        if self.directory.exists():
            for directory, names, _ in os.walk(self.directory):
                for name in names:
                    path = os.path.join(directory, name)
                    if not os.path.islink(path):
                        os.chmod(path, 0o700)
            shutil.rmtree(self.directory)

    # Files

    def path(self, path: str) -> Path:
        """Where a file of the device lies on the host."""
        return root.host_path(self.directory, path)

    def read(self, path: str) -> str:
        return self.path(path).read_text(errors="replace")

    def write(self, path: str, content: str | bytes, mode: int = 0o644) -> Path:
        """Writes a file of the device and makes the directories above it."""
        return root.write(self.directory, path, content, mode)

    def remove(self, path: str) -> None:
        """Removes a file of the device; it must be there."""
        self.path(path).unlink()

    @property
    def status(self) -> str:
        """What the status file holds; "" if there is none."""
        file = self.path(STATUS_FILE)
        return file.read_text().removesuffix("\n") if file.exists() else ""

    @status.setter
    def status(self, word: str) -> None:
        self.write(STATUS_FILE, word + "\n")

    @property
    def calls(self) -> list[str]:
        """The calls of all stubs so far, with base names in place of paths."""
        return self.read("/device/calls").splitlines()

    def configure(self, uri: str = "file://" + REPO, *, release: str = "", addons: Iterable[str] = (),
                  groups: Iterable[str] = (), level: str = "info", extra: str = "") -> None:
        """Writes /etc/updater.conf. `extra` goes in as it is, behind the rest."""
        def names(kind: str, of: Iterable[str]) -> str:
            return "".join(f"<{kind}><name>{escape(name)}</name></{kind}>" for name in of)
        self.write("/etc/updater.conf", f"""<?xml version="1.0"?>
<updater>
  <log level="{level}"><logger type="stderr"/></log>
  <product><name>Demo</name><packages>
    {f'<release>{names("package", [release])}</release>' if release else ''}
    <addons>{names("package", addons)}{names("group", groups)}</addons>
  </packages></product>
  <repository id="base"><name>Demo packages</name><location href={quoteattr(uri)}/></repository>{extra}
</updater>
""")

    def publish(self, *items: Package | Path, at: str = REPO) -> None:
        """Makes these packages (recipes or files) the contents of the repository."""
        repository.publish(self.path(at), self._files(items))

    # Programs

    def run(self, *arguments: str, timeout: float = 60, **environment: str) -> Result:
        """Runs the program to its end, and whatever it leaves in the background too."""
        return self.start(*arguments, **environment).wait(timeout)

    def start(self, *arguments: str, **environment: str) -> Running:
        """Starts the program and doesn't wait. Two of these share the files of the device and so
        the lock, but don't see each other's processes."""
        return self._start(["/device/bin/updater", *arguments], environment)

    def shell(self, script: str, timeout: float = 60, **environment: str) -> Result:
        """Runs a shell script in the device, where `updater` and the stubs are found by name."""
        environment = {"PATH": "/device/bin:/usr/sbin:/usr/bin"} | environment
        return self._start(["/bin/sh", "-c", script], environment).wait(timeout)

    def serve(self, *command: str, port: int, timeout: float = 20) -> None:
        """Starts a server, as an ordinary user, and waits until it listens on its TCP port."""
        state = self._state
        script = """exec >>/device/servers 2>&1
            mount -o remount,rw /proc && exec unshare --user --map-user=33 --map-group=33 -- "$@" """
        server = self._start(["/bin/sh", "-c", script, "sh", *command], {"PATH": "/usr/sbin:/usr/bin"})
        self._state = state
        end = time.monotonic() + timeout
        while not server.listens(port):
            if time.monotonic() > end or not server.alive:
                server.kill()
                raise TimeoutError(f"{command[0]} does not listen: {self.read('/device/servers')}")
            time.sleep(0.005)
        self._servers.append(server)

    def join(self, other: "Device") -> None:
        """Has all later runs take place in the network of another device, where its servers listen."""
        self._servers = other._servers

    def command(self, *command: str) -> tuple[list[str], dict[str, str]]:
        """What to execute, and in which environment, to run a command in the device by other means."""
        environment = {"HOME": "/root", "LC_ALL": "C", "TERM": os.environ.get("TERM", "dumb"),
                       "PATH": "/device/bin", **SANITIZERS}
        join = ["--join", self._servers[0].inside] if self._servers else []
        return [str(HERE / "enter"), *join, str(self.directory), *command], environment

    def trace(self, *arguments: str, **environment: str) -> Result:
        """A run whose `events` tell what reached the disk, in order: the calls of the stubs as in
        `calls`, a status word when it replaced the one before, "fsync" when the status file and then
        its directory were forced to disk, "sync" for sync(). What failed doesn't count. Nobody waits for shutdown: its place varies."""
        for file in self.path("/device").glob("trace.*"):
            file.unlink()
        environment["ASAN_OPTIONS"] = SANITIZERS["ASAN_OPTIONS"] + ":detect_leaks=0"
        result = self._start(
            ["/usr/bin/strace", "-ff", "-y", "-ttt", "-s", "512", "--seccomp-bpf", "--signal=none", "--quiet=all",
             "--output=/device/trace", "-e", "trace=write,rename,renameat,renameat2,fsync,fdatasync,sync,execve",
             "/device/bin/updater", *arguments], environment).wait()
        lines = [line for file in self.path("/device").glob("trace.*") for line in file.read_text().splitlines()]
        return dataclasses.replace(result, events=events_of(sorted(lines)))

    # The rpm database

    def install(self, *items: Package | Path) -> None:
        """Installs packages with the real rpm, past the stub. They must not need each other in steps."""
        files = self._files(items)
        self._restore_or_make(f"install {sorted(map(str, files))}", lambda: self._rpm("-U", files))

    def import_key(self, name: str = "vendor") -> None:
        """Makes a public key known to the device's rpm."""
        key = keys.public_key(name)
        self._restore_or_make(f"import {key.read_text()}", lambda: self._rpm("--import", [key]))

    def installed(self) -> list[str]:
        """Names, versions and releases of the installed packages, sorted, without public keys."""
        state = self._state
        result = self.shell("/usr/bin/rpm -qa")
        self._state = state
        return sorted(line.removesuffix(".noarch") for line in result.stdout.splitlines()
                      if not line.startswith("gpg-pubkey"))

    def _files(self, items: Iterable[Package | Path]) -> list[Path]:
        built = iter(packages.build(*(item for item in items if isinstance(item, Package))))
        return [next(built) if isinstance(item, Package) else item for item in items]

    def _rpm(self, mode: str, files: list[Path]) -> None:
        for file in files:
            shutil.copy(file, self.path("/tmp"))
        names = [f"/tmp/{file.name}" for file in files]
        done = self._start(["/usr/bin/rpm", mode, *names], {}).wait()
        if done.returncode != 0:
            raise RuntimeError(f"rpm {mode} failed: {done.stderr}{done.stdout}")
        for name in names:
            self.remove(name)

    def _restore_or_make(self, step: str, make: Callable[[], None]) -> None:
        """Does a step that changes only what rpm owns, or restores what it left when it was done
        from the same state before. With a state that is not known for sure it is always done."""
        if self._state is None:
            make()
            return
        state = cache.name_for(self._state, step, packages.SOURCE)

        def fill(draft: Path) -> None:
            make()
            for part in RPM_OWNS:
                shutil.copytree(self.directory / part, draft / part, symlinks=True)

        place = cache.entry(f"states/{state}", fill)
        for part in RPM_OWNS:
            shutil.rmtree(self.directory / part)
            shutil.copytree(place / part, self.directory / part, symlinks=True)
        self._state = state

    # Rules for the stubs

    def cut_power_at(self, call: str, when: str = "before", nth: int = 1) -> None:
        """Kills every process of the device at a call: "before" or "behind" what it does, or "in"
        the real rpm, when the first of the packages is in place."""
        action = {"before": "cut", "behind": 'usual "$@"; cut',
                  "in": 'echo -1 9 >/device/in-rpm; usual "$@"; echo nothing to cut; exit 98'}[when]
        self._add_rule(call, nth, action)

    def answer(self, call: str, *, exit: int | None = None, output: str = "", signal: int = 0,
               inside: bool = False, to_updater: str = "", nth: int | None = None) -> None:
        """Lets a stub signal the program, print, and then kill itself by a signal or exit. With
        neither of these it goes on to what is usual. `inside`: the real rpm dies of the signal, when
        the first of the packages is in place."""
        steps = []
        if to_updater:
            steps.append(f"kill -{to_updater} $PPID")
        if output:
            steps.append(f"printf %s {shlex.quote(output)}")
        if inside:
            steps.append(f'echo $$ {signal} >/device/in-rpm; exec /usr/bin/rpm "$@"')
        elif signal:
            steps.append(f"kill -{signal} $$")
        elif exit is not None:
            steps.append(f"exit {exit}")
        self._add_rule(call, nth, "; ".join(steps))

    def hold_at(self, call: str, nth: int = 1) -> None:
        """Lets a stub wait, behind the noting of its call, until release()."""
        self._add_rule(call, nth, "hold")

    def besides(self, call: str, script: str) -> None:
        """Lets a stub run a shell script ahead of what it does."""
        self._add_rule(call, None, script)

    def release(self) -> None:
        self.write("/device/go", "")

    def _add_rule(self, call: str, nth: int | None, action: str) -> None:
        self._rules += 1
        with open(self.path("/device/rules"), "a", encoding="utf-8") as rules:
            rules.write(f"if hit {self._rules} {shlex.quote(call)} {nth or 0}; then {action}; fi\n")

    # Inside

    def _start(self, command: list[str], environment: dict[str, str]) -> Running:
        self._state = None
        line, basic = self.command(*command)
        process = subprocess.Popen(line, env=basic | environment, stdin=subprocess.DEVNULL, text=True,
                                   errors="replace", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        running = Running(self.path("/device"), process)
        self._alive = [*(other for other in self._alive if other.alive), running]
        return running
