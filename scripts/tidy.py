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
import subprocess
import sys

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


def analyse(build, file):
    """Returns whether clang-tidy finds nothing in a source, and its output."""
    command = ["clang-tidy", "--quiet", "-p", build, file]
    run = subprocess.run(command, capture_output=True, text=True, check=False)
    # Without findings, standard error only has the number of findings suppressed in system headers.
    return run.returncode == 0, run.stdout + (run.stderr if run.returncode != 0 else "")


def main(build, *folders):
    version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
    settings = [".clang-tidy", *sorted(pathlib.Path("src").rglob(".clang-tidy"))]
    common = version + b"".join(pathlib.Path(path).read_bytes() for path in settings)
    notes = pathlib.Path(build) / "tidied"
    notes.mkdir(exist_ok=True)
    entries = json.loads((pathlib.Path(build) / "compile_commands.json").read_text())
    prefixes = tuple(os.path.join(os.getcwd(), folder, "") for folder in folders)
    entries = {entry["file"]: entry for entry in entries if entry["file"].startswith(prefixes)}
    states = {file: state_of(entry, common) for file, entry in entries.items()}
    new = [file for file, state in states.items() if not (notes / state).exists()]
    print(f"clang-tidy: {len(new)} of {len(entries)} sources", flush=True)
    failed = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = {pool.submit(analyse, build, file): file for file in new}
        for run in concurrent.futures.as_completed(runs):
            clean, text = run.result()
            if clean:
                (notes / states[runs[run]]).touch()
            else:
                failed = True
                print(text, flush=True)
    return 1 if failed or not entries else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
