#!/usr/bin/env bash
# Checks what a build installs against the contract of the binaries: what they need at run time, how they are
# hardened, and that the names they offer are exactly those of the public headers.
#
# usage: check_binaries.sh CMAKE READELF NM BUILD_DIR INCLUDE_DIR STATIC_CLIENT
set -uo pipefail
export LC_ALL=C

cmake=$1 readelf=$2 nm=$3 build=$4 include=$5 static_client=$6
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
failures=0

fail() {
    printf 'FAIL: %s\n' "$*" >&2
    failures=$((failures + 1))
}

if ! env -u DESTDIR "$cmake" --install "$build" --prefix "$stage" >"$stage/install.log" 2>&1; then
    cat "$stage/install.log" >&2
    exit 1
fi
sentrel=$(find "$stage" -path '*/sbin/sentrel')
tool=$(find "$stage" -path '*/bin/marl')  # in builds that have it
library=$(find "$stage" -name libmarl.so.1)
archive=$(find "$stage" -name libmarl.a)
for file in "$sentrel" "$library" "$archive" "$static_client"; do
    if [ ! -f "$file" ]; then
        fail "a file is not installed (sentrel '$sentrel', library '$library', archive '$archive')"
        exit 1
    fi
done

# needs FILE LIBRARY...: the file needs exactly these libraries; the loader may be named as one.
needs() {
    local file=$1 wanted found
    shift
    wanted=$(printf '%s\n' "$@" | sort)
    found=$("$readelf" -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p' | grep -v '^ld-linux' | sort)
    [ "$wanted" = "$found" ] || fail "${file##*/} needs [${found//$'\n'/ }] instead of [${wanted//$'\n'/ }]"
}

hardened() {
    local file=$1 header dynamic segments
    header=$("$readelf" -h "$file")
    dynamic=$("$readelf" -d "$file")
    segments=$("$readelf" -lW "$file")
    grep -Eq '\((RPATH|RUNPATH)\)' <<<"$dynamic" && fail "${file##*/} has a run path"
    grep -q '(TEXTREL)' <<<"$dynamic" && fail "${file##*/} has text relocations"
    grep -Eq 'BIND_NOW|\(FLAGS_1\).* NOW' <<<"$dynamic" || fail "${file##*/} binds symbols lazily"
    grep -q 'GNU_RELRO' <<<"$segments" || fail "${file##*/} has no read-only relocations"
    grep -Eq 'GNU_STACK.* RW +0x' <<<"$segments" || fail "${file##*/} has an executable stack"
    grep -Eq 'Type: +DYN' <<<"$header" || fail "${file##*/} is not position independent"
}

needs "$library" libc.so.6
needs "$sentrel" libc.so.6 libmarl.so.1
hardened "$library"
hardened "$sentrel"
if [ -n "$tool" ]; then
    needs "$tool" libc.so.6 libmarl.so.1
    hardened "$tool"
fi
grep -q '(SONAME).*\[libmarl\.so\.1\]' <<<"$("$readelf" -d "$library")" || fail "the soname is not libmarl.so.1"

mapfile -d '' headers < <(find "$include" -name '*.h' -print0)
declared=$(awk -f "$here/exported_names.awk" "${headers[@]}" | sort -u)
[ -n "$declared" ] || fail "the headers declare nothing"

# exports WHAT NAMES: the names are those of the headers.
exports() {
    local missing extra
    missing=$(comm -23 <(printf '%s\n' "$declared") <(printf '%s\n' "$2"))
    extra=$(comm -13 <(printf '%s\n' "$declared") <(printf '%s\n' "$2"))
    [ -z "$missing" ] || fail "$1 lacks declared names: ${missing//$'\n'/ }"
    [ -z "$extra" ] || fail "$1 exports undeclared names: ${extra//$'\n'/ }"
}

exports libmarl.so.1 "$("$nm" -D --defined-only "$library" | awk 'NF == 3 && $2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort -u)"
exports libmarl.a "$("$nm" -g --defined-only "$archive" | awk 'NF == 3 { print $3 }' | sort -u)"

# A program asks for the version that a name came with, so none may be without.
bare=$("$nm" -D --defined-only "$library" | awk 'NF == 3 && $2 != "A" && $3 !~ /@@LIBMARL_[0-9.]+$/ { print $3 }')
[ -z "$bare" ] || fail "names without a version: ${bare//$'\n'/ }"

# The client calls nothing of the library and must carry its initialiser all the same.
grep -q ' libmarl_init$' <<<"$("$nm" --defined-only "$static_client")" || fail "a static client lacks the initialiser"

# The flash of the board is small. What counts is what is loaded, not the names and tables for debuggers.
loaded() {
    "$readelf" -SW "$1" | awk '/^ *\[ *[0-9]+\]/ { sub(/^ *\[ *[0-9]+\] /, ""); if ($7 ~ /A/ && $2 != "NOBITS") print "0x" $5 }' |
        { sum=0; while read -r size; do sum=$((sum + size)); done; echo $sum; }
}
size=$(($(loaded "$library") + $(loaded "$sentrel")))
if grep -q 'Machine: *ARM$' <<<"$("$readelf" -h "$sentrel")" && [ "$size" -ge $((100 * 1024)) ]; then
    fail "the board's binaries have grown to $size bytes"
fi

if [ "$failures" -ne 0 ]; then
    exit 1
fi
printf 'binaries are as they should be, %d exported names, %d bytes\n' "$(wc -l <<<"$declared")" "$size"
