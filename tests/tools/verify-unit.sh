#!/usr/bin/env bash
# verify-unit.sh UNIT PROGRAM: systemd's own check of the agent's user unit, with its ExecStart
# pointed at the built program (the installed one need not exist). Any complaint fails; exit 77
# (skipped) where systemd is absent.
set -euo pipefail
unit="$1" program="$2"
command -v systemd-analyze >/dev/null || { echo "no systemd-analyze"; exit 77; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
sed "s|^ExecStart=.*|ExecStart=$program|" "$unit" >"$work/vexa-agent.service"
mkdir -p "$work/runtime"
chmod 700 "$work/runtime"
output="$(XDG_RUNTIME_DIR="$work/runtime" systemd-analyze --user verify \
  "$work/vexa-agent.service" 2>&1)" || { echo "$output"; exit 1; }
if [ -n "$output" ]; then
  echo "$output"
  exit 1
fi
echo "unit verified"
