#!/usr/bin/env bash
# A private single-node Slurm cluster for the tests: munged, slurmctld and
# slurmd on this machine, everything (key, configuration, state, logs, pid
# files, sockets) in one folder, ports chosen free at start so two build
# trees never meet. No systemd and nothing outside the folder is touched.
#
#   slurm_cluster.sh start DIR   start it; ready when the node is idle
#   slurm_cluster.sh stop DIR    cancel every job, stop the daemons by pid
#
# Clients find the cluster through DIR/env.sh (SLURM_CONF).
set -euo pipefail

cmd=${1:-}
dir=${2:-}
[ -n "$cmd" ] && [ -n "$dir" ] || { echo "usage: $0 start|stop DIR" >&2; exit 2; }

# Waits up to $2 tenths of a second for process $1 to end.
wait_gone() {
  local pid=$1
  for _ in $(seq "$2"); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.1
  done
  return 1
}

stop_daemon() {
  local pidfile=$1 pid
  [ -f "$pidfile" ] || return 0
  pid=$(cat "$pidfile")
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid" 2>/dev/null || true
    if ! wait_gone "$pid" 100; then
      echo "slurm_cluster: $pidfile ($pid) did not stop; killing it" >&2
      kill -KILL "$pid" 2>/dev/null || true
      wait_gone "$pid" 50 || true
      rm -f "$pidfile"
      return 1
    fi
  fi
  rm -f "$pidfile"
}

# Stops everything; fails when a job or a daemon was left: the tests must
# leave nothing behind.
stop() {
  [ -d "$dir" ] || return 0
  local left="" jobs=""
  if [ -f "$dir/slurm.conf" ] && [ -f "$dir/slurmctld.pid" ]; then
    export SLURM_CONF="$dir/slurm.conf"
    jobs=$(squeue -h -o '%i %T %j' 2>/dev/null || true)
    [ -n "$jobs" ] && left="jobs still queued: $jobs"
    scancel --full --quiet --user="$(id -un)" 2>/dev/null || true
    # Jobs first, so no task outlives the daemons that would end it.
    for _ in $(seq 100); do
      [ -z "$(squeue -h -o %i 2>/dev/null)" ] && break
      sleep 0.1
    done
  fi
  stop_daemon "$dir/slurmd.pid" || left="$left slurmd"
  stop_daemon "$dir/slurmctld.pid" || left="$left slurmctld"
  stop_daemon "$dir/munged.pid" || left="$left munged"
  if [ -n "$left" ]; then
    echo "slurm_cluster: left behind: $left" >&2
    return 1
  fi
}

free_port() {
  python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

fail_start() {
  echo "slurm_cluster: $1" >&2
  for log in munged.log slurmctld.log slurmd.log; do
    [ -f "$dir/$log" ] && { echo "--- $log" >&2; tail -n 20 "$dir/$log" >&2; }
  done
  stop || true
  exit 1
}

start() {
  for tool in munged slurmctld slurmd sinfo squeue sbatch scancel; do
    command -v "$tool" >/dev/null || { echo "slurm_cluster: $tool not found; scripts/setup.sh installs slurm-wlm and munge" >&2; exit 1; }
  done
  stop || true  # what an earlier start in this folder may have left
  rm -rf "$dir"
  mkdir -p "$dir/state" "$dir/spool"
  chmod 0700 "$dir"
  dir=$(cd "$dir" && pwd)
  head -c 1024 /dev/urandom > "$dir/munge.key"
  chmod 0400 "$dir/munge.key"
  munged --force --socket="$dir/munge.socket" --key-file="$dir/munge.key" \
    --pid-file="$dir/munged.pid" --log-file="$dir/munged.log" --seed-file="$dir/munged.seed" \
    || fail_start "munged did not start"

  local host cpus mem user ctld_port slurmd_port
  host=$(hostname -s)
  cpus=$(nproc)
  mem=$(( $(awk '/MemTotal/ {print $2}' /proc/meminfo) / 1024 / 2 ))
  user=$(id -un)
  ctld_port=$(free_port)
  slurmd_port=$(free_port)
  while [ "$slurmd_port" = "$ctld_port" ]; do slurmd_port=$(free_port); done
  cat > "$dir/slurm.conf" <<CONF
ClusterName=zeltratest
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$ctld_port
SlurmdPort=$slurmd_port
SlurmUser=$user
SlurmdUser=root
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$dir/munge.socket
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.pid
SlurmctldLogFile=$dir/slurmctld.log
SlurmdLogFile=$dir/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerType=sched/builtin
ReturnToService=2
MpiDefault=none
MinJobAge=300
KillWait=2
OverTimeLimit=0
InactiveLimit=0
Waittime=0
MessageTimeout=10
SlurmctldTimeout=30
SlurmdTimeout=30
NodeName=$host NodeAddr=127.0.0.1 CPUs=$cpus RealMemory=$mem State=UNKNOWN
PartitionName=test Nodes=$host Default=YES MaxTime=INFINITE State=UP OverSubscribe=FORCE:4
CONF
  cat > "$dir/env.sh" <<ENV
export SLURM_CONF=$dir/slurm.conf
ENV
  export SLURM_CONF="$dir/slurm.conf"
  slurmctld -i || fail_start "slurmctld did not start"
  slurmd -N "$host" || fail_start "slurmd did not start"
  for _ in $(seq 300); do
    state=$(sinfo -h -N -o %t 2>/dev/null || true)
    [ "$state" = "idle" ] && { echo "slurm_cluster: ready in $dir"; return 0; }
    sleep 0.1
  done
  fail_start "the node did not come up idle within 30 s (state: ${state:-none})"
}

case "$cmd" in
  start) start ;;
  stop) stop ;;
  *) echo "usage: $0 start|stop DIR" >&2; exit 2 ;;
esac
