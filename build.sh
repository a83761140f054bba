#!/usr/bin/env bash
# Set-up, build, run and test Tarnwell on Debian 12.
#
#   ./build.sh run    install what is missing, build, start the desktop program
#   ./build.sh test   install what is missing, build, run the whole test suite
#   ./build.sh server install what is missing, build; then build/bin/tarnwell-server serve
#   ./build.sh deps   only install the Debian packages the build needs
#
# Run as root (or as a user with sudo) on a fresh machine; later runs skip what is done.
set -euo pipefail

cd "$(dirname "$0")"
ROOT=$(pwd)
JOBS=$(nproc 2>/dev/null || echo 2)

PACKAGES=(
    build-essential cmake ninja-build pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-declarative-dev qt6-charts-dev
    libqt6opengl6-dev libqt6sql6-sqlite qt6-qpa-plugins
    libsqlite3-dev sqlite3 zlib1g-dev libssl-dev openssl ca-certificates
    libbenchmark-dev tar fonts-dejavu-core xvfb xauth
    tinyproxy poppler-utils
    qt6-httpserver-dev qt6-websockets-dev libqt6sql6-psql postgresql chromium
)

log() { printf '==> %s\n' "$*" >&2; }

install_deps() {
    local missing=()
    for pkg in "${PACKAGES[@]}"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$pkg")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    log "Installing Debian packages: ${missing[*]}"
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { log "Run as root or install sudo."; exit 1; }
        sudo=(sudo)
    fi
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -q
    "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
}

configure_and_build() {
    local dir=$1 type=$2
    shift 2
    log "Building in $dir ($type)"
    cmake -S "$ROOT" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" "$@"
    cmake --build "$dir" -j "$JOBS"
}

case "${1:-}" in
deps)
    install_deps
    ;;
run)
    install_deps
    configure_and_build "$ROOT/build" Release -DTARNWELL_TESTS=OFF
    shift
    if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
        log "No display found: starting under a virtual X server (xvfb-run)."
        exec xvfb-run -a "$ROOT/build/bin/tarnwell" "$@"
    fi
    exec "$ROOT/build/bin/tarnwell" "$@"
    ;;
server)
    install_deps
    configure_and_build "$ROOT/build" Release -DTARNWELL_TESTS=OFF
    log "Built $ROOT/build/bin/tarnwell-server: add members with 'user-add NAME', then 'serve'."
    ;;
test)
    install_deps
    configure_and_build "$ROOT/build-tests" Debug -DTARNWELL_TESTS=ON
    log "Running the test suite"
    cd "$ROOT/build-tests"
    ctest --output-on-failure -j "$JOBS"
    ;;
*)
    sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//'
    exit 2
    ;;
esac
