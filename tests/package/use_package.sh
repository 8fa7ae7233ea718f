#!/bin/sh
# Installs the build into a folder of its own, builds a small program against it with nothing but
# pkg-config or find_package, and runs that. Usage: use_package.sh pkg-config|cmake BUILD COMPILER LIBDIR
set -eu
how=$1 build=$2 compiler=$3 libdir=$4
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
prefix=$work/prefix

# What lies outside the prefix (the companion programs) goes below DESTDIR, the rest with it.
DESTDIR=$work/root cmake --install "$build" --prefix "$prefix" > "$work/install.log"
mkdir -p "$prefix"
cp -a "$work/root$prefix/." "$prefix/"

case $how in
pkg-config)
  # shellcheck disable=SC2046
  PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig "$compiler" -std=c++17 -Wall -Wextra -Werror \
    "$here/consumer.cpp" -o "$work/consumer" \
    $(PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig pkg-config --cflags --libs orvoqmx)
  ;;
cmake)
  mkdir "$work/source"
  cp "$here/consumer.cpp" "$work/source"
  cat > "$work/source/CMakeLists.txt" << 'END'
cmake_minimum_required(VERSION 3.16)
project(consumer LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(orvoqmx REQUIRED)
add_executable(consumer consumer.cpp)
target_link_libraries(consumer PRIVATE orvoqmx::orvoqmx)
END
  cmake -G Ninja -S "$work/source" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" > "$work/configure.log" 2>&1 || { cat "$work/configure.log"; exit 1; }
  cmake --build "$work/build" > "$work/build.log" 2>&1 || { cat "$work/build.log"; exit 1; }
  cp "$work/build/consumer" "$work/consumer"
  ;;
esac

mkdir -p "$work/sysroot/etc.defaults" "$work/sysroot/volume1"
echo 'unique="orvo_braswell_unit"' > "$work/sysroot/etc.defaults/orvoinfo.conf"
ORVO_SYSROOT=$work/sysroot LD_LIBRARY_PATH=$prefix/$libdir "$work/consumer"

# The library has a version of its own.
test -L "$prefix/$libdir/liborvoqmx.so"
test -e "$prefix/$libdir/liborvoqmx.so.1"
