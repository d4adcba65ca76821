#!/usr/bin/env python3
"""Runs clang-tidy on sources that have changed since they had no findings.

  tidy.py BUILD FOLDER...

BUILD is a configured build, and the FOLDERs contain its sources. A source without findings is recorded
in BUILD/tidied, and skipped until something changes that its findings depend on: the source, a header
of this project that it includes, its compile command, the checks, or clang-tidy itself. The exit status
is 1 if there are findings, or no sources at all.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def add_includes(source, folders, known):
    """Adds a source and all files of this project that it includes to the set `known`."""
    if source in known:
        return
    known.add(source)
    for name in INCLUDE.findall(source.read_text()):
        for folder in [source.parent, *folders]:
            header = (folder / name).resolve()
            if header.is_file():
                add_includes(header, folders, known)
                break


def state_of(entry, common):
    """A hash of everything that the findings in a source depend on."""
    folders = [pathlib.Path(folder) for folder in re.findall(r"-I(\S+)", entry["command"])]
    known = set()
    add_includes(pathlib.Path(entry["file"]).resolve(), folders, known)
    state = hashlib.sha256(common + entry["command"].encode())
    for path in sorted(known):
        state.update(path.as_posix().encode() + b"\0" + path.read_bytes() + b"\0")
    return state.hexdigest()


def options_of(entry):
    """The options of a compile command, without those that name its source and its output."""
    words = shlex.split(entry["command"])[1:]
    named = ("-o", "-c", "-MT", "-MF")
    return [
        word
        for before, word in zip(["", *words], words)
        if before not in named and word not in (*named, "-MD")
    ]


def groups_of(entries):
    """Groups sources of one folder and one target, the larger groups first."""
    together = {}
    for entry in entries:
        words = shlex.split(entry["command"])
        key = os.path.dirname(words[words.index("-o") + 1])
        together.setdefault(key, []).append(entry)
    return sorted(together.values(), key=len, reverse=True)


def run_clang_tidy(file, options):
    """Returns whether clang-tidy finds nothing in a source, and its output."""
    command = ["clang-tidy", "--quiet", file, "--", *options]
    run = subprocess.run(command, capture_output=True, text=True, check=False)
    # Without findings, standard error only has the number of findings suppressed in system headers.
    return run.returncode == 0, run.stdout + (run.stderr if run.returncode != 0 else "")


def analyse(group):
    """Returns each source of a group, with whether clang-tidy finds nothing in it and its output.

    The sources are analysed as one, so that their headers are gone through only once. What is found
    then may be due to that, as with a name that two of them have: only what is found in a source alone
    counts.
    """
    options = options_of(group[0])
    if len(group) > 1:
        with tempfile.NamedTemporaryFile("w", dir="src", suffix=".cpp") as together:
            for entry in group:
                together.write(f'#include "{entry["file"]}"  // NOLINT(bugprone-suspicious-include)\n')
            together.flush()
            clean, _ = run_clang_tidy(together.name, options)
        if clean:
            return [(entry["file"], True, "") for entry in group]
    return [(entry["file"], *run_clang_tidy(entry["file"], options)) for entry in group]


def main(build, *folders):
    version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
    common = version + pathlib.Path(".clang-tidy").read_bytes()
    notes = pathlib.Path(build) / "tidied"
    notes.mkdir(exist_ok=True)
    entries = json.loads((pathlib.Path(build) / "compile_commands.json").read_text())
    prefixes = tuple(os.path.join(os.getcwd(), folder, "") for folder in folders)
    entries = {entry["file"]: entry for entry in entries if entry["file"].startswith(prefixes)}
    states = {file: state_of(entry, common) for file, entry in entries.items()}
    new = [entry for file, entry in entries.items() if not (notes / states[file]).exists()]
    print(f"clang-tidy: {len(new)} of {len(entries)} sources", flush=True)
    failed = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = [pool.submit(analyse, group) for group in groups_of(new)]
        for run in concurrent.futures.as_completed(runs):
            for file, clean, text in run.result():
                if clean:
                    (notes / states[file]).touch()
                else:
                    failed = True
                    print(text, flush=True)
    return 1 if failed or not entries else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
