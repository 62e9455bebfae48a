#!/usr/bin/env bash
# What bash offers for sysmgr-sim: check_completion.sh COMPLETION-FILE PROGRAM
set -euo pipefail
. "$1"
program=$2

expect() { # OFFERED WORD...: what is offered for the last word
  local offered=$1
  shift
  COMP_WORDS=("$program" "$@")
  COMP_CWORD=$#
  _sysmgr_sim sysmgr-sim "${*: -1}"
  [ "${COMPREPLY[*]}" = "$offered" ] && return
  printf 'FAILED: sysmgr-sim %s\n  expected: %s\n  got:      %s\n' "$*" "$offered" "${COMPREPLY[*]}" >&2
  exit 1
}
expect "run" r
expect "--requests --repeat-on-subscribe --replay" --re
expect "--shared-network" run --sh
expect "--control" tell --c
expect "" run --sharp
expect "setpriv" run --model ZIRC -- setpri
echo "completed"
