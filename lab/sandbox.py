# SPDX-License-Identifier: MIT
"""An environment whose daemon is started by systemd under the packaged unit's restrictions.

Its first process is systemd, which runs the given command and nothing else; `start` then gives the
daemon's process as `lab.processes.start` does, as a service of the unit that is packaged. Control
groups of its own keep several of them apart.
"""
import os
import shutil
import signal
import subprocess
import sys
import time

from lab import journal, libc, namespaces

UNIT = os.path.join(namespaces.ROOT, "packaging/debian/quorcachepinfiled.service")
NAME = "sandbox"
_VARIABLE = "QUOR_SANDBOX"  # 1: wanted; "inside": this process runs in one
WISH = f"{_VARIABLE}=1"
_CGROUPS = "/sys/fs/cgroup"
_UNITS = "/run/systemd/system"
_PROGRAMS = "/run/lab/sandbox"
_PASSED_ON = ("PATH", "CI", "QUOR_BUILD", "LANG", "LC_ALL", "TERM", "HOME")


def wanted():
    return os.environ.get(_VARIABLE) == "1"


def inside():
    return os.environ.get(_VARIABLE) == "inside"


def _quote(text):
    for plain, quoted in (("\\", "\\\\"), ('"', '\\"'), ("%", "%%"), ("$", "$$")):
        text = text.replace(plain, quoted)
    return f'"{text}"'


def _assign(name, value):
    # Variables are not expanded in what is assigned.
    return "Environment=" + _quote(f"{name}={value}").replace("$$", "$") + "\n"


def _write_unit(name, text):
    with open(f"{_UNITS}/{name}", "w", encoding="utf-8") as file:
        file.write(text)


def _become_systemd(endpoint, command):
    """Leaves the log to a process of its own and runs systemd in the place of this one."""
    collector = os.fork()
    if collector == 0:
        journal.serve(endpoint)
        while True:
            signal.pause()
    endpoint.close()
    libc.unmount(_CGROUPS)  # it shows more than the own group
    libc.mount("cgroup", _CGROUPS, "cgroup2")
    os.makedirs(_UNITS)
    os.makedirs(_PROGRAMS)
    for part in ("bin", "lib"):
        shutil.copytree(f"{namespaces.build_directory()}/{part}", f"{_PROGRAMS}/{part}", symlinks=True,
                        ignore=shutil.ignore_patterns("*_test", "*.a"))
    environment = {name: os.environ[name] for name in _PASSED_ON if name in os.environ}
    _write_unit("lab.service", f"""[Unit]
DefaultDependencies=no
SuccessAction=exit
FailureAction=exit
[Service]
Type=oneshot
WorkingDirectory={namespaces.ROOT}
ExecStart={" ".join(map(_quote, command))}
StandardOutput=append:/proc/{collector}/fd/1
StandardError=inherit
TimeoutStartSec=infinity
{"".join(_assign(*row) for row in {**environment, _VARIABLE: "inside"}.items())}""")
    # What is mounted later is seen by the services, as on a machine that systemd has booted.
    libc.mount("none", "/", flags=libc.MS_REC | libc.MS_SHARED)
    os.execve("/lib/systemd/systemd", ["systemd", "--unit=lab.service", "--log-level=err",
                                       "--log-target=null"], {"PATH": os.environ["PATH"], "container": "lab"})


def _remove_groups(top):
    for directory, _, _ in os.walk(top, topdown=False):
        for _ in range(50):
            try:
                os.rmdir(directory)
                break
            except OSError:
                time.sleep(0.02)  # its last process is still on its way out


def _in_own_group(main):
    """Runs `main()` in a control group and namespace of its own; returns its result."""
    libc.unshare(libc.CLONE_NEWNS)
    libc.mount("none", "/", flags=libc.MS_REC | libc.MS_PRIVATE)
    libc.mount("cgroup", _CGROUPS, "cgroup2")
    with open("/proc/self/cgroup", encoding="utf-8") as groups:
        home = next(line[3:].strip() for line in groups if line.startswith("0::"))
    home = os.path.normpath(_CGROUPS + home)
    own = f"{home}/lab-{os.getpid()}"

    def enter(group):
        with open(f"{group}/cgroup.procs", "w", encoding="ascii") as members:
            members.write(str(os.getpid()))
    os.mkdir(own)
    enter(own)
    libc.unshare(libc.CLONE_NEWCGROUP)
    try:
        return main()
    finally:
        enter(home)
        _remove_groups(own)


def run(command):
    """Runs `command`, a list, in such an environment; returns its exit status."""
    child = os.fork()
    if child == 0:
        status = 1
        try:
            status = _in_own_group(lambda: namespaces.run(
                None, become=lambda endpoint: _become_systemd(endpoint, command)))
        finally:
            sys.stdout.flush()
            os._exit(status)
    before = signal.signal(signal.SIGTERM, lambda number, frame: os.kill(child, number))
    try:
        return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    finally:
        signal.signal(signal.SIGTERM, before)


def _systemctl(*arguments):
    return subprocess.run(["systemctl", *arguments], check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.strip()


class _Service:
    """The daemon as a service; answers what the stories ask of a subprocess.Popen."""

    _started = 0

    def __init__(self, arguments, output, environment):
        _Service._started += 1
        name = f"daemon-{_Service._started}.service"
        self.args = arguments
        self.returncode = None
        self._end = f"{_PROGRAMS}/end-{_Service._started}"
        program = f"{_PROGRAMS}/bin/{os.path.basename(arguments[0])}"
        with open(UNIT, encoding="utf-8") as file:
            packaged = file.read()
        _write_unit(name, f"""{packaged}
[Unit]
DefaultDependencies=no
[Service]
ExecCondition=
ExecStartPre=
ExecStartPost=
ExecStart=
ExecStart={" ".join(map(_quote, [program, *arguments[1:]]))}
ExecStopPost=+/bin/sh -c 'echo "$$EXIT_CODE $$EXIT_STATUS" >{self._end}.new && mv {self._end}.new {self._end}'
StandardOutput=append:{output}
StandardError=inherit
Restart=no
StateDirectory=
{"".join(_assign(*row) for row in environment.items())}""")
        _systemctl("daemon-reload")
        _systemctl("start", name)
        self.pid = int(_systemctl("show", "-P", "ExecMainPID", name) or 0)
        self._confined()

    def _confined(self):
        """Demands that the restrictions are there, so that no story passes without them."""
        try:
            with open(f"/proc/{self.pid}/status", encoding="utf-8") as file:
                state = dict(line.rstrip("\n").split(":\t", 1) for line in file)
        except FileNotFoundError:
            return  # ended already
        found = state["NoNewPrivs"], state["Seccomp"], int(state["CapBnd"], 16)
        assert "Z" in state["State"] or found == ("1", "2", 2), f"not confined: {found}"

    def poll(self):
        if self.returncode is None and os.path.exists(self._end):
            with open(self._end, encoding="ascii") as file:
                how, what = file.read().split()
            self.returncode = int(what) if how == "exited" else -signal.Signals["SIG" + what]
        return self.returncode

    def wait(self, timeout=None):
        patience = journal.PATIENCE if timeout is None else timeout
        try:
            journal.until(lambda: self.poll() is not None, "", patience)
        except TimeoutError:
            raise subprocess.TimeoutExpired(self.args, patience) from None
        return self.returncode

    def send_signal(self, number):
        os.kill(self.pid, number)

    def kill(self):
        self.send_signal(signal.SIGKILL)


def start(arguments, output, environment=None):
    """Starts the daemon under the unit's restrictions; as lab.processes.start."""
    return _Service(arguments, output, environment or {})
