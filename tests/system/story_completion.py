# SPDX-License-Identifier: MIT
# not sanitized: it tries what shells do
"""Completion, in the shells themselves: a line is typed, a key inserts all that is offered."""
import os
import pty
import re
import shlex
import shutil
import subprocess
import threading

import pytest

from lab import journal, namespaces

CLIENT = os.path.join(namespaces.ROOT, "client/completion")
CACHE = os.path.join(namespaces.ROOT, "softcache/completion")
ANSWER = "/tmp/answer"
ALL, TELL = "\x1ba", "\x1bt"  # keys: Alt-a inserts all that is offered, Alt-t writes the line to ANSWER

BASH = f"""
PS1='> ' HISTFILE=
source {CLIENT}/quorcachepinctl.bash
source {CACHE}/quorsoftcache.bash
bind '"\\ea": insert-completions'
tell() {{ printf '%s\\n' "$READLINE_LINE" >{ANSWER}.new && mv {ANSWER}.new {ANSWER}; READLINE_LINE=; }}
bind -x '"\\et": tell'
"""

ZSH = f"""
PS1='> '
fpath=({CLIENT} {CACHE} $fpath)
autoload -U compinit
compinit -u -D
zstyle ':completion:*' verbose no
insert_all() {{ _main_complete "$@"; compstate[insert]=all; compstate[list]= }}
zle -C insert_all complete-word insert_all
bindkey '\\ea' insert_all
tell() {{ print -r -- $BUFFER >{ANSWER}.new && mv {ANSWER}.new {ANSWER}; BUFFER= }}
zle -N tell
bindkey '\\et' tell
"""

SHELLS = {"bash": (["bash", "--noprofile", "--norc", "-i"], BASH), "zsh": (["zsh", "-f", "-i"], ZSH)}


class Shell:
    """An interactive shell on a terminal that is wide enough for every line."""

    def __init__(self, name):
        words, setup = SHELLS[name]
        with open("/tmp/setup", "w", encoding="utf-8") as file:
            file.write(setup)
        environment = {**os.environ, "TERM": "xterm", "LANG": "C.UTF-8", "COLUMNS": "9999",
                       "PATH": f"{namespaces.build_directory()}/bin:{os.environ['PATH']}"}
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            os.execvpe(words[0], words, environment)
        self.screen = b""
        # What nobody reads would stop the shell in the end.
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        self._type(f"source /tmp/setup; : >{ANSWER}\n")
        self._answer()

    def _read(self):
        try:
            while piece := os.read(self.terminal, 65536):
                self.screen += piece
        except OSError:  # what a terminal answers when nobody has it open any more
            pass

    def _type(self, text):
        os.write(self.terminal, text.encode())

    def _answer(self):
        def found():
            return os.path.exists(ANSWER)
        journal.until(found, lambda: f"no answer; the screen:\n{self.screen.decode(errors='replace')}")
        with open(ANSWER, encoding="utf-8") as file:
            text = file.read()
        os.unlink(ANSWER)
        return text

    def offered(self, line, begin=""):
        """The words that are offered for the last word of a line, which begins with `begin`."""
        self._type(line + " " + begin + ALL + TELL)
        answer = self._answer().rstrip("\n")
        assert answer.startswith(line + " "), (answer, self.screen)
        words = {word.rstrip("/") for word in shlex.split(answer[len(line):])}  # zsh marks directories
        return words - {begin.rstrip("/")}

    def end(self):
        self._type("exit\n")
        os.waitpid(self.child, 0)
        self.reader.join()
        os.close(self.terminal)


@pytest.fixture(params=SHELLS)
def shell(request):
    if not shutil.which(request.param):
        pytest.skip(f"no {request.param}")
    started = Shell(request.param)
    yield started
    started.end()


def options_of(*words):
    """The options that a program's --help tells."""
    done = subprocess.run([namespaces.program(words[0]), *words[1:], "--help"], capture_output=True, text=True,
                          check=True)
    return set(re.findall(r"(?:^  |,)(--?[a-z0-9][-a-z]*)", done.stdout, re.M))


def test_pinned_files_and_volumes_are_offered(stage, shell):
    volume = stage.volume()
    other = stage.volume("other")
    pinned = [volume.write("photos/a.jpg", 100_000), other.write("b'$.jpg", 100_000)]
    volume.write("photos/never.jpg", 100_000)
    daemon, queue = stage.daemon(), stage.queue()
    assert shell.offered("quorcachepinctl reload", "/mnt/") == {volume.mount_path, other.mount_path}
    for one, path in zip((volume, other), pinned):
        queue.pin(one.mount_path, [path])
    daemon.until_done("pinFiles", 2)

    assert shell.offered("quorcachepinctl unpin", "/mnt/") == set(pinned)
    assert shell.offered("quorcachepinctl unpin --wait", "/mnt/o") == {pinned[1]}
    for verb in ("reload", "pend", "release", "list", "check", "map", "forget"):
        assert shell.offered(f"quorcachepinctl {verb}", "/mnt/") == {volume.mount_path, other.mount_path}, verb
    # A volume may be told by any path in it.
    assert shell.offered("quorcachepinctl map", f"{volume.mount_path}/ph") == {f"{volume.mount_path}/photos"}


def test_without_a_list_files_and_directories_are_offered(shell):
    os.makedirs("/tmp/some/directory", exist_ok=True)
    with open("/tmp/some/file", "w", encoding="ascii"):
        pass
    assert shell.offered("quorcachepinctl unpin", "/tmp/some/") == {"/tmp/some/directory", "/tmp/some/file"}
    assert shell.offered("quorcachepinctl reload", "/tmp/some/") == {"/tmp/some/directory"}


def test_verbs_and_options_are_offered(shell):
    verbs = shell.offered("quorcachepinctl")
    assert {"pin", "unpin", "keep-copy", "help"} <= verbs
    assert shell.offered("quorcachepinctl help") == verbs
    for verb in verbs:
        offered = shell.offered(f"quorcachepinctl {verb}", "-")
        assert {word for word in offered if word.startswith("-")} == options_of("quorcachepinctl", verb), verb


def test_the_options_of_the_cache_are_offered(shell):
    os.makedirs("/tmp/some/directory", exist_ok=True)
    assert shell.offered("quorsoftcache", "-") == options_of("quorsoftcache")
    assert shell.offered("quorsoftcache --backing", "/tmp/so") == {"/tmp/some"}
    assert shell.offered("quorsoftcache --mount", "/tmp/some/") == {"/tmp/some/directory"}
    assert shell.offered("quorsoftcache --name", "v") == set()
