# The builds that packages are made of. Sourced by bash from the top of the tree.
#
# They are those of the presets, but laid out for /usr, and with debug information: that is stripped from the packages,
# and what the description of the ABI is read from.

. scripts/build.sh

compiler_of() {
    case $1 in
        release) echo gcc ;;
        armel) echo arm-linux-gnueabi-gcc ;;
        *) echo "no packages are made of the preset $1" >&2; return 2 ;;
    esac
}

# As the compiler calls it, x86_64-linux-gnu.
triplet() {
    "$(compiler_of "$1")" -print-multiarch
}

debian_architecture() {
    case $1 in
        armel) echo armel ;;
        *) dpkg --print-architecture ;;
    esac
}

# build_for_packages PRESET: brings build/package/PRESET up to date.
build_for_packages() {
    local preset=$1 folder=package/$1 log
    compiler_of "$preset" >/dev/null
    scripts/prepare package
    if ! is_configured "$folder"; then
        stage "configuring $folder"
        rm -rf "build/$folder"
        log=$(mktemp)
        if ! CFLAGS=-g CXXFLAGS=-g cmake --preset "$preset" -B "build/$folder" -D MARL_BUILD_TESTS=OFF \
            -D CMAKE_INSTALL_PREFIX=/usr -D CMAKE_INSTALL_LIBDIR="lib/$(triplet "$preset")" >"$log" 2>&1; then
            cat "$log" >&2
            rm -f "$log"
            return 1
        fi
        rm -f "$log"
    fi
    build "$folder"
}
