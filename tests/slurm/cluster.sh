# Private Slurm clusters on this machine, for tests; to be sourced.
#
# A cluster has its configuration, keys, state and logs in one folder; it listens only on the
# loopback interface, on free ports, and uses its own munged. So it does not conflict with other
# clusters or with the machine's daemons. Every process of a cluster, including its tasks, has the
# path of the configuration in its environment, and is found by that.

# await SECONDS COMMAND...: waits until the command succeeds; false on time-out.
await() {
  local deadline=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$deadline" ] || return 1
    sleep 0.05
  done
}

# freePorts COUNT: prints that many unused ports, below the ephemeral range.
freePorts() {
  local found=() port
  while [ ${#found[@]} -lt "$1" ]; do
    port=$((10000 + RANDOM % 20000))
    case " ${found[*]} " in *" $port "*) continue ;; esac
    (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null || found+=("$port")
  done
  printf '%s\n' "${found[@]}"
}

# writeConfiguration FOLDER NODES LINE...: prints a configuration with nodes n1, n2 etc.
#
# All time-outs are short: a dead node is noticed after ten seconds, and its jobs restart five
# seconds later.
writeConfiguration() {
  local folder=$1 nodes=$2 host=${HOSTNAME%%.*} ports node
  shift 2
  mapfile -t ports < <(freePorts $((nodes + 1)))
  cat <<END
ClusterName=$(basename "$folder")
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=${ports[0]}
CommunicationParameters=NoInAddrAny,NoCtldInAddrAny
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket=$folder/socket/munge,cred_expire=5
StateSaveLocation=$folder/state
SlurmdSpoolDir=$folder/spool/%n
SlurmctldPidFile=$folder/run/slurmctld
SlurmdPidFile=$folder/run/%n
SlurmctldLogFile=$folder/log/slurmctld
SlurmdLogFile=$folder/log/%n
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerType=sched/backfill
SchedulerParameters=batch_sched_delay=0,sched_interval=1,sched_min_interval=10000,bf_interval=1
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
JobCompType=jobcomp/none
SlurmdParameters=config_overrides
ReturnToService=2
SlurmdTimeout=10
MessageTimeout=5
TCPTimeout=2
KillWait=2
MinJobAge=3600
END
  for ((node = 1; node <= nodes; ++node)); do
    printf 'NodeName=n%d NodeHostname=%s NodeAddr=127.0.0.1 Port=%d CPUs=4 RealMemory=2000\n' \
      "$node" "$host" "${ports[node]}"
  done
  printf '%s\n' "$@"
}

startController() {
  SLURM_CONF=$1/slurm.conf slurmctld
}

# startNode FOLDER NAME
startNode() {
  SLURM_CONF=$1/slurm.conf slurmd -N "$2"
}

startMunge() {
  head -c 128 /dev/urandom >"$1/munge/key"
  chmod 400 "$1/munge/key"
  SLURM_CONF=$1/slurm.conf munged --key-file="$1/munge/key" --socket="$1/socket/munge" \
    --pid-file="$1/munge/pid" --seed-file="$1/munge/seed" --log-file="$1/log/munged"
}

mungeAnswers() {
  munge -S "$1/socket/munge" -n | unmunge -S "$1/socket/munge"
}

nodesAreIdle() {
  [ "$(SLURM_CONF=$1/slurm.conf sinfo -h -N -o '%N %T' | sort -u | grep -c ' idle$')" = "$2" ]
}

# startCluster FOLDER NODES LINE...: creates the folder; the lines are appended to the
# configuration. False, with a message, if the cluster does not become ready.
startCluster() {
  local folder=$1 nodes=$2 node
  mkdir "$folder"
  (umask 077 && mkdir "$folder/munge")
  mkdir "$folder"/{socket,state,spool,run,log}
  writeConfiguration "$@" >"$folder/slurm.conf"

  startMunge "$folder"
  await 10 mungeAnswers "$folder" || { printf 'munged did not answer.\n' >&2; return 1; }
  startController "$folder"
  for ((node = 1; node <= nodes; ++node)); do
    mkdir "$folder/spool/n$node"
    startNode "$folder" "n$node"
  done
  await 30 nodesAreIdle "$folder" "$nodes" ||
    { printf 'The nodes did not become idle.\n' >&2; return 1; }
}

# processesOfClusters FOLDER: the ids of all processes of the clusters in that folder.
processesOfClusters() {
  grep -lzs "^SLURM_CONF=$1/" /proc/[0-9]*/environ | cut -d / -f 3
}

clustersAreGone() {
  [ -z "$(processesOfClusters "$1")" ]
}

# signalClusters SIGNAL FOLDER: to every process of the clusters in that folder.
signalClusters() {
  local process
  for process in $(processesOfClusters "$2"); do
    kill "-$1" "$process" 2>/dev/null || true  # it may have just ended
  done
}

# stopClusters FOLDER: ends all remaining processes of the clusters in that folder.
stopClusters() {
  signalClusters TERM "$1"
  await 5 clustersAreGone "$1" && return 0  # in a trap, the default status would differ
  until clustersAreGone "$1"; do
    signalClusters KILL "$1"
    sleep 0.1
  done
}

# showLogs FOLDER: shows the ends of the logs of all daemons of the clusters in that folder.
showLogs() {
  local log
  for log in "$1"/*/log/*; do
    printf '\n--- the end of %s\n' "$log"
    tail -n 15 "$log"
  done
}
