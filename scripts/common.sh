# SPDX-License-Identifier: MIT
# Shared by the scripts in this folder: where things are, which packages they need, how to build.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

build_packages=(g++ cmake ninja-build pkg-config qtbase5-dev libkf5networkmanagerqt-dev modemmanager-qt-dev
    libmosquitto-dev libsystemd-dev)
# The simulated gateway, the broker, and the programs that show its messages.
run_packages=(dbus gir1.2-nm-1.0 mosquitto mosquitto-clients python3 python3-dbus python3-gi python3-paho-mqtt)
test_packages=(clang-format python3-yaml python3-pytest python3-pytest-timeout python3-jsonschema network-manager iproute2
    nats-server openssl)
browser_packages=(chromium chromium-driver python3-selenium cockpit-ws cockpit-bridge) # for the page in Cockpit
lint_packages=(clang-tidy cppcheck)
fuzz_packages=(clang libclang-rt-dev)

say() { printf '\033[1m==> %s\033[0m\n' "$*" >&2; }

as_root() {
    if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# Installs the given packages that are missing.
install_missing() {
    local missing=() package
    for package; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "Installing ${missing[*]} (a few minutes on a fresh machine)"
    # Services of these packages must not start now: an installed broker would take port 1883 of this machine.
    local policy=/usr/sbin/policy-rc.d
    if [ ! -e $policy ]; then
        trap "as_root rm -f $policy" EXIT
        printf '#!/bin/sh\nexit 101\n' | as_root tee $policy >/dev/null
        as_root chmod 755 $policy
    fi
    as_root apt-get -q update
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qy --no-install-recommends install "${missing[@]}"
    [ -z "$(trap -p EXIT)" ] || { trap - EXIT; as_root rm -f $policy; }
}

# configure PRESET [CMAKE_OPTION...]
configure() {
    local log=$root/build-$1.log
    (cd "$root" && cmake --preset "$@" >"$log" 2>&1) || { cat "$log" >&2; rm -f "$log"; return 1; }
    rm -f "$log"
}

# build PRESET TARGET... [-- CMAKE_OPTION...]: configures and builds, and says so, because it takes time.
build() {
    local preset=$1 targets=()
    shift
    while [ $# -gt 0 ] && [ "$1" != -- ]; do targets+=("$1"); shift; done
    [ $# -eq 0 ] || shift
    say "Building (preset $preset)"
    configure "$preset" "$@"
    cmake --build "$root/build/$preset" --target "${targets[@]}"
}
