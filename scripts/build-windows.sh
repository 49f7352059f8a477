#!/usr/bin/env bash
# Builds the shipped executable into build/windows/mdDCT.exe (its symbols beside it in mdDCT.exe.debug) with the
# programs that the tests under Wine need, and proves from the file itself that it is fit to ship. The first line of
# trouble goes to the standard error stream; without trouble there is one line.
#
#   scripts/build-windows.sh [TARGET...]   everything, or those targets (mdDCT is the program alone)
set -euo pipefail
cd "$(dirname "$0")/.."

targets=("$@")
build=build/windows
exe=$build/mdDCT.exe
log=$build/build.log
objdump=x86_64-w64-mingw32-objdump

# DLLs of Windows itself that the program may import, lower case.
allowed=" advapi32.dll bcrypt.dll crypt32.dll kernel32.dll msvcrt.dll shell32.dll urlmon.dll user32.dll version.dll winhttp.dll wininet.dll "

fail() {
  echo "build-windows.sh: $*" >&2
  exit 1
}

compile() {
  mkdir -p "$build"
  if ! { { [ -f "$build/build.ninja" ] || cmake --preset windows; } &&
    cmake --build --preset windows ${targets[0]+--target "${targets[@]}"}; } >"$log" 2>&1
  then
    grep -E 'error|Error|undefined reference' "$log" | head -n 20 >&2 || tail -n 20 "$log" >&2
    fail "the build failed; all of its output is in $log"
  fi
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
  local found
  found=$(x86_64-w64-mingw32-nm -A "$build"/libmddct_{platform,windows,core,digest,http,upload,dct,main}.a \
    "$build"/CMakeFiles/mdDCT.dir/main/entry.cpp.obj 2>/dev/null | grep ' __tcf_' | head -n 1 || true)
  [ -z "$found" ] || fail "an object with static storage has a destructor: $found"
}

compile
headers=$($objdump -p "$exe")
check_headers
check_sections
check_imports
check_destructors
echo "$exe: $(stat -c %s "$exe") bytes, sha256 $(sha256sum "$exe" | cut -c1-16)"
