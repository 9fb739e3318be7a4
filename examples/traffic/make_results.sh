#!/bin/bash
# Makes free.csv and congested.csv again (needs the Debian packages sumo and python3).
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

netconvert --node-files street.nod.xml --edge-files street.edg.xml --output-file "$folder/street.net.xml"
for case in free congested; do
  sumo --net-file "$folder/street.net.xml" --additional-files cars.xml --route-files "$case.rou.xml" \
    --step-length 0.1 --end 600 --seed 7 --precision 3 --no-step-log --xml-validation never --xml-validation.net never \
    --fcd-output "$folder/$case.xml" --fcd-output.acceleration --device.fcd.explicit a,b,c
  /usr/bin/python3 fcd_to_csv.py "$folder/$case.xml" "$case.csv" a b c
done
wc -l ./*.csv
