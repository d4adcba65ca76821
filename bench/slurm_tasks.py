#!/usr/bin/env python3
"""Measures what a task of `runlet-job submit` costs beyond a task of a plain Slurm array.

   slurm_tasks.py FOLDER CLUSTER PROGRAMS

FOLDER is for temporary files, CLUSTER contains slurm.conf, PROGRAMS contains runlet-job and
runlet_farm_task. Both arrays run the same program, which only records the time.
"""

import os
import statistics
import subprocess
import sys
import time

TASKS = 200
ROUNDS = 8
BARE_RUNS = 600

folder, cluster, programs = (os.path.abspath(path) for path in sys.argv[1:])
tool = os.path.join(programs, 'runlet-job')
stamps = os.path.join(folder, 'stamps')
task = [os.path.join(programs, 'runlet_farm_task'), 'stamp:' + stamps]
environment = dict(os.environ, SLURM_CONF=os.path.join(cluster, 'slurm.conf'))

JOB = '''<Job><cmdData><Arguments>{%s}</Arguments><TaskTimeout>10</TaskTimeout>
<uid>%d</uid><gid>%d</gid><umask>18</umask><TaskList>
%s</TaskList><JobParams></JobParams></cmdData></Job>
'''


def write(name, text):
    path = os.path.join(folder, name)
    with open(path, 'w', encoding='utf-8') as file:
        file.write(text)
    return path


job = write('job.xml', JOB % (' '.join(task), os.getuid(), os.getgid(),
                              '<Task><Params>{task}</Params></Task>\n' * TASKS))
plain_script = write('plain.sh', '#!/bin/sh\nexec ' + ' '.join(task) + '\n')
plain = ['sbatch', '--parsable', f'--array=1-{TASKS}', '--requeue', '--open-mode=truncate',
         f'--output={folder}/plain-%3a.log', f'--chdir={folder}', '--time=10', plain_script]
submit = [tool, 'submit', job]


def run(command):
    return subprocess.run(command, env=environment, cwd=folder, check=True, capture_output=True,
                          text=True).stdout


def queue():
    return run(['squeue', '-h', '-r'])


def stamped():
    with open(stamps, encoding='ascii') as file:
        return [float(line) for line in file]


def milliseconds_per_task(command):
    """From the submission to the start of the last task, according to the tasks' clocks."""
    write('stamps', '')
    start = time.time()
    run(command)
    while len(stamped()) < TASKS:
        time.sleep(0.005)
    while queue():
        time.sleep(0.1)
    return (max(stamped()) - start) / TASKS * 1000


def script_of_submit():
    """What Slurm runs for a task: the script and its arguments."""
    capture = ('sbatch() { while [ "$1" != /dev/stdin ]; do shift; done; shift; cat >script.sh; '
               'printf "%s\\n" "$@"; }\n')
    arguments = run(['bash', '-c', capture + run(submit + ['--dry-run'])]).splitlines()
    return [os.path.join(folder, 'script.sh')] + arguments


def bare_milliseconds(command):
    start = time.perf_counter()
    process = os.posix_spawn('/bin/sh', ['sh'] + command, bare_environment,
                             file_actions=[(os.POSIX_SPAWN_OPEN, 1, '/dev/null', os.O_WRONLY, 0)])
    _, status = os.waitpid(process, 0)
    assert status == 0, command
    return (time.perf_counter() - start) * 1000


def report(title, without, with_tool, middle=statistics.median):
    without, with_tool = middle(without), middle(with_tool)
    print(f'{title:34}{without:10.2f}{with_tool:12.2f}{with_tool - without:+12.2f}'
          f'{with_tool / without:8.2f}')


print(f'{"ms for a task":34}{"plain":>10}{"runlet-job":>12}{"difference":>12}{"ratio":>8}')
bare_environment = dict(environment, SLURM_ARRAY_TASK_ID='7')
figures = ([], [])
commands = ([plain_script], script_of_submit())
for turn in range(BARE_RUNS):
    for which in (0, 1) if turn % 2 else (1, 0):
        figures[which].append(bare_milliseconds(commands[which]))
report(f'the script alone, median of {BARE_RUNS}', *figures)
report(f'the script alone, fastest of {BARE_RUNS}', *figures, min)

figures = ([], [])
for turn in range(ROUNDS):
    for which in (0, 1) if turn % 2 else (1, 0):
        figures[which].append(milliseconds_per_task((plain, submit)[which]))
report(f'in arrays of {TASKS}, median of {ROUNDS}', *figures)
