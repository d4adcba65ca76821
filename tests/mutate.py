"""Checks whether the tests notice small changes to the adapter.

  mutate.py [-v] [--only TEXT] N

Tries N changes, one at a time, in a copy of the project in build-mutants. Each changes an operator, a
constant or a statement in src/adapter, src/exec, src/job or src/xml. With --only these are the first N
in files whose paths contain the text. The changes and their order are the same every time.

Each change is built and tested until a test fails: first the unit tests, then those with real
processes, then those with a model. A change that no test notices is a failure unless tests/mutants has
a reason for it. So is an entry there that is no longer one of the changes, or that a test notices.

Results are kept in build-mutants/results. A change is not tried again while its file is the same,
unless no test noticed it.
"""

import argparse
import dataclasses
import hashlib
import json
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import time

FOLDERS = ["src/adapter", "src/exec", "src/job", "src/xml"]
WORK = pathlib.Path("build-mutants")
COPY = WORK / "project"
BUILD = WORK / "build"
RESULTS = WORK / "results"
REASONS = pathlib.Path("tests/mutants")

# Patterns in the code, in which texts and comments are blank, and what replaces them.
CHANGES = [
    (r" == ", " != "), (r" != ", " == "),
    (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "),
    (r" < ", " > "), (r" > ", " < "),
    (r" && ", " || "), (r" \|\| ", " && "),
    (r" \+ ", " - "), (r" - ", " + "), (r" \* (?=\w)", " / "), (r" / ", " * "), (r" % ", " / "),
    (r" \+= ", " -= "), (r" -= ", " += "), (r"\+\+", "--"), (r"--(?=\w)", "++"),
    (r" & ", " | "), (r" \| ", " & "), (r" << ", " >> "), (r" >> ", " << "),
    (r"(?<=[(\s])!(?=[\w(])", ""),
    (r"\btrue\b", "false"), (r"\bfalse\b", "true"),
    (r"\bbreak;", "continue;"), (r"\bcontinue;", "break;"),
    (r"(?<![\w.'])\d+(?![\w.'])", lambda text: str(int(text, 8 if text[0] == "0" else 10) + 1)),
    (r"(?<![\w.'])[1-9]\d*(?![\w.'])", lambda text: str(int(text) - 1)),
    (r"(?<=\w)'[^'\\]'", lambda text: "'!'"),
    (r"^ +(?!return|break|continue|using|const\b|case\b)[\w:.*>()\-]*[\w\])] ?(?:\(|[+\-|&]?= ).*;$",
     lambda text: re.match(" +", text).group() + ";"),
]  # fmt: skip


@dataclasses.dataclass(frozen=True)
class Mutant:
    """A change of one line; `nth` counts identical changes in the file, from 0."""

    file: str
    line: int  # from 0
    old: str
    new: str
    nth: int

    def key(self):
        return (self.file, self.old.strip(), self.new.strip(), self.nth)

    def __str__(self):
        nth = f" ({self.nth + 1})" if self.nth else ""
        return f"{self.file}{nth}\n- {self.old.strip()}\n+ {self.new.strip()}"


def code_of(text):
    """The text with comments, texts in quotes and directives replaced by blanks."""

    def blank(match):
        found = match.group()
        if found[0] == "'":
            return found
        return re.sub(r"[^\n]", " ", found) if found[0] != '"' else '"' + " " * (len(found) - 2) + '"'

    form = r"//[^\n]*|/\*.*?\*/|R\"\((?:.|\n)*?\)\"|\"(?:\\.|[^\"\\\n])*\"|'(?:\\.|[^'\\\n])'|^#[^\n]*"
    return re.sub(form, blank, text, flags=re.MULTILINE | re.DOTALL)


def negations(line, code):
    """The line with a condition negated, for each condition that has no comparison."""
    for match in re.finditer(r"\b(?:if|while) \((?!!)", code):
        begin, depth = match.end(), 1
        for end in range(begin, len(code)):
            depth += {"(": 1, ")": -1}.get(code[end], 0)
            if depth == 0:
                if not re.search(r" (==|!=|<|>|<=|>=|&&|\|\|) ", code[begin:end]):
                    yield f"{line[:begin]}!({line[begin:end]}){line[end:]}"
                break


def mutants_of(file):
    """All changes of a file."""
    text = pathlib.Path(file).read_text()
    lines, codes = text.split("\n"), code_of(text).split("\n")
    seen = {}
    for number, (line, code) in enumerate(zip(lines, codes)):
        news = []
        for form, other in CHANGES:
            for match in re.finditer(form, code):
                begin, end = match.span()
                new = other(line[begin:end]) if callable(other) else other
                news.append(line[:begin] + new + line[end:])
        news += negations(line, code)
        for new in dict.fromkeys(news):
            if new == line:
                continue
            nth = seen.setdefault((line.strip(), new.strip()), [])
            nth.append(number)
            yield Mutant(file, number, line, new, len(nth) - 1)


def all_mutants(part):
    files = sorted(str(path) for folder in FOLDERS for path in pathlib.Path(folder).iterdir())
    mutants = [mutant for file in files if part in file for mutant in mutants_of(file)]
    random.Random(1).shuffle(mutants)
    return mutants


def reasons():
    """The reasons in tests/mutants, by change."""
    found = {}
    for block in re.split(r"\n\n+", REASONS.read_text()):
        lines = [line for line in block.split("\n") if line and not line.startswith("#")]
        if not lines:
            continue
        match = re.fullmatch(r"(\S+)(?: \((\d+)\))?", lines[0])
        if len(lines) < 4 or not match or lines[1][:2] != "- " or lines[2][:2] not in ("+ ", "+"):
            sys.exit(f"{REASONS}: not an entry:\n{block}")
        nth = int(match[2] or 1) - 1
        found[(match[1], lines[1][2:], lines[2][2:], nth)] = " ".join(lines[3:])
    return found


def update(path, content):
    """Writes a file only if its content changes, so that nothing else is built again. Returns whether
    it did."""
    if not path.exists() or path.read_bytes() != content:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        return True
    return False


def make_copy():
    listed = subprocess.run(["git", "ls-files", "-z"], capture_output=True, check=True).stdout
    for name in listed.decode().split("\0")[:-1]:
        source = pathlib.Path(name)
        if source.is_file():
            update(COPY / name, source.read_bytes())
            (COPY / name).chmod(source.stat().st_mode)


def build(*targets):
    """Returns whether the build succeeded, and its output."""
    run = subprocess.run(["cmake", "--build", BUILD, "--target", *targets],
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return run.returncode == 0, run.stdout


def configure():
    command = ["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
               "-DCMAKE_CXX_FLAGS_DEBUG=-O0"]
    run = subprocess.run(command, capture_output=True, text=True, check=False)
    if run.returncode != 0:
        sys.exit(run.stdout + run.stderr)
    is_built, text = build("UserRunletAdapter", *{suite.program for suite in SUITES})
    if not is_built:
        sys.exit(text)


# Runs a command with its own mounts and processes: it can write to the whole system, but what it writes
# is discarded. Only the folder of the build and /tmp are the real ones.
ISOLATED = """
set -e
place=$1 work=$2
shift 2
mount -t tmpfs tmpfs "$place"
mkdir "$place/upper" "$place/work" "$place/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$place/upper,workdir=$place/work" "$place/root"
mount --rbind /dev "$place/root/dev"
mount --rbind /sys "$place/root/sys"
mount -t proc proc "$place/root/proc"
mount --bind /tmp "$place/root/tmp"
mount --bind "$work" "$place/root$work"
cd "$work"
exec chroot "$place/root" "$@"
"""


def start_isolated(command, environment):
    place = WORK.resolve() / "apart"
    place.mkdir(exist_ok=True)
    whole = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--propagation", "private",
             "sh", "-c", ISOLATED, "sh", place, WORK.resolve(), *command]
    return subprocess.Popen(whole, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, env={**os.environ, **environment},
                            start_new_session=True)


@dataclasses.dataclass
class Suite:
    """Some tests of a program."""

    program: str
    patience: int  # time limit in seconds
    options: list  # of CTest, which select the tests
    environment: dict = dataclasses.field(default_factory=dict)


LENGTHY = "Random|ParameterFile.RefusesTooMany|^HostileJobFile"
SUITES = [
    Suite("runlet_unit_tests", 60, ["-L", "^unit$", "-E", LENGTHY]),
    Suite("runlet_process_tests", 300, ["-L", "^process$", "-E", LENGTHY]),
    Suite("runlet_unit_tests", 300, ["-L", "^unit$", "-R", LENGTHY]),
    Suite("runlet_process_tests", 300, ["-L", "^process$", "-R", LENGTHY]),
    Suite("runlet_model_tests", 300, ["-L", "^model$"], {"RUNLET_TEST_CASES": "3000"}),
]


def failure_of(suite):
    """Runs the tests. Returns the name of one that fails, that they take too long, or None."""
    command = ["ctest", "--test-dir", BUILD.resolve(), "--stop-on-failure", "--timeout", "60",
               "--parallel", str(2 * os.cpu_count()), *suite.options]
    run = start_isolated(command, suite.environment)
    try:
        text, _ = run.communicate(timeout=suite.patience)
    except subprocess.TimeoutExpired:
        os.killpg(run.pid, signal.SIGKILL)
        run.communicate()
        return "takes too long"
    failed = re.search(rb"The following tests FAILED:\s+\d+ - (\S+)", text)
    if run.returncode == 0:
        return None
    return failed[1].decode() if failed else text.decode(errors="replace")[-200:]


def verdict():
    """Builds and tests the copy of the project. Returns the first failure, or None."""
    for suite in SUITES:
        is_built, _ = build(suite.program, "UserRunletAdapter")
        if not is_built:
            return "does not compile"
        failure = failure_of(suite)
        if failure is not None:
            return f"{suite.program}: {failure}"
    return None


def attempt(mutant):
    path = COPY / mutant.file
    original = pathlib.Path(mutant.file).read_bytes()
    lines = original.decode().split("\n")
    lines[mutant.line] = mutant.new
    update(path, "\n".join(lines).encode())
    try:
        return verdict()
    finally:
        update(path, original)


def identity(mutant):
    content = pathlib.Path(mutant.file).read_bytes()
    return hashlib.sha256(content + repr(mutant).encode()).hexdigest()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("-v", "--verbose", action="store_true")
    parser.add_argument("--only", default="")
    parser.add_argument("count", type=int)
    options = parser.parse_args()

    known = reasons()
    mutants = all_mutants(options.only)
    existing = {mutant.key() for mutant in all_mutants("")}
    problems = [f"{REASONS}: no longer one of the changes: {key}"
                for key in known if key not in existing]

    begin = time.monotonic()
    WORK.mkdir(exist_ok=True)
    make_copy()
    configure()
    failure = verdict()
    if failure is not None:
        sys.exit(f"fails without any change: {failure}")
    print(f"{len(mutants)} changes, {min(options.count, len(mutants))} to be tried; "
          f"ready after {time.monotonic() - begin:.0f} s", flush=True)

    results = {}
    if RESULTS.exists():
        results = dict(json.loads(line) for line in RESULTS.read_text().splitlines())
    counts = {"noticed": 0, "listed": 0, "not noticed": 0, "not compiled": 0}
    with RESULTS.open("a") as notes:
        for number, mutant in enumerate(mutants[: options.count]):
            started = time.monotonic()
            result = results.get(identity(mutant))
            if result is None:
                result = attempt(mutant)
                if result is not None:
                    notes.write(json.dumps([identity(mutant), result]) + "\n")
                    notes.flush()
            listed = mutant.key() in known
            if result is None:
                kind = "listed" if listed else "not noticed"
            elif result == "does not compile":
                kind = "not compiled"
            else:
                kind = "noticed"
            counts[kind] += 1
            if listed and kind != "listed":
                problems.append(f"{REASONS}: listed, but {result}:\n{mutant}")
            if kind == "not noticed" or options.verbose:
                print(f"\n{mutant}\n{kind}: {result} "
                      f"({number + 1}, {time.monotonic() - started:.1f} s)", flush=True)
    print("\n" + "\n".join(problems))
    print(", ".join(f"{count} {kind}" for kind, count in counts.items()),
          f"after {time.monotonic() - begin:.0f} s")
    return 1 if problems or counts["not noticed"] else 0


if __name__ == "__main__":
    sys.exit(main())
