#!/usr/bin/env bash
# A one-node Slurm cluster inside one folder, for tests: munge, slurmctld and slurmd with their own
# key, sockets, ports, state, spool, pid and log files, all traffic on 127.0.0.1, no system service
# touched. Needs root (slurmd starts jobs as their user).
#   slurm-test-cluster.sh start FOLDER CONTROLLER_PORT NODE_PORT   prints the SLURM_CONF to use
#   slurm-test-cluster.sh stop FOLDER                               stops what start started, by pid file
set -euo pipefail

stop() {
  local folder=$1
  # Jobs first: their step daemons outlive slurmd, so a cancelled test must not leave them running.
  if [ -f "$folder/slurm.conf" ] && [ -f "$folder/slurmctld.pid" ]; then
    SLURM_CONF="$folder/slurm.conf" scancel --user="$(id -un)" 2>/dev/null || true
    for _ in $(seq 50); do
      [ -z "$(SLURM_CONF="$folder/slurm.conf" squeue --noheader --states=RUNNING,COMPLETING 2>/dev/null)" ] && break
      sleep 0.1
    done
  fi
  for daemon in slurmd slurmctld munged; do
    local pidfile="$folder/$daemon.pid"
    [ -f "$pidfile" ] || continue
    local pid
    pid=$(cat "$pidfile")
    if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
      kill "$pid" 2>/dev/null || true
      for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
      kill -9 "$pid" 2>/dev/null || true
    fi
    rm -f "$pidfile"
  done
}

start() {
  local folder=$1 controllerPort=$2 nodePort=$3
  local host
  host=$(hostname -s)
  mkdir -p "$folder/state" "$folder/spool"
  chmod 700 "$folder"
  dd if=/dev/urandom of="$folder/munge.key" bs=1024 count=1 status=none
  chmod 400 "$folder/munge.key"
  munged --force --socket="$folder/munge.socket" --key-file="$folder/munge.key" --pid-file="$folder/munged.pid" \
    --log-file="$folder/munged.log" --seed-file="$folder/munged.seed" </dev/null >>"$folder/daemons.out" 2>&1
  cat > "$folder/slurm.conf" <<CONF
ClusterName=zvrstest
SlurmctldHost=$host(127.0.0.1)
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$folder/munge.socket
SlurmctldPort=$controllerPort
SlurmdPort=$nodePort
StateSaveLocation=$folder/state
SlurmdSpoolDir=$folder/spool
SlurmctldPidFile=$folder/slurmctld.pid
SlurmdPidFile=$folder/slurmd.pid
SlurmctldLogFile=$folder/slurmctld.log
SlurmdLogFile=$folder/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
JobCompType=jobcomp/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerType=sched/builtin
MpiDefault=none
ReturnToService=2
MinJobAge=600
NodeName=$host NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=test Nodes=$host Default=YES MaxTime=INFINITE State=UP
CONF
  export SLURM_CONF="$folder/slurm.conf"
  # Their own logs say what went wrong; the caller's output streams must not stay open in them.
  slurmctld -f "$SLURM_CONF" </dev/null >>"$folder/daemons.out" 2>&1
  slurmd -f "$SLURM_CONF" </dev/null >>"$folder/daemons.out" 2>&1
  for _ in $(seq 100); do
    if sinfo --noheader --format=%T 2>/dev/null | grep -q idle; then
      echo "$SLURM_CONF"
      return 0
    fi
    sleep 0.2
  done
  echo "the node did not become idle; see $folder/*.log" >&2
  return 1
}

case "${1:-}" in
  start) [ $# -eq 4 ] || { echo "usage: $0 start FOLDER CONTROLLER_PORT NODE_PORT" >&2; exit 2; }; start "$2" "$3" "$4" ;;
  stop) [ $# -eq 2 ] || { echo "usage: $0 stop FOLDER" >&2; exit 2; }; stop "$2" ;;
  *) echo "usage: $0 start FOLDER CONTROLLER_PORT NODE_PORT | stop FOLDER" >&2; exit 2 ;;
esac
