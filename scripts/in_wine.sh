#!/usr/bin/env bash
# Runs a test program for Windows from its folder, in a Wine prefix of this project's own, and ends that Wine with it.
#
#   ./scripts/in_wine.sh [--prompt] [--dll-overrides TEXT] PROGRAM [ARGUMENT...]
#
# --prompt puts the stand-in for the credential prompt in place of the system's. --dll-overrides says which libraries
# come from where, as WINEDLLOVERRIDES does.
. "$(dirname "$0")/lib.sh"
trap stop_wine EXIT
start_wine
run=(in_wine)
while [ $# != 0 ]; do
  case $1 in
    --prompt) run=(with_prompt in_wine) ;;
    --dll-overrides) DLL_OVERRIDES=$2 && shift ;;
    *) break ;;
  esac
  shift
done
"${run[@]}" "$@"
