#!/usr/bin/env bash
# Makes the release of the commit that is checked out: build/release/mdDCT-VERSION.zip, with its SHA-256 in a file
# beside it. Changes that are not committed are left out. The same commit and the same tools give the same bytes in any
# folder.
#
#   scripts/release.sh           makes the release
#   scripts/release.sh --check   makes it twice, in two folders, and compares the archives; leaves build/release alone
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  echo "release.sh: $*" >&2
  exit 1
}

check=no
case "${1-}" in
  '') ;;
  --check) check=yes ;;
  *) fail "unknown argument $1; the only option is --check" ;;
esac

commit=$(git rev-parse HEAD)
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct "$commit")
export SOURCE_DATE_EPOCH TZ=UTC LC_ALL=C

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Clones the commit and builds it without a compiler cache, so that the check compares two real builds: build FOLDER.
build() {
  git clone -q --no-checkout . "$1"
  git -C "$1" checkout -q --detach "$commit"
  (cd "$1" && unset CMAKE_CXX_COMPILER_LAUNCHER CMAKE_C_COMPILER_LAUNCHER && scripts/build-windows.sh mdDCT)
}

# Prints the product's version: version_of SOURCE.
version_of() {
  local version
  version=$(sed -n 's/^#define MDDCT_VERSION_TEXT "\([0-9.]*\)"$/\1/p' "$1/packaging/version.h")
  [ -n "$version" ] || fail "packaging/version.h holds no version"
  echo "$version"
}

debian_version() { dpkg-query -W -f '${Version}' "$1"; }

# Copies the notices of what is linked into the executable, from the packages that it comes from.
gather_licences() {
  mkdir "$1/licences"
  local gcc=/usr/share/doc/gcc-mingw-w64-x86-64-posix-runtime/copyright
  local mingw=/usr/share/doc/mingw-w64-x86-64-dev/copyright
  grep -q 'GCC RUNTIME LIBRARY EXCEPTION' "$gcc" || fail "$gcc does not hold the runtime library exception"
  grep -q 'mingw-w64-libraries/winpthreads' "$mingw" || fail "$mingw does not mention winpthreads"
  cp "$gcc" "$1/licences/gcc-runtime.txt"
  cp "$mingw" "$1/licences/mingw-w64.txt"
  cp /usr/share/common-licenses/GPL-3 "$1/licences/GPL-3.txt"
}

# Collects what the archive holds in a folder: gather SOURCE FOLDER VERSION.
gather() {
  local source=$1 folder=$2
  mkdir -p "$folder/policy/en-US" "$folder/symbols"
  cp "$source/build/windows/mdDCT.exe" "$folder/"
  cp "$source/build/windows/mdDCT.exe.debug" "$folder/symbols/"
  cp "$source"/packaging/policy/mddct.admx "$folder/policy/"
  cp "$source"/packaging/policy/en-US/mddct.adml "$folder/policy/en-US/"
  cp "$source/docs/operations.md" "$source/CHANGELOG.md" "$folder/"
  gather_licences "$folder"
  cp "$source/packaging/licences.txt" "$folder/licences/README.txt"
  node "$source/scripts/release/sbom.mjs" "$folder" "$3" "$(debian_version gcc-mingw-w64-x86-64-posix-runtime)" \
    "$(debian_version mingw-w64-x86-64-dev)" >"$folder/sbom.spdx.json"
  (cd "$folder" && find . -type f ! -name SHA256SUMS -printf '%P\n' | sort | xargs sha256sum >SHA256SUMS)
}

# Packs a folder, with the same times, order and rights of the entries on every machine: pack FOLDER ARCHIVE.
pack() {
  find "$1" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
  find "$1" -type f -exec chmod 644 {} +
  (cd "$(dirname "$1")" && find "$(basename "$1")" -type f | sort | zip -q -X -9 "$work/made.zip" -@)
  mv "$work/made.zip" "$2"
}

# Makes the archive from a clone in a folder, and prints the archive's path: make FOLDER.
make() {
  local source=$1/source version
  mkdir -p "$1"
  build "$source" >&2
  version=$(version_of "$source")
  gather "$source" "$1/mdDCT-$version" "$version"
  pack "$1/mdDCT-$version" "$1/mdDCT-$version.zip"
  echo "$1/mdDCT-$version.zip"
}

first=$(make "$work/one")
if [ "$check" = yes ]; then
  second=$(make "$work/another folder, of a longer name/two")
  cmp "$first" "$second" || {
    diff -rq "${first%.zip}" "${second%.zip}" >&2 || true
    fail "two builds of $commit differ"
  }
  # Verifies the digests in the unpacked archive, as a user would.
  unzip -q "$first" -d "$work/unpacked"
  (cd "$work"/unpacked/mdDCT-* && sha256sum --quiet --strict -c SHA256SUMS)
  echo "two builds of $commit are the same: sha256 $(sha256sum <"$first" | cut -c1-64)"
  exit 0
fi
mkdir -p build/release
cp "$first" build/release/
cd build/release
sha256sum "$(basename "$first")" | tee "$(basename "$first").sha256"
