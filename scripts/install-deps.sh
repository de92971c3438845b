#!/usr/bin/env bash
# Installs the Debian packages CoreLib needs to build, test and benchmark, and only
# those that are missing, so a second run costs a few dpkg look-ups and no download.
set -euo pipefail

packages=(
    # build
    build-essential cmake ninja-build pkg-config ccache
    # compression streams
    zlib1g-dev
    # XML object files, input configuration and translations
    libtinyxml-dev
    # assertion dialog
    qt6-base-dev
    # keyboard text
    libxkbcommon-dev libxkbcommon-x11-dev libxcb1-dev
    # input devices
    libevdev-dev
    # GUIDs
    uuid-dev
    # tests
    libgtest-dev libgmock-dev xvfb xdotool libeigen3-dev
    # benchmarks and the peers they are measured against (allocators, hash sets)
    libbenchmark-dev libjemalloc-dev libmimalloc-dev libabsl-dev
    # formatting of the sources
    clang-format
)

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$package")
done

if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo_cmd=()
if [[ $(id -u) -ne 0 ]]; then
    sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
