# Shared by the two entry scripts: install what is missing, then configure and build.
# Everything is idempotent: a second run with nothing changed only checks and returns.

QK_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
QK_BUILD="${QK_BUILD_DIR:-$QK_ROOT/build}"

QK_PACKAGES=(
    build-essential cmake pkg-config ccache
    qt6-base-dev qt6-base-dev-tools qt6-httpserver-dev qt6-websockets-dev libqt6sql6-sqlite
    libgl-dev libxkbcommon-dev
    libplist-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    zip lshw binutils xvfb xdotool python3 curl locales
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
        cmake -S "$QK_ROOT" -B "$QK_BUILD" -G "Unix Makefiles" -DCMAKE_BUILD_TYPE=RelWithDebInfo
    fi
    cmake --build "$QK_BUILD" -j "$(nproc)" "$@"
}
