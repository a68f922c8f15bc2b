#!/usr/bin/env bash
# Installs the build into a DESTDIR, builds the consumer against that prefix
# alone (through the CMake package, then through pkg-config) and runs it on
# the fixture plugins; before that, the installed library's name and exports.
# usage: run.sh BUILD_DIR FIXTURE_VST3_BUNDLE FIXTURE_VST2_PLUGIN
set -euo pipefail
build=$1 bundle=$2 vst2=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
vst3="$work/vst3"
mkdir -p "$vst3" && cp -r "$bundle" "$vst3/"
DESTDIR="$work/dest" cmake --install "$build" --prefix /opt/vlor >/dev/null
prefix="$work/dest/opt/vlor"
# The library folder as the build was told it (lib, lib64, lib/x86_64-linux-gnu).
libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:[A-Z]*=//p' "$build/CMakeCache.txt")
lib="$prefix/${libdir:-lib}"
ls "$prefix/libexec/qtvloraudioplugins"
"$here/exports.sh" "$lib/libqtvloraudioplugins.so.0" "$prefix/include/qtvloraudioplugins"
for via in cmake pkgconfig; do
  PKG_CONFIG_PATH="$lib/pkgconfig" cmake -S "$here" -B "$work/$via" -DVIA=$via \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_RPATH="$lib" >/dev/null
  cmake --build "$work/$via" >/dev/null
  mkdir -p "$work/run-$via"
  # Nothing of the build tree on the way: the installed prefix only.
  env -u LD_LIBRARY_PATH HOME="$work/run-$via" XDG_CONFIG_HOME="$work/run-$via" XDG_DATA_HOME="$work/run-$via" \
    QT_QPA_PLATFORM=offscreen "$work/$via/vlorconsumer" "$vst3" "$vst2" "$work/run-$via"
  echo "consumer via $via: ok"
done
