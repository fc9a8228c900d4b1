#!/bin/bash
# Uses a built tree the way a host developer would: installs it into a scratch prefix,
# builds and runs the example host against that prefix alone (with CMake, then with
# pkg-config), builds a host that takes only QKBase, makes the Debian packages, and checks
# that a second install replaces the first and that uninstalling leaves nothing.
#
# Usage: check.sh <build folder>. Any failed step fails the whole check.
set -euo pipefail

build=$(cd "$1" && pwd)
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# Inside the build folder, so that ccache's base_dir makes repeated runs hit the cache.
work=$build/install-check
prefix=$work/prefix
rm -rf "$work"
mkdir -p "$work"

fail() {
    echo "FAIL: $*" >&2
    exit 1
}
step() { echo "== $*"; }
# Whether text $1 holds a line matching $2; on captured output, so that no pipe closes early.
has() { grep -q -e "$2" <<< "$1"; }

cache_value() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
libdir=$(cache_value CMAKE_INSTALL_LIBDIR)
version=$(cache_value CMAKE_PROJECT_VERSION)
soversion=${version%%.*}
launcher=()
command -v ccache > /dev/null && launcher=(ccache)

install_into_prefix() {
    cmake --install "$build" --prefix "$prefix" > "$work/install.log" ||
        fail "cmake --install failed: $(tail -5 "$work/install.log")"
}

# Runs a host on the offscreen platform with a HOME of its own and no support site to reach,
# and expects "ready" on stdout and a clean exit.
run_host() {
    local name=$1 executable=$2
    local home=$work/home-$name
    mkdir -p "$home/runtime"
    chmod 700 "$home/runtime"
    local status=0
    env -u XDG_CONFIG_HOME -u XDG_DATA_HOME -u XDG_STATE_HOME -u XDG_CACHE_HOME \
        HOME="$home" XDG_RUNTIME_DIR="$home/runtime" QT_QPA_PLATFORM=offscreen \
        QK_SUPPORT_BASE_URL=http://127.0.0.1:9 QK_HELPDESK_API_URL=http://127.0.0.1:9/api \
        timeout 60 "$executable" --quit-when-ready > "$work/$name.out" 2> "$work/$name.err" ||
        status=$?
    grep -q '^ready' "$work/$name.out" ||
        fail "$name never got ready (exit $status): $(tail -5 "$work/$name.err")"
    [ "$status" -eq 0 ] || fail "$name did not quit by itself (exit $status)"
    local libraries
    libraries=$(ldd "$executable" | grep libQK)
    has "$libraries" "libQKBase.so.$soversion => $prefix/" || fail "$name loads: $libraries"
    if grep -v -q "=> $prefix/" <<< "$libraries"; then
        fail "$name loads a QK library from outside the prefix: $libraries"
    fi
}

step "install into $prefix"
install_into_prefix
for library in QKBase QKUtilities; do
    file=$prefix/$libdir/lib$library.so.$version
    [ -f "$file" ] || fail "lib$library.so.$version missing"
    [ "$(readlink "$prefix/$libdir/lib$library.so.$soversion")" = "lib$library.so.$version" ] ||
        fail "lib$library.so.$soversion is not a link to lib$library.so.$version"
    [ -L "$prefix/$libdir/lib$library.so" ] || fail "lib$library.so (for linking) missing"
    has "$(readelf -d "$file")" "SONAME.*\[lib$library.so.$soversion\]" ||
        fail "lib$library has no SONAME lib$library.so.$soversion"
done
has "$(readelf -d "$prefix/$libdir/libQKUtilities.so.$version")" 'RUNPATH.*\[\$ORIGIN\]' ||
    fail "libQKUtilities does not look for QKBase beside itself"
for header in QKBase/QKApplication.h QKBase/QKMenus.h QKUtilities/QKHelpDesk.h \
    QKUtilities/QKKeyboardShortcuts.h QKUtilities/SUUpdater.h; do
    [ -f "$prefix/include/$header" ] || fail "public header $header not installed"
done
for private in QKBase64FileDevice.h SUConstants.h QKFadingWindow.h QKHelpDeskSupportLog.h; do
    [ -z "$(find "$prefix" -name "$private")" ] || fail "private header $private installed"
done
# Every header an installed header includes by name must be installed too.
for header in "$prefix"/include/QKBase/*.h "$prefix"/include/QKUtilities/*.h; do
    for included in $(sed -n -e 's/^#include "\([^"]*\)".*/\1/p' \
        -e 's/^#include <\(QK[A-Za-z]*\.h\)>.*/\1/p' "$header"); do
        [ -f "$prefix/include/QKBase/$included" ] || [ -f "$prefix/include/QKUtilities/$included" ] ||
            fail "$(basename "$header") includes $included, which is not installed"
    done
done
for file in "$libdir/cmake/QKUtilities/QKUtilitiesConfig.cmake" \
    "$libdir/cmake/QKUtilities/QKUtilitiesConfigVersion.cmake" \
    "$libdir/pkgconfig/qkutilities.pc" "$libdir/pkgconfig/qkbase.pc"; do
    [ -f "$prefix/$file" ] || fail "$file missing"
done
[ -z "$(find "$prefix" -name 'qk-support-site*' -o -name 'SoundLab*')" ] ||
    fail "the support site or Sound Lab was installed without being asked for"

step "MinimalHost with find_package(QKUtilities)"
cmake -S "$source_dir/examples/MinimalHost" -B "$work/cmake-host" -G "Unix Makefiles" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF ${launcher:+-DCMAKE_CXX_COMPILER_LAUNCHER=ccache} \
    > "$work/cmake-host.log" || fail "configuring MinimalHost failed: $(tail -20 "$work/cmake-host.log")"
grep -q "^QKUtilities_DIR:PATH=$prefix/" "$work/cmake-host/CMakeCache.txt" ||
    fail "MinimalHost found a QKUtilities outside the prefix"
cmake --build "$work/cmake-host" -j2 > "$work/cmake-host-build.log" 2>&1 ||
    fail "building MinimalHost failed: $(tail -20 "$work/cmake-host-build.log")"
run_host cmake-host "$work/cmake-host/MinimalHost"

step "MinimalHost with pkg-config"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
[ "$(pkg-config --modversion qkutilities)" = "$version" ] || fail "pkg-config does not find qkutilities"
qt_tools=$(pkg-config --variable=libexecdir Qt6Core)
host=$source_dir/examples/MinimalHost
mkdir -p "$work/pc-host"
"$qt_tools/moc" "$host/MinimalHostWindow.h" -o "$work/pc-host/moc_MinimalHostWindow.cpp"
"$qt_tools/rcc" "$host/MinimalHost.qrc" -o "$work/pc-host/qrc_MinimalHost.cpp"
# shellcheck disable=SC2046 # pkg-config's flags are meant to split
"${launcher[@]}" g++ -std=c++20 -fPIC -O1 -I"$host" $(pkg-config --cflags qkutilities) \
    "$host/main.cpp" "$host/MinimalHostWindow.cpp" "$work/pc-host/moc_MinimalHostWindow.cpp" \
    "$work/pc-host/qrc_MinimalHost.cpp" -o "$work/pc-host/MinimalHost" \
    $(pkg-config --libs qkutilities) -Wl,-rpath,"$prefix/$libdir" 2> "$work/pc-host.log" ||
    fail "building MinimalHost with pkg-config failed: $(head -20 "$work/pc-host.log")"
run_host pc-host "$work/pc-host/MinimalHost"

step "the plug-in validator"
# It finds its libraries from the helper folder; without a host on its socket it just ends.
validator=$prefix/libexec/QKUtilities/qk-plugin-validator
[ -x "$validator" ] || fail "the plug-in validator is not installed"
env -u LD_LIBRARY_PATH "$validator" 3</dev/null || fail "the installed plug-in validator does not start"

step "a host that links only QKBase"
base_host=$source_dir/tests/install/BaseOnlyHost
cmake -S "$base_host" -B "$work/base-host" -G "Unix Makefiles" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
    ${launcher:+-DCMAKE_CXX_COMPILER_LAUNCHER=ccache} > "$work/base-host.log" &&
    cmake --build "$work/base-host" >> "$work/base-host.log" 2>&1 ||
    fail "building the QKBase-only host failed: $(tail -20 "$work/base-host.log")"
dynamic=$(readelf -d "$work/base-host/BaseOnlyHost")
has "$dynamic" 'NEEDED.*libQKBase' || fail "the QKBase-only host does not load QKBase"
! has "$dynamic" 'NEEDED.*libQKUtilities' || fail "the QKBase-only host loads QKUtilities"
run_host base-host "$work/base-host/BaseOnlyHost"
# shellcheck disable=SC2046
echo '#include <QKHelpDesk.h>' | g++ -std=c++20 -fsyntax-only -x c++ $(pkg-config --cflags qkbase) - \
    2> /dev/null && fail "qkbase's flags reach the help desk headers"

step "Debian packages"
(cd "$build" && cpack -G DEB -B "$work/deb" > "$work/cpack.log" 2>&1) ||
    fail "cpack failed: $(tail -20 "$work/cpack.log")"
runtime=$(find "$work/deb" -maxdepth 1 -name "libqkutilities${soversion}_${version}_*.deb")
dev=$(find "$work/deb" -maxdepth 1 -name "libqkutilities-dev_${version}_*.deb")
[ -f "$runtime" ] && [ -f "$dev" ] || fail "cpack made $(ls "$work/deb")"
runtime_depends=$(dpkg-deb -f "$runtime" Depends)
for needed in libqt6widgets6 libqt6network6 zip; do
    [[ $runtime_depends == *"$needed"* ]] || fail "runtime package lacks $needed: $runtime_depends"
done
dev_depends=$(dpkg-deb -f "$dev" Depends)
[[ $dev_depends == *"libqkutilities$soversion (= $version)"* ]] ||
    fail "development package does not pin its runtime: $dev_depends"
runtime_files=$(dpkg-deb -c "$runtime")
dev_files=$(dpkg-deb -c "$dev")
has "$runtime_files" "libQKUtilities.so.$version" || fail "runtime package lacks the library"
! has "$runtime_files" '\.h$\|libQKUtilities.so\( \|$\)' ||
    fail "runtime package carries development files"
for file in include/QKUtilities/QKHelpDesk.h cmake/QKUtilities/QKUtilitiesConfig.cmake \
    pkgconfig/qkutilities.pc libQKUtilities.so; do
    has "$dev_files" "$file\( \|$\)" || fail "development package lacks $file"
done
apt-get install -s "$runtime" "$dev" > "$work/apt.log" 2>&1 ||
    fail "apt-get would not install the packages: $(tail -20 "$work/apt.log")"
grep -q "^Inst libqkutilities-dev" "$work/apt.log" || fail "apt-get did not plan the install"

step "install over an earlier install, then uninstall"
# Leftovers of an earlier version: a header it had, a build of the same SONAME, and the
# imported-target file of a configuration no longer built, which names a missing library.
stale_header=$prefix/include/QKUtilities/QKRetiredPanel.h
stale_library=$prefix/$libdir/libQKUtilities.so.$soversion.0.9
cmake_files=$prefix/$libdir/cmake/QKUtilities
stale_targets=$cmake_files/QKUtilitiesTargets-retired.cmake
echo '#error retired' > "$stale_header"
cp "$prefix/$libdir/libQKUtilities.so.$version" "$stale_library"
sed 's/\.so\./-gone.so./g' "$(find "$cmake_files" -name 'QKUtilitiesTargets-*.cmake' | head -1)" \
    > "$stale_targets"
echo 'garbage' > "$prefix/include/QKBase/QKMenus.h"
install_into_prefix
for stale in "$stale_header" "$stale_library" "$stale_targets"; do
    [ ! -e "$stale" ] || fail "installing again left $stale behind"
done
cmp -s "$prefix/include/QKBase/QKMenus.h" "$source_dir/QKCore/QKBase/QKMenus.h" ||
    fail "installing again did not replace a changed header"
cmake -S "$base_host" -B "$work/base-host-again" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF > "$work/base-host-again.log" 2>&1 ||
    fail "find_package fails after installing again: $(tail -20 "$work/base-host-again.log")"
diff <(sort "$build/install_manifest.txt") <(find "$prefix" ! -type d | sort) > "$work/manifest.diff" ||
    fail "the prefix holds more or less than the install manifest: $(cat "$work/manifest.diff")"
cmake --build "$build" --target uninstall > "$work/uninstall.log" ||
    fail "uninstall failed: $(tail -5 "$work/uninstall.log")"
left=$(find "$prefix" ! -type d -o -type d \( -name QKUtilities -o -name QKBase \))
[ -z "$left" ] || fail "uninstall left: $left"

step "all good"
rm -rf "$work"
