#!/usr/bin/env bash
# Proves from the built executable itself that it is fit to ship: its headers, its sections, the DLLs that it imports,
# and that no object with static storage has a destructor. The first line of trouble goes to the standard error stream;
# without trouble there is one line.
#
#   scripts/check-executable.sh [FOLDER]   what scripts/build-windows.sh built; build/windows when it is not given
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1-build/windows}
exe=$build/mdDCT.exe
objdump=x86_64-w64-mingw32-objdump

# DLLs of Windows itself that the program may import, lower case.
allowed=" advapi32.dll bcrypt.dll crypt32.dll kernel32.dll msvcrt.dll shell32.dll urlmon.dll user32.dll version.dll winhttp.dll wininet.dll "

fail() {
  echo "check-executable.sh: $*" >&2
  exit 1
}

# The file's headers and import table, read once.
headers=""
has() { grep -qE "$1" <<<"$headers"; }

check_headers() {
  has 'file format pei-x86-64' || fail "$exe is not for x86-64"
  has '^Magic[[:space:]]+020b' || fail "$exe is not PE32+"
  has '^Subsystem[[:space:]]+00000002' || fail "$exe is not a windowless (GUI) program"
  has '^Time/Date[[:space:]]+Thu Jan +1 00:00:00 1970' || fail "$exe holds a time stamp; the build is not repeatable"
  local bit
  for bit in DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT; do
    has "^[[:space:]]+$bit\$" || fail "$exe lacks $bit"
  done
}

check_sections() {
  local sections
  sections=$($objdump -h "$exe")
  grep -qE '[[:space:]]\.reloc[[:space:]]' <<<"$sections" || fail "$exe has no .reloc section, so it cannot be moved"
  grep -qE '[[:space:]]\.rsrc[[:space:]]' <<<"$sections" || fail "$exe has no version and manifest"
  ! grep -q '\.debug_' <<<"$sections" || fail "$exe still holds debug information"
}

check_imports() {
  local dll
  while read -r dll; do
    [[ $allowed == *" ${dll,,} "* ]] || fail "$exe imports $dll, which is not one of Windows' own that it may use"
  done < <(sed -n 's/^[[:space:]]*DLL Name: //p' <<<"$headers")
  # The test launcher reaches the account check through this import.
  sed -n '/DLL Name: ADVAPI32.dll/,/^$/p' <<<"$headers" | grep -q '[[:space:]]EqualSid$' ||
    fail "$exe does not import EqualSid from ADVAPI32.dll"
}

# A worker may still run while the process ends: no object may be destroyed under its hands.
check_destructors() {
  local library objects=("$build/CMakeFiles/mdDCT.dir/main/entry.cpp.obj") symbols found
  for library in "$build"/libmddct_*.a; do
    [ "$library" = "$build/libmddct_native.a" ] || objects+=("$library")
  done
  symbols=$(x86_64-w64-mingw32-nm -A "${objects[@]}") || fail "the symbols of the product cannot be read"
  found=$(grep -m 1 ' __tcf_' <<<"$symbols" || true)
  [ -z "$found" ] || fail "an object with static storage has a destructor: $found"
}

[ -f "$exe" ] || fail "there is no $exe"
headers=$($objdump -p "$exe")
check_headers
check_sections
check_imports
check_destructors
echo "$exe: $(stat -c %s "$exe") bytes, sha256 $(sha256sum "$exe" | cut -c1-16)"
