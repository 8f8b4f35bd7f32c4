# SPDX-License-Identifier: MIT
"""The program as it is called: its options, its usage, its lines on both destinations, its end."""
import os
import pty
import re
import signal
import subprocess

import pytest

from lab import journal, namespaces, processes

PROGRAM = namespaces.program("quorcachepinfiled")
USAGE = ("Usage:\n\tStart service:\n\t\tquorcachepinfiled --config-path conf_path\n\tMisc:\n"
         "\t\t--stdout: Output to standard out (instead of syslog) \n"
         "\t\t--verbose: Output verbose information\n\t\t--debug: Output debug information\n")


def call(*arguments):
    return subprocess.run([PROGRAM, *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, timeout=journal.PATIENCE)


def texts_since(position):
    return [record.text for record in journal.records(position) if record.ident == "quorcachepinfiled"]


def test_help(stage):
    done = call("--help")
    assert (done.returncode, done.stdout, done.stderr) == (0, USAGE, "")
    done = call("-f", "/tmp/x", "-h", "--no-such-option")
    assert (done.returncode, done.stdout, done.stderr) == (0, USAGE, "")


@pytest.mark.parametrize("arguments, complaint", [
    ((), ""),
    (("extra", "words"), ""),
    (("--config-path",), "option '--config-path' requires an argument"),
    (("-f",), "option requires an argument -- 'f'"),
])
def test_without_a_configuration_path(stage, arguments, complaint):
    since = journal.position()
    done = call(*arguments)
    assert (done.returncode, done.stdout) == (255, USAGE)
    assert complaint in done.stderr
    texts = texts_since(since)
    assert len(texts) == 1
    assert re.fullmatch(r"quorcachepinfiled\.cpp:\d+ config path is not set", texts[0])


def test_on_standard_output(stage):
    done = call("--stdout")
    assert (done.returncode, done.stdout) == (255, "quorcachepinfiled: config path is not set\n" + USAGE)


def test_notices_go_where_the_log_goes_at_their_moment(stage):
    since = journal.position()
    done = call("--verbose", "--stdout", "--debug")
    assert done.stdout == ("quorcachepinfiled: Debug mode is enable\n"
                           "quorcachepinfiled: config path is not set\n" + USAGE)
    texts = texts_since(since)
    assert len(texts) == 1
    assert re.fullmatch(r"quorcachepinfiled\.cpp:\d+ Verbose mode is enable", texts[0])


def test_an_unknown_option_is_passed_over(stage):
    daemon = stage.daemon(flags=("--verbose", "--no-such-option"))
    assert "unrecognized option '--no-such-option'" in processes.text_of(daemon.output)


def test_the_start_up_line(stage):
    daemon = stage.daemon(flags=(), wait_for="Start Service")
    record, = daemon.records()
    assert re.fullmatch(r"quorcachepinfiled\.cpp:\d+ Start Service "
                        r"\(Build time: \d{4}/\d\d/\d\d-\d\d:\d\d\)", record.text)
    assert (record.priority, record.facility, record.ident) == (4, 1, "quorcachepinfiled")


@pytest.mark.parametrize("flags, content, level", [
    (("--debug", "--verbose"), None, 3), (("--verbose", "--debug"), None, 3), (("--verbose",), None, 2),
    (("--debug",), "print_level=verbose\n", 2), (("--verbose",), "print_level=debug\n", 3),
    ((), "print_level=debug\n", 3), ((), "print_level=Debug\n", 1)])
def test_the_print_level(stage, flags, content, level):
    if content:
        with open("/tmp/quorcachepinfiletool.debug", "w", encoding="ascii") as file:
            file.write(content)
    daemon = stage.daemon(flags=flags, wait_for="Start Service")
    if level > 1 and not flags:
        daemon.arguments.append("--verbose")  # only for telling its errors: the file has raised the level
    if content:
        daemon.wait_for(f"update print level to {level}")
    if level > 1:
        daemon.wait_for("Go to block mode")
        daemon.wait_for("Get server messsage queue id")
        assert all(re.match(r"quorcachepinfile(d|util)\.cpp:(\d+) \w+\(\) \[\2\] : ", record.text)
                   for record in daemon.records()
                   if "mode is enable" not in record.text and "Detect" not in record.text
                   and "Start Service" not in record.text and "*" not in record.text)
    assert {record.priority for record in daemon.records() if "Start Service" not in record.text} <= {3}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGQUIT])
def test_three_signals_end_it_with_success(stage, number):
    daemon = stage.daemon()
    assert daemon.stop(number) == 0
    assert daemon.logged(f"Get signal = {int(number)}")


def test_other_signals_keep_their_defaults(stage):
    daemon = stage.daemon()
    assert daemon.stop(signal.SIGHUP) == -signal.SIGHUP


def test_the_shapes_on_a_terminal(stage):
    """Standard output is never flushed by the program: a terminal sees its lines as they come."""
    controller, terminal = pty.openpty()
    process = subprocess.Popen([PROGRAM, "--stdout", "--verbose", "-f", "/tmp/none"],
                               stdin=subprocess.DEVNULL, stdout=terminal, stderr=terminal)
    os.close(terminal)
    seen = b""
    while b"Get server messsage queue id" not in seen or b"Go to block mode" not in seen:
        seen += os.read(controller, 65536)
    assert processes.stop(process) == 0
    os.close(controller)
    lines = seen.decode().replace("\r\n", "\n").splitlines()
    assert lines[0] == "quorcachepinfiled: Verbose mode is enable"
    assert re.fullmatch(r"quorcachepinfiled: main\(\) \[\d+\] : \+\+\+\+\+", lines[1])
    assert re.fullmatch(r"quorcachepinfiled: StartService\(\) \[\d+\] : \+\+\+\+\+", lines[2])
    assert any(re.fullmatch(r"quorcachepinfiled: \w+\(\) \[\d+\]: Go to block mode", line) for line in lines)


def test_one_of_the_platforms_libraries_can_be_replaced(stage):
    """The programs name the four libraries without a version and look for them by RUNPATH."""
    dynamic = subprocess.run(["readelf", "-d", PROGRAM], capture_output=True, text=True, check=True).stdout
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    assert {"libquorcore.so", "libquorstoragecore.so", "libquorflashcache.so",
            "libquordataverifier.so"} <= set(needed)
    assert "(RUNPATH)" in dynamic and "(RPATH)" not in dynamic
