#!/bin/bash
# Compresses the mail of all users of a mail server as the tasks of an array:
#   sbatch slurm-array.sh
#
# ~/.config/trevix/servers.conf says how the server is reached; home directories are shared, so a task
# that starts anew on another machine finds the journal of replacements in ~/.local/state.
#SBATCH --job-name=trevix-compress
#SBATCH --array=0-19%5
#SBATCH --cpus-per-task=2
#SBATCH --mem=1G
#SBATCH --time=02:00:00
#SBATCH --requeue
#SBATCH --open-mode=append
#SBATCH --output=trevix-compress-%A_%a.jsonl
# The signal to end comes two minutes before the time is up, to the step and to this script.
#SBATCH --signal=B:TERM@120

export TREVIX_SERVER=${TREVIX_SERVER:-imap.example.org}
export TREVIX_USERS=${TREVIX_USERS:-$HOME/users.txt}

# The signal to end is handed on to the program, whenever it comes.
signalled=no
run=
trap 'signalled=yes; [ -z "$run" ] || kill -TERM "$run" 2>/dev/null' TERM INT

# In the background, so that the signal is heard while it runs.
"${TREVIX_SHARE:-/usr/libexec/trevix/trevix-share}" --jobs "${SLURM_CPUS_PER_TASK:-1}" \
  --max-time 110m &
run=$!
[ "$signalled" = no ] || kill -TERM "$run" 2>/dev/null

# A signal ends the wait before the program has ended; the next wait brings the program's own exit
# status, also when it has ended meanwhile.
while :; do
  signalled=no
  wait "$run"
  status=$?
  [ "$signalled" = yes ] || break
done

case $status in
  # Busy mailboxes, or the time was up: this share goes on later.
  75 | 124) if [ -n "${SLURM_JOB_ID:-}" ]; then scontrol requeue "${SLURM_ARRAY_JOB_ID:-$SLURM_JOB_ID}_${SLURM_ARRAY_TASK_ID:-0}"; fi ;;
esac
exit "$status"
