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
    # tests, with a comma-decimal locale and an independent zlib
    libgtest-dev libgmock-dev xvfb xdotool libeigen3-dev locales python3 libxml2-utils
    # benchmarks and the peers they are measured against (allocators, hash sets)
    libbenchmark-dev libjemalloc-dev libmimalloc-dev libabsl-dev libphysfs-dev libzip-dev
    # the coverage-guided fuzzer of the pack reader
    clang libclang-rt-dev
    # formatting of the sources
    clang-format
)

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$package")
done

sudo_cmd=()
if [[ $(id -u) -ne 0 ]]; then
    sudo_cmd=(sudo)
fi

if [[ ${#missing[@]} -ne 0 ]]; then
    echo "install-deps: installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    "${sudo_cmd[@]}" apt-get update -qq
    "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The number conversions are tested under a locale whose decimal separator is a comma.
if ! locale -a 2>/dev/null | grep -qix 'de_DE.utf8'; then
    echo "install-deps: generating the de_DE.UTF-8 locale"
    "${sudo_cmd[@]}" sed -i 's/^# *\(de_DE.UTF-8 UTF-8\)/\1/' /etc/locale.gen
    grep -q '^de_DE.UTF-8 UTF-8' /etc/locale.gen || echo 'de_DE.UTF-8 UTF-8' | "${sudo_cmd[@]}" tee -a /etc/locale.gen >/dev/null
    "${sudo_cmd[@]}" locale-gen >/dev/null
fi
