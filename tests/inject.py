"""Runs the programs repeatedly, each time with one failing system call.

  inject.py [--short] [--times N] [--only SCENARIO]... BIN

BIN is the folder of the built programs. A first run of each scenario under strace records the calls
of the program, and of its child up to the exec of the task; then each of these calls, from its
first to its fifth time in a process and not counting the loader's, fails with suitable errors, once
or permanently. Whatever fails,

- no task has other rights than its job says,
- the exit status never reports success after a failure,
- nothing takes longer than ten seconds, unless it does so without the fault, too,
- no file is incomplete, and
- no process is left behind, not even of tasks that would run for a minute.

With --times each call fails up to its Nth time. With --short a sample is run that takes at most two
minutes. The exit status is 1 if any of that does not hold, and each such case is reported.
"""

import argparse
import collections
import contextlib
import ctypes
import dataclasses
import fcntl
import multiprocessing
import os
import pathlib
import pty
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import time

PATIENCE = 10  # time limit of a run, in seconds
LOADED = 9  # factor for the time limit on a loaded machine
GRACE = 10  # seconds until its child processes must have ended
SLEEP = 60  # seconds that an endless task sleeps
SHORT = 100  # seconds for the whole sample
ROOT_JOB_ID = 61234  # user and group of the job if root runs this
UMASK = 0o027
PR_SET_CHILD_SUBREAPER = 36

# The errors that each call is made to fail with. A call not listed fails with EIO.
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
    "waitid": ["ECHILD", "EPERM"],
    "write": ["EIO", "ENOSPC"],
    "writev": ["EIO"],
}

# Errors from a lack of resources, which usually persist: these are also injected permanently.
LASTING = {"EAGAIN", "EMFILE", "ENFILE", "ENOMEM", "ENOSPC"}

# Calls that cannot fail, that only fail on bad arguments, that the kernel restarts itself, or that
# belong to the loader and the C library and have no effect outside them.
LEFT_OUT = {
    "arch_prctl", "clock_gettime", "clock_nanosleep", "exit", "exit_group", "futex", "getegid",
    "geteuid", "getgid", "getpgrp", "getpid", "getppid", "getrandom", "gettid", "getuid", "ioctl",
    "kill", "madvise", "munmap", "rseq", "rt_sigaction", "rt_sigpending", "rt_sigprocmask",
    "rt_sigreturn", "rt_sigtimedwait", "sched_getaffinity", "set_robust_list", "set_tid_address",
    "sigaltstack", "sysinfo", "tgkill", "umask", "uname",
}

STARTED_TASK = r'execve\("[^"]*/task".* = 0\n'  # in the trace

# The report is written with one call, so that a killed task has written none.
TASK = r"""#!/bin/sh
terminals=
for stream in 0 1 2; do [ ! -t $stream ] || terminals="$terminals $stream"; done
(: > /dev/tty) 2> /dev/null && terminals="$terminals controlling"
rights=$(/bin/grep -E '^(Uid|Gid|Groups|Umask|Cap(Inh|Prm|Eff|Amb)):' /proc/self/status)
printf '%s\nTerminals:%s\n' "$rights" "$terminals" > report.$1
"""

SLEEPING = f"""echo > ../calls/asleep.$1
/bin/sleep {SLEEP} &
exec /bin/sleep {SLEEP}
"""

SLURM_PROGRAM = r"""#!/bin/sh
me=${0##*/}
calls=${0%/*}/../calls
echo x >> "$calls/$me"
for word do
  case $word in --array=*) echo "$word" >> "$calls/arrays" ;; esac
done
case "$me $*" in
  sbatch*) /bin/cat > /dev/null; echo 12 ;;
  scontrol*) echo "MaxArraySize = ${MAX_ARRAY_SIZE:-1001}" ;;
  squeue*Comment*) echo "$COMMENT" ;;
  squeue*) printf '%b' "$STATES" ;;
esac
"""


# In the name of the folder for the logs of a batch.
BATCH_ID = re.compile(r"-\d{8}-\d{6}-[0-9a-f]{4}")


class Scene:
    """A folder with a job of two tasks, and programs that replace Slurm's."""

    def __init__(self, scenario):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="inject-"))
        self.folder.chmod(0o755)
        self.work = self.make_folder("work", 0o777)
        self.calls = self.make_folder("calls", 0o777)
        self.slurm = self.make_folder("slurm", 0o755)
        self.application = self.make_folder("application", 0o755)
        self.write(self.work / "task", TASK + (SLEEPING if scenario.sleeps else ""))
        self.write(self.application / "task", TASK, 0o644)
        for name in ("sbatch", "scontrol", "scancel", "squeue", "sacct"):
            self.write(self.slurm / name, SLURM_PROGRAM)
        self.job = self.folder / "job.xml"
        self.write(self.job, self.job_text(scenario.command or f"{self.work}/task"))
        self.write(self.work / "job-chunk-0.log", self.end_lines())
        self.write(self.work / "tasks", "a\nb\n")
        self.write(self.work / "1.made", "")
        self.former = "what was there before\n"
        self.write(self.work / "old.xml", self.former)

    def make_folder(self, name, mode):
        folder = self.folder / name
        folder.mkdir()
        folder.chmod(mode)
        return folder

    @staticmethod
    def write(path, text, mode=0o755):
        path.write_text(text)
        path.chmod(mode)

    def job_text(self, command):
        uid, gid = job_ids()
        return f"""<Job><cmdData>
<Arguments>{{{command} %tn}}</Arguments>
<WorkingFolder>{self.work}</WorkingFolder><LogFolder>{self.work}</LogFolder>
<TaskTimeout>30</TaskTimeout><uid>{uid}</uid><gid>{gid}</gid><umask>{UMASK}</umask>
<TaskList><Task><Params>{{a}}</Params></Task><Task><Params>{{b}}</Params></Task></TaskList>
<JobParams></JobParams></cmdData></Job>
"""

    def job_hash(self):
        """The hash that identifies a job file in Slurm's records: FNV-1a of its path."""
        value = 0xcbf29ce484222325
        for byte in str(self.job).encode():
            value = (value ^ byte) * 0x100000001b3 % 2**64
        return f"{value:016x}"

    def end_lines(self):
        """The log of a chunk whose second task failed."""
        label = f"runlet-job-ends {self.job_hash()}:12_0"
        return f"{label} succeeded 0 1\n{label} failed 3 2\n"

    def text(self, path):
        return path.read_text() if path.exists() else None

    def report(self, task):
        return self.text(self.work / f"report.{task}")

    def prepare_resumption(self):
        """Removes what tasks have left, and makes what the second one had to make."""
        for task in (1, 2):
            (self.work / f"report.{task}").unlink(missing_ok=True)
        self.write(self.work / "2.made", "")

    def call_count(self, program):
        return len(self.text(self.calls / program) or "") // 2

    def files(self):
        paths = (str(path.relative_to(self.folder)) for path in self.folder.rglob("*"))
        return {BATCH_ID.sub("-ID", path) for path in paths}

    def remove(self):
        shutil.rmtree(self.folder)


@dataclasses.dataclass
class Outcome:
    status: int  # as in subprocess; None = the run took too long
    output: str
    error: str
    files: set
    reports: dict
    new_job: str
    old_job: str
    calls: dict
    arrays: str  # the elements of all submitted arrays
    seconds: float  # duration of the run
    is_task: bool  # whether the process became the task
    injected: bool
    left: int  # processes that outlived the run
    after: int = 0  # the exit status of the scenario's command `after`
    is_mute: bool = False  # whether all writes failed from some point on


@dataclasses.dataclass
class Scenario:
    name: str
    arguments: list  # texts, or functions that return one for a scene, here and below
    is_success: callable  # (outcome, baseline = outcome without a fault): whether status 0 is right
    becomes_program: bool = False  # the process becomes the task
    # Returns a complaint or None, whatever the status is.
    complaint: callable = lambda outcome, baseline: None
    environment: dict = dataclasses.field(default_factory=dict)
    before: list = ()  # a command that prepares it, and is not traced
    after: list = ()  # a command for what it leaves, which is not traced
    status: int = 0  # the exit status without a fault
    command: str = None  # the job's command; None = the path of the task
    sleeps: bool = False  # the tasks do not end; once one has begun, the program is asked to end
    has_terminal: bool = False  # as input, output and controlling terminal
    may_wait: bool = False  # may wait forever if its queries always fail


def job_ids():
    return (ROOT_JOB_ID, ROOT_JOB_ID) if os.geteuid() == 0 else (os.geteuid(), os.getegid())


def has_all_reports(outcome, baseline):
    return outcome.reports == baseline.reports


def has_all_or_a_reason(outcome, baseline):
    return has_all_reports(outcome, baseline) or outcome.error != ""


def has_no_other_output(outcome, baseline):
    # Failures to write to the server do not affect the adapter's status.
    return outcome.output in (baseline.output, "")


def has_new_job(outcome, baseline):
    return outcome.new_job == baseline.new_job


def has_old_job_replaced(outcome, baseline):
    return outcome.old_job == baseline.old_job


def has_all_arrays(outcome, baseline):
    # If the maximum array size is unknown, the job may be submitted as one array.
    return outcome.calls["sbatch"] > 0 and outcome.output == "12\n" * outcome.calls["sbatch"]


def incomplete_new_job(outcome, baseline):
    return None if outcome.new_job in (None, baseline.new_job) else "an incomplete job file"


def incomplete_old_job(outcome, baseline):
    whole = ("what was there before\n", baseline.old_job)
    return None if outcome.old_job in whole else "neither the old job file nor the new one"


def unreported_array(outcome, baseline):
    if outcome.calls["sbatch"] > baseline.calls["sbatch"]:
        return "submitted twice"
    is_known = outcome.status == 0 or "12\n" in outcome.output or outcome.calls["scancel"] > 0
    is_reported = re.search("an array may have been queued|queued: 12|cannot cancel array 12",
                            outcome.error)
    if outcome.calls["sbatch"] == 0 or is_known or is_reported or outcome.is_mute:
        return None
    return "an array that is not reported"


def unreported_array_or_end(outcome, baseline):
    if "task 2: succeeded" in outcome.error:
        return "reported success of a failed task"
    return unreported_array(outcome, baseline)


def other_array(outcome, baseline):
    if outcome.arrays not in (None, baseline.arrays):
        return f"submitted {outcome.arrays!r}"
    return unreported_array(outcome, baseline)


def lost_record(outcome, baseline):
    if outcome.reports[1]:
        return "a task that had succeeded was run again"
    return None if outcome.after == 0 else "a record that cannot be resumed"


def never(outcome, baseline):
    return False


ADAPTER = "UserRunletAdapter"
TOOL = "runlet-job"


def job(scene):
    return str(scene.job)


def in_work(name):
    return lambda scene: str(scene.work / name)


MAKE = ["--frames", "1-3", "--timeout", "5", "--", "/bin/echo", "%tp1"]

def record(scene):
    return str(scene.folder / "record.jsonl")


RECORD = ["--record", record]

SCENARIOS = [
    Scenario("GetInfo", [ADAPTER, "-o", "GetInfo"], has_no_other_output),
    Scenario("NewTask", [ADAPTER, "-o", "NewTask", "-j", job, "-s", "1", "-n", "2"],
             has_all_or_a_reason),
    Scenario("PingTask", [ADAPTER, "-o", "PingTask", "-j", job, "-e", "1800001"],
             never, status=255),
    Scenario("exec", [TOOL, "exec", job, "--task", "1"], has_all_reports, becomes_program=True),
    Scenario("exec on a terminal", [TOOL, "exec", job, "--task", "1"], has_all_reports,
             has_terminal=True),
    Scenario("make", [TOOL, "make", "-o", in_work("new.xml"), *MAKE], has_new_job,
             complaint=incomplete_new_job),
    Scenario("make over a file", [TOOL, "make", "-o", in_work("old.xml"), *MAKE],
             has_old_job_replaced, complaint=incomplete_old_job),
    Scenario("make of a task file",
             [TOOL, "make", "-o", in_work("new.xml"), "--tasks", in_work("tasks"), "--timeout", "5",
              "--", "/bin/echo", "%tp1"], has_new_job, complaint=incomplete_new_job),
    Scenario("run", [TOOL, "run", job, "--jobs", "2", *RECORD], has_all_reports),
    Scenario("run of an application",
             [TOOL, "run", job, "-a", lambda scene: str(scene.application / "any"), *RECORD],
             has_all_reports, command="task"),
    Scenario("run that is interrupted", [TOOL, "run", job, "--jobs", "2", *RECORD], never,
             status=-signal.SIGTERM, sleeps=True),
    # The second task has failed before, as there was a file 1.made only.
    Scenario("run that is resumed", [TOOL, "run", job, "--resume", record], has_all_reports,
             complaint=lost_record,
             before=[TOOL, "run", job, "--expect", "%tn.made", *RECORD],
             after=[TOOL, "run", job, "--resume", record, "--quiet"]),
    Scenario("submit", [TOOL, "submit", job], has_all_arrays, complaint=unreported_array),
    Scenario("submit in parts", [TOOL, "submit", job], has_all_arrays,
             complaint=unreported_array, environment={"MAX_ARRAY_SIZE": "2"}),
    Scenario("submit and wait", [TOOL, "submit", job, "--wait", "--chunk", "2"], never, status=1,
             complaint=unreported_array_or_end, may_wait=True,
             environment={"STATES": r"12 0 FAILED 256\n"}),
    Scenario("submit what has failed", [TOOL, "submit", job, "--failed-of", "12"], has_all_arrays,
             complaint=other_array,
             environment={"STATES": r"12 1 COMPLETED 0\n12 2 FAILED 256\n",
                          "COMMENT": lambda scene: f"runlet-job:0:1:2:2:{scene.job_hash()}"}),
]


@dataclasses.dataclass(frozen=True)
class Case:
    scenario: str
    call: str
    when: str  # which of the calls, in the syntax of strace
    error: str
    is_loaders: bool  # whether the loader makes it, before the program begins

    def fault(self):
        """The option for strace. brk has no error: it fails by returning no memory."""
        kind = "retval=0" if self.call == "brk" else f"error={self.error}"
        return f"{self.call}:{kind}:when={self.when}"

    def __str__(self):
        return f"{self.scenario}: {self.fault()}"


def scenario_of(name):
    return next(each for each in SCENARIOS if each.name == name)


def resolved(text, scene):
    return text(scene) if callable(text) else text


def command_of(scenario, scene, folder, log, inject):
    words = [resolved(word, scene) for word in scenario.arguments]
    strace = ["strace", "-qq", "-o", log]
    if not scenario.becomes_program:
        strace += ["-f", "-b", "execve"]
    return [*strace, *inject, str(folder / words[0]), *words[1:]]


def reap(patience):
    """Waits for the remaining processes of the run, then ends them. Returns how many it ended."""
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


def children(parent):
    found = []
    for pid in filter(str.isdecimal, os.listdir("/proc")):
        try:
            fields = pathlib.Path("/proc", pid, "stat").read_text().rsplit(")", 1)[1].split()
        except OSError:  # it has ended
            continue
        if int(fields[1]) == parent:
            found.append(int(pid))
    return found


def end_children():
    """Kills all children of this process, to which grandchildren are reparented. Returns how many."""
    count = 0
    while pids := children(os.getpid()):
        for pid in pids:
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
        count += len(pids)
    return count


class Terminal:
    """A terminal whose output can be read."""

    def __init__(self):
        self.descriptor, self.end = pty.openpty()
        os.set_blocking(self.descriptor, False)

    def written(self):
        text = b""
        try:
            while part := os.read(self.descriptor, 65536):
                text += part
        except OSError:  # nothing more, or nobody else has it any more
            pass
        return text.decode(errors="replace")

    def close(self):
        os.close(self.descriptor)
        os.close(self.end)


def be_on_terminal():
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)


def environment_of(scenario, scene):
    return {"PATH": f"{scene.slurm}:/usr/bin:/bin", "LC_ALL": "C",
            **{name: resolved(text, scene) for name, text in scenario.environment.items()}}


def run_untraced(arguments, scenario, scene, folder):
    """Returns the exit status; 0 if there is nothing to run."""
    if not arguments:
        return 0
    words = [resolved(word, scene) for word in arguments]
    return subprocess.run(
        [str(folder / words[0]), *words[1:]], cwd=scene.work, env=environment_of(scenario, scene),
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        check=False).returncode


def start(scenario, scene, command, terminal):
    return subprocess.Popen(
        command, cwd=scene.work, env=environment_of(scenario, scene), start_new_session=True,
        text=True, errors="replace", stdin=terminal.end if terminal else subprocess.DEVNULL,
        stdout=terminal.end if terminal else subprocess.PIPE, stderr=subprocess.PIPE,
        preexec_fn=be_on_terminal if terminal else None)


def interrupt(process, scene, deadline):
    """Once a task has begun, ends the program; `process` is its tracer."""
    while not list(scene.calls.glob("asleep.*")):
        if process.poll() is not None or time.monotonic() > deadline:
            return
        time.sleep(0.01)
    for pid in children(process.pid):
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid, signal.SIGTERM)


def run(scenario, folder, inject=(), patience=PATIENCE):
    """Returns the outcome and the text of the trace."""
    scene = Scene(scenario)
    terminal = Terminal() if scenario.has_terminal else None
    try:
        run_untraced(scenario.before, scenario, scene, folder)
        scene.prepare_resumption()
        log = str(scene.folder / "trace")
        begin = time.monotonic()
        process = start(scenario, scene, command_of(scenario, scene, folder, log, inject), terminal)
        if scenario.sleeps:
            interrupt(process, scene, begin + patience)
        try:
            output, error = process.communicate(timeout=max(0, begin + patience - time.monotonic()))
            status = process.returncode
        except subprocess.TimeoutExpired:
            process.kill()
            end_children()
            output, error = process.communicate()
            status = None
        seconds = time.monotonic() - begin
        if terminal:
            output = terminal.written()
        left = reap(GRACE)
        trace = scene.text(pathlib.Path(log)) or ""
        files, reports = scene.files(), {n: scene.report(n) for n in (1, 2)}
        after = run_untraced(scenario.after, scenario, scene, folder)
        outcome = Outcome(
            status, output, error, files, reports,
            scene.text(scene.work / "new.xml"), scene.text(scene.work / "old.xml"),
            {name: scene.call_count(name) for name in ("sbatch", "scancel")},
            scene.text(scene.calls / "arrays"), seconds,
            scenario.becomes_program and re.search(STARTED_TASK, trace) is not None,
            "(INJECTED)" in trace, left, after)
        return outcome, trace
    finally:
        if terminal:
            terminal.close()
        scene.remove()


def calls_of(trace):
    """The calls of each process in order."""
    calls = collections.defaultdict(list)
    for process, call in re.findall(r"^(\d+\s+)?(\w+)\(", trace, re.MULTILINE):
        calls[process].append(call)
    return list(calls.values())


def numbers_of(call, processes, most):
    """Returns how many of the calls are the loader's, how many there are, and the numbers of those that
    should fail. Each process counts its own calls; those of the first one include the loader's."""
    first = processes[0]
    loaded = first.index("munmap") if "munmap" in first else 0
    offset = first[:loaded].count(call)
    count = max(calls.count(call) for calls in processes)
    numbers = {*range(1, most + 1), *range(offset + 1, offset + most + 1)}
    return offset, count, sorted(number for number in numbers if number <= count)


def cases_of(scenario, trace, most):
    if scenario.becomes_program:
        # What follows are calls of the task itself.
        trace = trace[:re.search(STARTED_TASK, trace).end()]
    processes = calls_of(trace)
    cases = []
    for call in sorted(set().union(*processes) - LEFT_OUT):
        # A call that fails here is not made at all. Unlike on a real system, a failed close leaves
        # the descriptor open, so that processes that wait for end of file do not end.
        if call == "close" and scenario.sleeps:
            continue
        offset, count, numbers = numbers_of(call, processes, most)
        for number in numbers:
            # The first execve starts the program itself; at any other, strace detaches unless the
            # program is to become the task.
            if call == "execve" and not (scenario.becomes_program and number > 1):
                continue
            for error in ERRORS.get(call, ["EIO"]):
                is_loaders = number <= offset
                cases.append(Case(scenario.name, call, str(number), error, is_loaders))
                if error in LASTING and not scenario.may_wait:
                    last = f"..{count}+" if scenario.becomes_program else "+"
                    when = f"{number}{last}"
                    cases.append(Case(scenario.name, call, when, error, is_loaders))
    return cases


def expected_rights(scenario):
    """Lines that must be in the report of each task, if there is one."""
    uid, gid = job_ids()
    yield f"Uid:\t{uid}\t{uid}\t{uid}\t{uid}"
    yield f"Gid:\t{gid}\t{gid}\t{gid}\t{gid}"
    yield f"Umask:\t{UMASK:04o}"
    if os.geteuid() != 0:
        return
    yield "Terminals:"
    # The adapter's tasks keep its groups, and its inheritable capabilities.
    is_of_tool = scenario.arguments[0] == TOOL
    if is_of_tool:
        yield "Groups:\t "
    for kind in ("Inh", "Prm", "Eff", "Amb") if is_of_tool else ("Prm", "Eff", "Amb"):
        yield f"Cap{kind}:\t0000000000000000"


def rights_complaint(scenario, outcome, baseline):
    for task, report in outcome.reports.items():
        if not report:
            continue
        if report != next(filter(None, baseline.reports.values())):
            return f"task {task} had other rights: {report!r}"
        if not all(line in report.splitlines() for line in expected_rights(scenario)):
            return f"task {task} had other rights than its job says: {report!r}"
    return None


def may_end_by_signal(case, outcome):
    scenario = scenario_of(case.scenario)
    if outcome.status == scenario.status or outcome.is_task:  # which may end in any way
        return True
    # The loader continues without the memory and crashes; the program has not run then.
    return case.is_loaders and case.call == "mmap" and outcome.status == -signal.SIGSEGV


def is_strange(scenario, name):
    """Whether a file of that name is unexpected unless it exists without a fault, too."""
    # How many tasks have begun at the interrupt depends on timing.
    is_of_task = re.fullmatch(r"work/(report\.[12]|job-ID/job-[12]\.log)", name) is not None
    return not name.startswith("calls/") and not (scenario.sleeps and is_of_task)


def complaints(case, outcome, baseline):
    scenario = scenario_of(case.scenario)
    if outcome.status is None:
        return
    # A process killed by SIGKILL cannot end its children, and a process whose id may have been
    # reused must not be killed.
    is_reported = "running tasks are left running" in outcome.error
    if outcome.left > 0 and outcome.status != -signal.SIGKILL and not is_reported:
        yield f"left {outcome.left} processes"
    if complaint := rights_complaint(scenario, outcome, baseline):
        yield complaint
    if outcome.status == 0 and not scenario.is_success(outcome, baseline):
        yield "reported success after a failure"
    if complaint := scenario.complaint(outcome, baseline):
        yield complaint
    if outcome.status < 0 and not may_end_by_signal(case, outcome):
        yield f"ended by signal {-outcome.status}"
    extra = outcome.files - baseline.files
    if case.call != "unlink" and (extra := [name for name in extra if is_strange(scenario, name)]):
        yield f"left the files {sorted(extra)}"


baselines = {}  # the outcome of each scenario without a fault
programs = None  # the folder of the built programs
deadline = None  # no run starts after it


def be_worker(*values):
    global programs, deadline
    programs, deadline, found = values
    baselines.update(found)
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def is_late(scenario, outcome):
    """Whether the run itself took too long, and not because of the load of the machine."""
    if outcome.seconds <= PATIENCE:
        return False
    usual, _ = run(scenario, programs, patience=PATIENCE * LOADED)
    return outcome.seconds > PATIENCE * max(1, usual.seconds / baselines[scenario.name].seconds)


def try_case(case):
    """Returns the case, complaints about it, and whether the fault was injected."""
    if time.monotonic() > deadline:
        return case, [], False
    scenario = scenario_of(case.scenario)
    inject = ["-e", f"inject={case.fault()}"]
    outcome, _ = run(scenario, programs, inject)
    if outcome.status is None:
        outcome, _ = run(scenario, programs, inject, PATIENCE * LOADED)
    outcome.is_mute = case.call == "write" and case.when.endswith("+")
    found = list(complaints(case, outcome, baselines[case.scenario]))
    if is_late(scenario, outcome):
        found.append(f"took {outcome.seconds:.0f} s")
    detail = f" (status {outcome.status}, said {outcome.error!r})" if found else ""
    return case, [complaint + detail for complaint in found], outcome.injected


def first_runs(names, folder, most):
    """Runs the scenarios without a fault. Returns all their cases."""
    cases = []
    for name in names:
        scenario = scenario_of(name)
        baseline, trace = run(scenario, folder)
        baselines[name] = baseline
        # Otherwise the scenario could not detect anything.
        is_success = scenario.is_success(baseline, baseline)
        if baseline.status != scenario.status or (baseline.status == 0) != is_success:
            sys.exit(f"{name} does not work without a fault: {baseline}")
        if baseline.left > 0 or rights_complaint(scenario, baseline, baseline):
            sys.exit(f"{name} breaks a promise without a fault: {baseline}")
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
    # Only tasks started by root are kept from the terminal; others may use it.
    names = options.only or [each.name for each in SCENARIOS
                             if os.geteuid() == 0 or not each.has_terminal]
    cases = first_runs(names, folder, options.times)
    if options.short:
        random.Random(len(cases)).shuffle(cases)
    done = failed = 0
    with multiprocessing.Pool(os.cpu_count(), be_worker, (folder, latest, baselines)) as pool:
        for case, found, is_injected in pool.imap_unordered(try_case, cases):
            done += is_injected
            failed += bool(found)
            for complaint in found:
                print(f"{case}: {complaint}", flush=True)
    print(f"{done} of {len(cases)} faults injected, {failed} with complaints")
    return 1 if failed > 0 or done == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
