#!/usr/bin/env bash
# Installs a build into a fresh prefix and uses it from outside: builds the consumer program
# against it through pkg-config and through the CMake package and runs both (the second also
# loads the installed invert plug-in), then runs the installed lfx. Every installed binary must
# find its libraries from the prefix alone.
#   check-install.sh BUILD_DIR PREFIX CONSUMER_SOURCE [COMPILER_FLAGS]
set -euo pipefail
build=$1 prefix=$2 source=$3 flags=${4:-}

rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
export PKG_CONFIG_PATH=
for dir in "$prefix"/lib*/pkgconfig "$prefix"/lib/*/pkgconfig; do
    [ -d "$dir" ] && PKG_CONFIG_PATH=$dir
done

libdir=$(pkg-config --variable=libdir libfilter)
# Nothing with a name another package could own goes straight into the library folder.
for name in liblog libcore libconvert; do
    if compgen -G "$libdir/$name.so*" >/dev/null; then
        echo "$name installed into $libdir" >&2
        exit 1
    fi
done
pkg-config --exists libconvert || [ ! -e "$(pkg-config --variable=siblingdir libfilter)/libconvert.so" ]
# shellcheck disable=SC2046,SC2086
c++ -std=c++17 $flags "$source/main.cpp" -o "$prefix/consumer-pc" \
    $(pkg-config --cflags --libs libfilter) -ldl -Wl,-rpath,"$libdir"
"$prefix/consumer-pc"

generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S "$source" -B "$prefix/consumer-cmake" "${generator[@]}" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$prefix/consumer-cmake" >/dev/null
plugin=$(pkg-config --variable=frei0rdir libfilter)/libfilter_invert.so
if [ -f "$plugin" ]; then
    "$prefix/consumer-cmake/consumer" "$plugin"
else
    "$prefix/consumer-cmake/consumer"
fi

if [ -x "$prefix/bin/lfx" ]; then
    "$prefix/bin/lfx" list >/dev/null
fi
echo "installed tree works"
