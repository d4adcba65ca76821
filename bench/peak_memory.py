#!/usr/bin/env python3
"""Runs a command with its output discarded, and prints its peak memory in kilobytes.

  peak_memory.py COMMAND...
"""

import resource
import subprocess
import sys

subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)
