#!/usr/bin/env bash
# Installs what the build needs on Debian 12 and fetches TinyXML's patched source.
# Quick and silent when everything is already there.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
deps="$root/out/deps"

packages=(
    cmake make
    g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
    wine64 libz-mingw-w64-dev googletest libcli11-dev dpkg-dev
    libxml2-utils
)

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# Another apt run on the machine holds the dpkg lock; wait for it instead of failing.
apt_get() {
    as_root apt-get -o DPkg::Lock::Timeout=600 "$@"
}

install_packages() {
    local missing=()
    for p in "${packages[@]}"; do
        [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" = "install ok installed" ] || missing+=("$p")
    done
    [ "${#missing[@]}" -eq 0 ] && return 0
    echo "install-deps: installing ${missing[*]}"
    apt_get update -q
    DEBIAN_FRONTEND=noninteractive apt_get install -y -q --no-install-recommends "${missing[@]}"
}

# Writes deb-src entries for the machine's own Debian archives of this release
# into a private sources folder; the machine's apt configuration stays untouched.
write_private_sources() {
    local parts="$1" codename
    codename="$(. /etc/os-release && echo "${VERSION_CODENAME:?}")"
    : >"$parts/src.list"
    local f
    for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [ -f "$f" ] || continue
        awk -v c="$codename" '$1 == "deb" { $1 = "deb-src"; for (i = 2; i <= NF; i++) if ($i == c) { print; break } }' \
            "$f" >>"$parts/src.list"
    done
    for f in /etc/apt/sources.list.d/*.sources; do
        [ -f "$f" ] || continue
        awk -v c="$codename" '
            function flush() { if (keep && stanza != "") printf "%s\n", stanza; stanza = ""; keep = 0 }
            /^[[:space:]]*$/ { flush(); next }
            /^#/ { next }
            /^Types:/ { stanza = stanza "Types: deb-src\n"; next }
            /^Suites:/ { for (i = 2; i <= NF; i++) if ($i == c) keep = 1 }
            { stanza = stanza $0 "\n" }
            END { flush() }
        ' "$f" >"$parts/$(basename "$f")"
    done
    if ! grep -qs -e deb-src "$parts"/*; then
        echo "install-deps: no Debian archive for '$codename' found in the apt sources of this machine" >&2
        exit 1
    fi
}

fetch_tinyxml() {
    local dest="$deps/tinyxml"
    [ -f "$dest/tinyxml.cpp" ] && return 0
    echo "install-deps: fetching TinyXML source with its Debian patches"
    local apt_dir="$deps/srcapt" work="$deps/tinyxml.work"
    rm -rf "$apt_dir" "$work"
    mkdir -p "$apt_dir/parts" "$apt_dir/lists/partial" "$work"
    write_private_sources "$apt_dir/parts"
    local opts=(-o Dir::Etc::SourceList=/dev/null -o "Dir::Etc::SourceParts=$apt_dir/parts"
                -o "Dir::State::Lists=$apt_dir/lists" -o APT::Sandbox::User=root)
    apt-get "${opts[@]}" update -q >"$apt_dir/update.log" 2>&1 || { cat "$apt_dir/update.log" >&2; exit 1; }
    (cd "$work" && apt-get "${opts[@]}" source -q tinyxml >"$apt_dir/source.log" 2>&1) \
        || { cat "$apt_dir/source.log" >&2; exit 1; }
    local src
    src="$(find "$work" -mindepth 1 -maxdepth 1 -type d -name 'tinyxml-*' | head -n 1)"
    [ -n "$src" ] && [ -f "$src/tinyxml.cpp" ] || { echo "install-deps: unpacked TinyXML source not found" >&2; exit 1; }
    rm -rf "$dest"
    mv "$src" "$dest"
    rm -rf "$work" "$apt_dir"
}

install_packages
fetch_tinyxml
