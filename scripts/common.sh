# Shared by the scripts: where the project is, and how a fresh machine gets what a step needs.
set -euo pipefail
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$project"
jobs=$(nproc)

# need PACKAGE...: installs the Debian packages that are missing.
need() {
    local missing=()
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    local root=()
    [ "$(id -u)" -eq 0 ] || root=(sudo)
    echo "installing ${missing[*]}"
    "${root[@]}" apt-get update -qq
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]: configures a preset and builds it.
build() {
    local preset=$1
    shift
    cmake --preset "$preset" >/dev/null
    cmake --build "build/$preset" -j "$jobs" ${1:+--target "$@"} -- --quiet
}

compiler=(build-essential cmake ninja-build pkg-config libusb-1.0-0-dev nlohmann-json3-dev)
test_packages=(libgtest-dev libcli11-dev libfftw3-dev tshark libumockdev-dev umockdev python3 gnuplot-nox procps)
