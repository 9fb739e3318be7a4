#!/bin/bash
# Makes nominal.csv, hot.csv and worst_case.csv again (needs the Debian package ngspice).
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp ./*.cir rc_filter.inc "$folder"

for case in nominal hot worst_case; do
  (cd "$folder" && rm -f table.txt && ngspice -b "$case.cir" >"$case.log" 2>&1) || true
  [ -s "$folder/table.txt" ] || { cat "$folder/$case.log" >&2; exit 1; }
  {
    echo 'time [s],v(in) [V],v(mid) [V],v(out) [V],i(r1) [A]'
    awk '{print $1 "," $2 "," $3 "," $4 "," $5}' "$folder/table.txt"
  } >"$case.csv"
done
wc -l ./*.csv
