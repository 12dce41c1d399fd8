#!/usr/bin/env bash
# deps.sh -- installs the Debian packages listed in tools/debian-packages.txt
# that this machine lacks, and says which and why.
#
#   tools/deps.sh            install what is missing
#   tools/deps.sh --check    ask apt whether the whole list installs together
#                            (apt-get install -s), whatever is installed here
#
# Node.js and npm count as present when `node` 18 or newer and `npm` run,
# wherever they came from (Debian, NodeSource, nvm). They are then left out of
# every apt call: Debian's npm conflicts with a NodeSource nodejs, and apt
# refuses the whole request when one package in it conflicts.
set -euo pipefail
cd "$(dirname "$0")"
LIST=debian-packages.txt
SUDO=$([ "$(id -u)" = 0 ] || echo sudo)

node_usable() {
    command -v node >/dev/null && command -v npm >/dev/null || return 1
    local major
    major=$(node -e 'process.stdout.write(process.versions.node.split(".")[0])' 2>/dev/null) || return 1
    [ "${major:-0}" -ge 18 ] && npm --version >/dev/null 2>&1
}

# The list without comments: "name<TAB>reason" lines.
entries() {
    sed -e '/^#/d' -e '/^[[:space:]]*$/d' "$LIST" |
        sed -E 's/^([^[:space:]]+)[[:space:]]+(.*)$/\1\t\2/'
}

skip_node=0
if node_usable; then skip_node=1; fi

wanted=()
reasons=()
while IFS=$'\t' read -r pkg why; do
    if [ $skip_node = 1 ] && { [ "$pkg" = nodejs ] || [ "$pkg" = npm ]; }; then continue; fi
    wanted+=("$pkg"); reasons+=("$why")
done < <(entries)

if [ "${1:-}" = --check ]; then
    [ $skip_node = 1 ] && echo "deps: node $(node --version) and npm $(npm --version) are present; nodejs and npm are not asked of apt"
    $SUDO apt-get update -qq
    echo "deps: simulating the install of all ${#wanted[@]} packages together"
    if ! out=$(DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -s -y --no-install-recommends "${wanted[@]}" 2>&1); then
        echo "$out" | tail -20
        echo "deps: the package list does not install together" >&2
        exit 1
    fi
    echo "deps: the package list installs together"
    exit 0
fi

missing=()
for i in "${!wanted[@]}"; do
    pkg=${wanted[$i]}
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$pkg")
        printf 'deps: will install %-22s %s\n' "$pkg" "${reasons[$i]}"
    fi
done
if [ ${#missing[@]} = 0 ]; then
    exit 0
fi
if [ $skip_node = 0 ] && ! command -v node >/dev/null; then
    echo "deps: no node 18 or newer found, so Debian's nodejs and npm are installed"
fi
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
