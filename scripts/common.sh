# Shared by the two entry scripts: install what is missing, then configure and build.
# Everything is idempotent: a second run with nothing changed only checks and returns.

QK_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
QK_BUILD="${QK_BUILD_DIR:-$QK_ROOT/build}"
QK_CMAKE_OPTIONS=()

# The sanitized build lives in a folder of its own, so both builds stay incremental.
qk_use_sanitizers() {
    QK_BUILD="${QK_BUILD_DIR:-$QK_ROOT/build-asan}"
    QK_CMAKE_OPTIONS=(-DQK_SANITIZE=ON -DQK_BUILD_BENCHMARKS=OFF)
    # Qt and the system libraries are not built with the sanitizers: their own allocations
    # stay out of the leak report, and a report of ours fails the test that caused it.
    export ASAN_OPTIONS="detect_leaks=0:abort_on_error=0:halt_on_error=1:detect_stack_use_after_return=1:check_initialization_order=1"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
}

QK_PACKAGES=(
    build-essential cmake pkg-config ccache
    qt6-base-dev qt6-base-dev-tools qt6-httpserver-dev qt6-websockets-dev libqt6sql6-sqlite
    libgl-dev libxkbcommon-dev libudev-dev libbluetooth-dev liblilv-dev lv2-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    zip lshw binutils xvfb xdotool python3 curl locales libssl3
)

qk_install_dependencies() {
    local missing=()
    for package in "${QK_PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" \
            || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

qk_build() {
    # A configure step that failed leaves a cache but no build system: configure again then.
    if [ ! -f "$QK_BUILD/Makefile" ]; then
        cmake -S "$QK_ROOT" -B "$QK_BUILD" -G "Unix Makefiles" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            "${QK_CMAKE_OPTIONS[@]}"
    fi
    cmake --build "$QK_BUILD" -j "$(nproc)" "$@"
}
