#!/usr/bin/env bash
# wine-run.sh PREFIX PROGRAM [ARGUMENTS...]
#
# Runs a cross-built Windows program under Wine in the Wine prefix PREFIX, quietly, and
# exits with the program's exit code. The prefix is made (wineboot) by the first run and
# reused by every later one: booting takes seconds, a run a fraction of one. Parallel
# first runs wait for one another on a lock, so the prefix is booted exactly once.
#
# Windows programs end their lines with CR LF; the CRs are dropped from standard output
# so that tools reading it on Linux (GoogleTest's test discovery) see plain lines.
#
# The program's output goes through files, not pipes: the first Wine program of a fresh
# server starts the prefix's system processes (services, explorer, ...), which inherit
# its standard handles and live until the server ends. Holding a pipe, they would keep
# whoever reads it (CTest, the discovery, tr) waiting for all later tests to finish.
set -eu

prefix=$1
shift

export WINEPREFIX=$prefix
export WINEDEBUG=-all
# No Mono or Gecko: nothing here needs them, and asking to install them would hang a
# headless run.
export WINEDLLOVERRIDES="mscoree,mshtml="

booted=$prefix/.kc-booted
if [ ! -e "$booted" ]; then
  mkdir -p "$(dirname "$prefix")"
  exec 9>"$prefix.lock"
  flock 9
  if [ ! -e "$booted" ]; then
    wineboot --init >/dev/null 2>&1
    # wineboot returns before the registry files are written; the server's end says
    # they are.
    wineserver --wait
    touch "$booted"
  fi
  exec 9>&-
fi

out=$(mktemp)
err=$(mktemp)
trap 'rm -f "$out" "$err"' EXIT
status=0
wine "$@" >"$out" 2>"$err" </dev/null || status=$?
tr -d '\r' <"$out"
cat "$err" >&2
# A program that fails before writing anything leaves no trace of its own; say so.
if [ "$status" -ne 0 ] && [ ! -s "$out" ] && [ ! -s "$err" ]; then
  echo "wine-run.sh: $1 ended with status $status without any output" >&2
fi
exit "$status"
