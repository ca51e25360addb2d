# What the scripts that build have in common. Sourced by bash from the top of the tree.

stage() {
    printf '==== %s\n' "$*" >&2
}

# A build folder that was half made, moved or copied from elsewhere is of no use, nor is one whose flags have changed since.
is_configured() {
    local folder=build/$1
    [ -f "$folder/build.ninja" ] && [ ! cmake/armel.cmake -nt "$folder/CMakeCache.txt" ] &&
        grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$PWD" "$folder/CMakeCache.txt" 2>/dev/null &&
        grep -qxF "CMAKE_CACHEFILE_DIR:INTERNAL=$PWD/$folder" "$folder/CMakeCache.txt"
}

# configure PRESET: makes the build folder, from nothing where what is there does not do.
configure() {
    local log
    stage "configuring $1"
    is_configured "$1" || rm -rf "build/$1"
    log=$(mktemp)
    if ! cmake --preset "$1" >"$log" 2>&1 && { rm -rf "build/$1"; ! cmake --preset "$1" >"$log" 2>&1; }; then
        cat "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}

# build PRESET [TARGET...]: ninja's own status line on a terminal, one line otherwise. Targets that were built since the
# last change of a source are not looked at: ninja alone takes longer for that than a program for its start.
build() {
    local folder=build/$1 stamp sources=(src include sim cmake CMakeLists.txt CMakePresets.json)
    shift
    stamp=$folder/.built${1:+-$(IFS=-; echo "$*")}
    if [ $# -gt 0 ] && [ -e "$stamp" ] && [ -e "$folder/$1" ] &&
        [ -z "$(find "${sources[@]}" -newer "$stamp" -print -quit)" ]; then
        return 0
    fi
    stage "building ${folder#build/}"
    if [ -t 2 ]; then
        ninja -C "$folder" "$@" >&2
    else
        ninja -C "$folder" --quiet "$@" >&2
    fi && touch "$stamp"
}
