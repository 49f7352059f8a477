#!/usr/bin/env bash
# The program's main job, from nothing, on this machine: see usage below.
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  cat <<'TEXT'
usage: ./run.sh [--size SIZE] [--url URL]

Builds mdDCT.exe, lets it collect a bundle and upload it over HTTPS to a storage emulator, as the local system account
of a Wine prefix of its own, and shows what came of it. Installs what is missing; ends everything that it started.

  --size SIZE   size of the bundle, with K, M or G for powers of 1024; 8M when not given. More than 256M goes up as an
                append blob, in blocks of 4 MiB
  --url URL     sends the bundle there instead; the emulator is not started then
  --help        this text
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
