"""Runs the programs again and again, each time with one system call that fails.

  inject.py [--short] [--times N] [--only SCENARIO]... BIN

BIN is the folder of the built programs. A first run of each scenario under strace tells which calls
the program makes, and so does its child up to the start of its program; then each of these calls,
from its first to its fifth time in a process and after the loader's, fails with the errors that fit
it, once or from then on. Whatever fails,

- no task has other rights than its job says,
- the exit status tells no success that was none,
- nothing takes longer than ten seconds,
- no file is there by half, and
- no process is left behind.

With --times each call fails up to its Nth time. With --short the runs are a sample that takes less
than two minutes. The exit status is 1 where something of that does not hold, and each such case is a
line that tells which one it was.
"""

import argparse
import collections
import ctypes
import dataclasses
import multiprocessing
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

PATIENCE = 10  # seconds that a run may take
LOADED = 9  # times as long on a machine that does other work, before it is taken for one without end
GRACE = 10  # seconds that what it started may go on
SHORT = 100  # seconds for all runs of a sample
ROOT_JOB_ID = 61234  # user and group of the job where root runs this
UMASK = 0o027
PR_SET_CHILD_SUBREAPER = 36

# The errors that each call is made to fail with. A call that is not here fails with EIO.
ERRORS = {
    "access": ["EACCES"],
    "brk": ["ENOMEM"],
    "capget": ["EPERM"],
    "capset": ["EPERM"],
    "chdir": ["EACCES", "EIO"],
    "chmod": ["EPERM", "EIO"],
    "chown": ["EPERM"],
    "clone": ["EAGAIN", "ENOMEM"],
    "clone3": ["EAGAIN", "ENOSYS"],
    "close": ["EIO"],
    "close_range": ["ENOSYS"],
    "dup": ["EMFILE"],
    "dup2": ["EMFILE", "EBUSY"],
    "dup3": ["EMFILE", "EBUSY"],
    "execve": ["EACCES", "ENOMEM"],
    "faccessat": ["EACCES"],
    "faccessat2": ["EACCES"],
    "fchmod": ["EPERM", "EIO"],
    "fchown": ["EPERM"],
    "fcntl": ["EMFILE"],
    "fork": ["EAGAIN", "ENOMEM"],
    "fsync": ["EIO", "ENOSPC"],
    "ftruncate": ["EIO", "ENOSPC"],
    "getcwd": ["ENOENT"],
    "getdents64": ["EIO"],
    "getgroups": ["EINVAL"],
    "keyctl": ["ENOSYS", "EDQUOT"],
    "lseek": ["ESPIPE"],
    "link": ["EIO", "EEXIST"],
    "linkat": ["EIO", "EEXIST"],
    "memfd_create": ["EMFILE", "ENOMEM"],
    "mkdir": ["EACCES", "ENOSPC"],
    "mmap": ["ENOMEM"],
    "mprotect": ["ENOMEM"],
    "newfstatat": ["EIO", "ENOMEM"],
    "fstat": ["EIO"],
    "open": ["EMFILE", "EACCES"],
    "openat": ["EMFILE", "EACCES", "EIO"],
    "pipe": ["EMFILE"],
    "pipe2": ["EMFILE", "ENFILE"],
    "poll": ["ENOMEM"],
    "pread64": ["EIO"],
    "prctl": ["EINVAL"],
    "prlimit64": ["EPERM"],
    "pwrite64": ["EIO", "ENOSPC"],
    "read": ["EIO"],
    "readlink": ["EACCES"],
    "readlinkat": ["EACCES"],
    "recvfrom": ["ENOMEM"],
    "recvmsg": ["ENOMEM"],
    "rename": ["EIO", "ENOSPC"],
    "renameat2": ["EIO", "EINVAL"],
    "seccomp": ["EPERM"],
    "sendmsg": ["ENOBUFS"],
    "sendto": ["ENOBUFS"],
    "setgid": ["EPERM", "EAGAIN"],
    "setgroups": ["EPERM", "ENOMEM"],
    "setpgid": ["EPERM"],
    "setresgid": ["EPERM"],
    "setresuid": ["EPERM", "EAGAIN"],
    "setsid": ["EPERM"],
    "setuid": ["EPERM", "EAGAIN"],
    "signalfd4": ["EMFILE"],
    "socket": ["EMFILE"],
    "socketpair": ["EMFILE"],
    "connect": ["ECONNREFUSED"],
    "stat": ["EACCES"],
    "statx": ["EIO"],
    "unlink": ["EPERM"],
    "vfork": ["EAGAIN", "ENOMEM"],
    "wait4": ["ECHILD"],
    "waitid": ["ECHILD"],
    "write": ["EIO", "ENOSPC"],
    "writev": ["EIO"],
}

# Errors for want of something that hardly is there again at the next call: these also last.
LASTING = {"EAGAIN", "EMFILE", "ENFILE", "ENOMEM", "ENOSPC"}

# Calls that cannot fail, that only go wrong by an argument, whose failure the kernel itself mends by
# starting them again, or that are of the loader and the C library and do nothing outside of them.
LEFT_OUT = {
    "arch_prctl", "clock_gettime", "clock_nanosleep", "exit", "exit_group", "futex", "getegid",
    "geteuid", "getgid", "getpgrp", "getpid", "getppid", "getrandom", "gettid", "getuid", "ioctl",
    "kill", "madvise", "munmap", "rseq", "rt_sigaction", "rt_sigpending", "rt_sigprocmask",
    "rt_sigreturn", "rt_sigtimedwait", "sched_getaffinity", "set_robust_list", "set_tid_address",
    "sigaltstack", "sysinfo", "tgkill", "umask", "uname",
}

# Signals by which the process may end where a call fails. Without memory the C library ends it before
# `main` begins, or the C++ library later on.
MAY_END_BY = {
    "brk": {signal.SIGABRT, signal.SIGSEGV},
    "mmap": {signal.SIGABRT, signal.SIGSEGV},
    "mprotect": {signal.SIGABRT, signal.SIGSEGV},
}

TASK = r"""#!/bin/sh
/bin/grep -E '^(Uid|Gid|Groups|Umask):' /proc/self/status > report.$1
"""

ENGINE = r"""#!/bin/sh
me=${0##*/}
echo x >> "${0%/*}/../calls/$me"
[ "$me" != sbatch ] || { /bin/cat > /dev/null; echo 12; }
[ "$me" != scontrol ] || echo "MaxArraySize = ${MAX_ARRAY_SIZE:-1001}"
"""


class Scene:
    """A folder with a job of two tasks, and programs in place of Slurm's."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="inject-"))
        self.folder.chmod(0o755)
        self.work = self.make_folder("work", 0o777)
        self.calls = self.make_folder("calls", 0o777)
        self.engine = self.make_folder("engine", 0o755)
        self.write(self.work / "task", TASK)
        for name in ("sbatch", "scontrol", "scancel", "squeue", "sacct"):
            self.write(self.engine / name, ENGINE)
        self.job = self.folder / "job.xml"
        self.write(self.job, self.job_text())
        self.former = "what was there before\n"
        self.write(self.work / "old.xml", self.former)

    def make_folder(self, name, mode):
        folder = self.folder / name
        folder.mkdir()
        folder.chmod(mode)
        return folder

    @staticmethod
    def write(path, text):
        path.write_text(text)
        path.chmod(0o755)

    def job_text(self):
        uid, gid = job_ids()
        return f"""<Job><cmdData>
<Arguments>{{{self.work}/task %tn}}</Arguments>
<WorkingFolder>{self.work}</WorkingFolder><LogFolder>{self.work}</LogFolder>
<TaskTimeout>30</TaskTimeout><uid>{uid}</uid><gid>{gid}</gid><umask>{UMASK}</umask>
<TaskList><Task><Params>{{a}}</Params></Task><Task><Params>{{b}}</Params></Task></TaskList>
<JobParams></JobParams></cmdData></Job>
"""

    def text(self, path):
        return path.read_text() if path.exists() else None

    def report(self, task):
        return self.text(self.work / f"report.{task}")

    def call_count(self, program):
        return len(self.text(self.calls / program) or "") // 2

    def files(self):
        return {str(path.relative_to(self.folder)) for path in self.folder.rglob("*")}

    def remove(self):
        shutil.rmtree(self.folder)


@dataclasses.dataclass
class Outcome:
    status: int  # as subprocess has it; None = the run took too long
    output: str
    error: str
    files: set
    reports: dict
    new_job: str
    old_job: str
    calls: dict
    injected: bool
    left: int  # processes that outlived the run
    is_mute: bool = False  # whether it could write nothing from some time on


@dataclasses.dataclass
class Scenario:
    name: str
    arguments: list  # a function of the scene in place of a text yields one
    is_success: callable  # of the outcome and that without a fault: whether status 0 is right
    becomes_program: bool = False  # is itself the task in the end
    is_complete: callable = lambda outcome, sound: None  # a complaint whatever the status is
    environment: dict = dataclasses.field(default_factory=dict)


def job_ids():
    return (ROOT_JOB_ID, ROOT_JOB_ID) if os.geteuid() == 0 else (os.geteuid(), os.getegid())


def has_all_reports(outcome, sound):
    return outcome.reports == sound.reports


def has_all_or_a_reason(outcome, sound):
    return has_all_reports(outcome, sound) or outcome.error != ""


def has_no_other_output(outcome, sound):
    # Whether the server can be told has no bearing on the adapter's status.
    return outcome.output in (sound.output, "")


def has_new_job(outcome, sound):
    return outcome.new_job == sound.new_job


def has_old_job_replaced(outcome, sound):
    return outcome.old_job == sound.old_job


def has_all_arrays(outcome, sound):
    # Without an answer about the greatest array the job may be one that is not in parts.
    return outcome.calls["sbatch"] > 0 and outcome.output == "12\n" * outcome.calls["sbatch"]


def half_new_job(outcome, sound):
    return None if outcome.new_job in (None, sound.new_job) else "a job file by half"


def half_old_job(outcome, sound):
    whole = ("what was there before\n", sound.old_job)
    return None if outcome.old_job in whole else "neither the old job file nor the new one"


def array_that_nobody_knows(outcome, sound):
    if outcome.calls["sbatch"] > sound.calls["sbatch"]:
        return "submitted twice"
    is_known = outcome.status == 0 or outcome.calls["scancel"] > 0
    is_told = re.search("an array may be queued|queued: 12|array 12 is left", outcome.error)
    if outcome.calls["sbatch"] == 0 or is_known or is_told or outcome.is_mute:
        return None
    return "an array that nobody is told of"


ADAPTER = "UserRunletAdapter"
TOOL = "runlet-job"


def job(scene):
    return str(scene.job)


def in_work(name):
    return lambda scene: str(scene.work / name)


MAKE = ["--frames", "1-3", "--timeout", "5", "--", "/bin/echo", "%tp1"]

SCENARIOS = [
    Scenario("GetInfo", [ADAPTER, "-o", "GetInfo"], has_no_other_output),
    Scenario("NewTask", [ADAPTER, "-o", "NewTask", "-j", job, "-s", "1", "-n", "2"],
             has_all_or_a_reason),
    Scenario("PingTask", [ADAPTER, "-o", "PingTask", "-j", job, "-e", "1800001"],
             lambda outcome, sound: False),
    Scenario("exec", [TOOL, "exec", job, "--task", "1"], has_all_reports, becomes_program=True),
    Scenario("make", [TOOL, "make", "-o", in_work("new.xml"), *MAKE], has_new_job,
             is_complete=half_new_job),
    Scenario("make over a file", [TOOL, "make", "-o", in_work("old.xml"), *MAKE],
             has_old_job_replaced, is_complete=half_old_job),
    Scenario("run", [TOOL, "run", job, "--jobs", "2"], has_all_reports),
    Scenario("submit", [TOOL, "submit", job], has_all_arrays, is_complete=array_that_nobody_knows),
    Scenario("submit in parts", [TOOL, "submit", job], has_all_arrays,
             is_complete=array_that_nobody_knows, environment={"MAX_ARRAY_SIZE": "2"}),
]


@dataclasses.dataclass(frozen=True)
class Case:
    scenario: str
    call: str
    when: str  # which of the calls, as strace has it
    error: str

    def __str__(self):
        return f"{self.scenario}: {self.call}:error={self.error}:when={self.when}"


def scenario_of(name):
    return next(each for each in SCENARIOS if each.name == name)


def command_of(scenario, scene, folder, log, inject):
    words = [word(scene) if callable(word) else word for word in scenario.arguments]
    strace = ["strace", "-qq", "-o", log]
    if not scenario.becomes_program:
        strace += ["-f", "-b", "execve"]
    return [*strace, *inject, str(folder / words[0]), *words[1:]]


def reap(patience):
    """Waits for processes that the run left, and ends them. Yields how many outlived the time."""
    deadline = time.monotonic() + patience
    while True:
        try:
            pid, _ = os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return 0
        if pid == 0 and time.monotonic() > deadline:
            break
        if pid == 0:
            time.sleep(0.01)
    return end_children()


def children():
    found = []
    for status in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = status.read_text().rsplit(")", 1)[1].split()
        except OSError:
            continue
        if int(fields[1]) == os.getpid():
            found.append(int(status.parent.name))
    return found


def end_children():
    """Those of this process alone, until there are none; theirs become its own."""
    count = 0
    while pids := children():
        for pid in pids:
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
        count += len(pids)
    return count


def run(scenario, folder, inject=(), patience=PATIENCE):
    """Yields the outcome and the text of the trace."""
    scene = Scene()
    try:
        log = str(scene.folder / "trace")
        environment = {"PATH": f"{scene.engine}:/usr/bin:/bin", "LC_ALL": "C",
                       **scenario.environment}
        process = subprocess.Popen(
            command_of(scenario, scene, folder, log, inject), cwd=scene.work, env=environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            errors="replace", start_new_session=True)
        try:
            output, error = process.communicate(timeout=patience)
            status = process.returncode
        except subprocess.TimeoutExpired:
            process.kill()
            end_children()
            output, error = process.communicate()
            status = None
        left = reap(GRACE)
        trace = scene.text(pathlib.Path(log)) or ""
        outcome = Outcome(
            status, output, error, scene.files(), {n: scene.report(n) for n in (1, 2)},
            scene.text(scene.work / "new.xml"), scene.text(scene.work / "old.xml"),
            {name: scene.call_count(name) for name in ("sbatch", "scancel")},
            "(INJECTED)" in trace, left)
        return outcome, trace
    finally:
        scene.remove()


def calls_of(trace):
    """The calls of each process in their order."""
    calls = collections.defaultdict(list)
    for process, call in re.findall(r"^(\d+\s+)?(\w+)\(", trace, re.MULTILINE):
        calls[process].append(call)
    return list(calls.values())


def numbers_of(call, processes, most):
    """Which of the calls are to fail: each process counts its own, the first one the loader's, too."""
    first = processes[0]
    loaded = first.index("munmap") if "munmap" in first else 0
    offset = first[:loaded].count(call)
    count = max(calls.count(call) for calls in processes)
    numbers = {*range(1, most + 1), *range(offset + 1, offset + most + 1)}
    return count, sorted(number for number in numbers if number <= count)


def cases_of(scenario, trace, most):
    if scenario.becomes_program:
        # What comes after is the task, whose failures are its own.
        trace = trace[:trace.rindex("/task")]
    processes = calls_of(trace)
    cases = []
    for call in sorted(set().union(*processes) - LEFT_OUT):
        count, numbers = numbers_of(call, processes, most)
        for number in numbers:
            # The first execve is the start of the program itself, and strace lets go at any other
            # unless the program is to become the task.
            if call == "execve" and not (scenario.becomes_program and number > 1):
                continue
            for error in ERRORS.get(call, ["EIO"]):
                cases.append(Case(scenario.name, call, str(number), error))
                if error in LASTING:
                    last = f"..{count}+" if scenario.becomes_program else "+"
                    cases.append(Case(scenario.name, call, f"{number}{last}", error))
    return cases


def rights_complaint(outcome, sound):
    uid, gid = job_ids()
    for task, report in outcome.reports.items():
        if report is None:
            continue
        if report != next(filter(None, sound.reports.values())):
            return f"task {task} had other rights: {report!r}"
        ids = f"Uid:\t{uid}\t{uid}\t{uid}\t{uid}\nGid:\t{gid}\t{gid}\t{gid}\t{gid}\n"
        if f"Umask:\t{UMASK:04o}\n" not in report or ids not in report:
            return f"task {task} had other rights than its job says: {report!r}"
    return None


def complaints(case, outcome, sound):
    scenario = scenario_of(case.scenario)
    if outcome.status is None:
        yield f"took longer than {PATIENCE} s"
        return
    if outcome.left > 0:
        yield f"left {outcome.left} processes"
    if complaint := rights_complaint(outcome, sound):
        yield complaint
    if outcome.status == 0 and not scenario.is_success(outcome, sound):
        yield "told a success that was none"
    if complaint := scenario.is_complete(outcome, sound):
        yield complaint
    if outcome.status < 0 and -outcome.status not in MAY_END_BY.get(case.call, ()):
        yield f"ended by signal {-outcome.status}"
    if case.call != "unlink" and (extra := {name for name in outcome.files - sound.files
                                            if not name.startswith("calls/")}):
        yield f"left the files {sorted(extra)}"


sounds = {}  # by scenario, what comes out of it without a fault
programs = None  # the folder of them
deadline = None  # for the start of a run


def be_worker(*values):
    global programs, deadline
    programs, deadline, found = values
    sounds.update(found)
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def try_case(case):
    """Yields the case, what is to be said about it, and whether the fault happened."""
    if time.monotonic() > deadline:
        return case, [], False
    inject = ["-e", f"inject={case.call}:error={case.error}:when={case.when}"]
    outcome, _ = run(scenario_of(case.scenario), programs, inject)
    if outcome.status is None:
        outcome, _ = run(scenario_of(case.scenario), programs, inject, PATIENCE * LOADED)
    outcome.is_mute = case.call == "write" and case.when.endswith("+")
    found = list(complaints(case, outcome, sounds[case.scenario]))
    detail = f" (status {outcome.status}, said {outcome.error!r})" if found else ""
    return case, [complaint + detail for complaint in found], outcome.injected


def first_runs(names, folder, most):
    """All cases of these scenarios."""
    cases = []
    for name in names:
        scenario = scenario_of(name)
        sound, trace = run(scenario, folder)
        sounds[name] = sound
        # Where this holds, the scenario is one that can show something.
        if (sound.status == 0) != scenario.is_success(sound, sound):
            sys.exit(f"{name} does not work without a fault: {sound}")
        if sound.left > 0 or (complaint := rights_complaint(sound, sound)):
            sys.exit(f"{name} without a fault: {complaint}")
        cases += cases_of(scenario, trace, most)
    return cases


def options_of(arguments):
    parser = argparse.ArgumentParser()
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--times", type=int, default=5)
    parser.add_argument("--only", choices=[each.name for each in SCENARIOS], action="append")
    parser.add_argument("programs", type=pathlib.Path)
    return parser.parse_args(arguments)




def main(arguments):
    options = options_of(arguments)
    folder = options.programs.resolve()
    latest = time.monotonic() + SHORT if options.short else float("inf")
    names = options.only or [each.name for each in SCENARIOS]
    cases = first_runs(names, folder, options.times)
    if options.short:
        random.Random(len(cases)).shuffle(cases)
    done = failed = 0
    with multiprocessing.Pool(os.cpu_count(), be_worker, (folder, latest, sounds)) as pool:
        for case, found, is_injected in pool.imap_unordered(try_case, cases):
            done += is_injected
            failed += bool(found)
            for complaint in found:
                print(f"{case}: {complaint}", flush=True)
    print(f"{done} of {len(cases)} faults, {failed} not borne")
    return 1 if failed > 0 or done == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
