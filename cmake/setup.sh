# Shared by ./run, ./test and .ci/run: installs what is missing and builds a preset. Sourced, not run.
# Everything here reports to standard error: standard output belongs to the program that is run.

# installed_all NAME...: true when every command (a bare name) and file (an absolute name) is there.
installed_all() {
    local name
    for name in "$@"; do
        case $name in
            /*) [ -e "$name" ] || return 1 ;;
            *) command -v "$name" >/dev/null 2>&1 || return 1 ;;
        esac
    done
}

# install_packages PACKAGE...: from the system's own package manager.
install_packages() {
    local as_root=
    [ "$(id -u)" = 0 ] || as_root=sudo
    echo "installing: $*" >&2
    $as_root apt-get update -qq >&2
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        -o DPkg::Lock::Timeout=300 "$@" >&2
}

ensure_build_tools() {
    installed_all g++ cmake ninja ccache /usr/include/CLI/CLI.hpp /usr/include/nlohmann/json.hpp \
        /usr/include/zlib.h ||
        install_packages g++ cmake ninja-build ccache libcli11-dev nlohmann-json3-dev zlib1g-dev
}

ensure_test_tools() {
    installed_all /usr/include/gtest/gtest.h /usr/lib/*/libgtest.a ||
        install_packages libgtest-dev
}

ensure_fuzz_tools() {
    installed_all clang clang++ /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a ||
        install_packages clang libclang-rt-14-dev
}

# The cross compiler, Wine, and the libraries that are built for Windows here or come so.
ensure_win64_tools() {
    installed_all x86_64-w64-mingw32-g++-posix /usr/lib/wine/wine64 /usr/src/googletest/CMakeLists.txt \
        /usr/x86_64-w64-mingw32/include/zlib.h ||
        install_packages g++-mingw-w64-x86-64-posix wine64 googletest libz-mingw-w64-dev
}

# build_preset PRESET [TARGET...]: configures, once and when the presets changed, then builds. Run from
# the project's folder.
build_preset() {
    local preset=$1
    shift
    [ "build/$preset/build.ninja" -nt CMakePresets.json ] || cmake --preset "$preset" >&2
    if [ $# -gt 0 ]; then
        cmake --build --preset "$preset" --target "$@" -- --quiet >&2
    else
        cmake --build --preset "$preset" -- --quiet >&2
    fi
}
