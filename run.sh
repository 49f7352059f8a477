#!/usr/bin/env bash
# Shows the program at its main job on this machine. See usage() below.
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  cat <<'TEXT'
usage: ./run.sh [--size SIZE] [--url URL]

Builds mdDCT.exe and runs it once, as the local system account of its own Wine prefix. The run collects a bundle and
uploads it over HTTPS to a storage emulator. Shows the result. Installs what is missing, and ends everything that it
started.

  --size SIZE   sets the size of the bundle, with K, M or G for powers of 1024; 8M by default. A bundle over 256M is
                uploaded as an append blob, in blocks of 4 MiB
  --url URL     sends the bundle to this URL, and does not start the emulator
  --help        shows this text
TEXT
}

refuse() {
  echo "run.sh: $*; ./run.sh --help explains" >&2
  exit 2
}

size=8M
url=
while [ $# -gt 0 ]; do
  case $1 in
    --size) size=${2-} && [[ $size =~ ^[0-9]{1,9}[KMG]?$ ]] || refuse "--size takes a number, with K, M or G" ;;
    --url) url=${2-} && [ -n "$url" ] || refuse "--url takes a URL" ;;
    -h | --help) usage && exit 0 ;;
    *) refuse "no option $1" ;;
  esac
  shift 2
done

echo "== tools: installing what is missing"
scripts/install.sh run

echo "== building mdDCT.exe and its test programs (the first time takes a minute or two)"
scripts/build-windows.sh </dev/null

exec node scripts/run/main.mjs "$size" "$url"
