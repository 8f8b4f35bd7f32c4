# SPDX-License-Identifier: MIT
"""Where changes are tried out: copies of the sources, each with a build of its own."""
import concurrent.futures
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from changes import ROOT, apply

COPIED = ["CMakeLists.txt", "CMakePresets.json", "cmake", "platform", "util", "daemon",
          "tests/CMakeLists.txt", "tests/unit/CMakeLists.txt", "tests/unit/support", "tests/unit/util",
          "tests/unit/daemon"]
CLIENT = ["client", "tests/unit/client", "docs/man"]  # copied and built only for changes of the command
LEAST_SECONDS = 45  # for a test program; one that a change makes hang is caught, too
PATIENCE = 10       # times what the unchanged program took
FLAGS = ("-O0 -g0 -w -D_GLIBCXX_ASSERTIONS "  # and a byte beside an array is seen, as in the tests' sanitizer builds
         "-fsanitize=bounds-strict -fsanitize-undefined-trap-on-error")


def build_options(directory):
    """For CMake, and the environment. What makes it faster is taken where it is there; a compiler cache
    serves all workshops."""
    options = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"] if shutil.which("ld.lld") else []
    environment = dict(os.environ)
    if shutil.which("ccache"):
        options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        environment.update(CCACHE_BASEDIR=str(directory), CCACHE_NOHASHDIR="1")
    return options, environment


class Workshop:
    """A copy of the sources with a build of its own, in which one change at a time is tried.

    tests: the programs that the changes need; jobs: compilers at once for the first build.
    """

    def __init__(self, directory, tests, jobs):
        self.source = directory / "source"
        self.build = directory / "build"
        for name in COPIED + (CLIENT if "client_test" in tests else []):
            source, target = ROOT / name, self.source / name
            target.parent.mkdir(parents=True, exist_ok=True)
            if source.is_dir():
                shutil.copytree(source, target)
            elif source.exists():
                shutil.copy2(source, target)
        options, self.environment = build_options(directory)
        self.run_or_die("cmake", "-S", self.source, "-B", self.build, "-G", "Ninja",
                        "-DCMAKE_BUILD_TYPE=Debug", f"-DCMAKE_CXX_FLAGS={FLAGS}",
                        "--compile-no-warning-as-error", *options)
        self.run_or_die("ninja", "-C", self.build, f"-j{jobs}", *tests)
        self.seconds = dict.fromkeys(tests)  # each program's limit
        for test in tests:
            begin = time.monotonic()
            if not self.passes(test):
                sys.exit(f"mutate: {test} fails on the unchanged sources")
            self.seconds[test] = max(LEAST_SECONDS, PATIENCE * (time.monotonic() - begin))

    def run_or_die(self, *command):
        done = subprocess.run([str(c) for c in command], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, env=self.environment)
        if done.returncode != 0:
            sys.exit(f"mutate: {' '.join(map(str, command))}\n{done.stdout}{done.stderr}")

    def passes(self, test):
        """In a session of its own, so that nothing of it is left and its signals reach nobody."""
        program = next(p for p in self.build.rglob(test) if p.is_file())
        running = subprocess.Popen([program, "--gtest_fail_fast", "--gtest_brief=1"], cwd=self.build,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            return running.wait(self.seconds[test]) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(running.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            running.wait()

    def try_out(self, mutation):
        """Returns "caught", "SURVIVED", or what kept the change from being tried."""
        path = self.source / mutation.path
        original = path.read_text()
        try:
            path.write_text(apply(mutation, original))
        except ValueError as error:
            return f"STALE ({error})"
        try:
            for test in mutation.tests():
                built = subprocess.run(["ninja", "-C", self.build, "-j1", test], env=self.environment,
                                       stdin=subprocess.DEVNULL, capture_output=True)
                if b"static assertion failed" in built.stdout:
                    return "caught"
                if built.returncode != 0:
                    return "DOES NOT COMPILE"
                if not self.passes(test):
                    return "caught"
            return "SURVIVED"
        finally:
            path.write_text(original)


def try_all(mutations, jobs):
    """Tries them, several at once, and yields (change, outcome) as they come."""
    tests = sorted({test for mutation in mutations for test in mutation.tests()})
    with tempfile.TemporaryDirectory(prefix="mutate.") as directory:
        places = [pathlib.Path(directory) / str(job) for job in range(jobs)]
        untried = queue.Queue()
        for mutation in mutations:
            untried.put(mutation)
        tried = queue.Queue()

        def work(workshop):
            try:
                while True:
                    mutation = untried.get_nowait()
                    tried.put((mutation, workshop.try_out(mutation)))
            except queue.Empty:
                return

        # The first compiles for all of them, where there is a compiler cache, and works meanwhile.
        first = Workshop(places[0], tests, jobs)
        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            pool.submit(work, first)
            for place in places[1:]:
                pool.submit(lambda place=place: work(Workshop(place, tests, 1)))
            for _ in mutations:
                yield tried.get()
