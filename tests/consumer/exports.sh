#!/usr/bin/env bash
# What an installed library shows the dynamic linker: its versioned name and
# the public interface only. Every strong symbol must be of a namespace, a
# marked class or a marked function of the installed headers, or an
# engine's flat function; none of a class's private data. Weak and unique
# symbols may also be instantiations of the standard library's and Qt's
# templates, which C++ places in every library that uses them.
# usage: exports.sh LIBRARY INSTALLED_HEADERS_DIR
set -euo pipefail
lib=$1 headers=$2
soname=$(objdump -p "$lib" | awk '$1 == "SONAME" {print $2}')
[ "$soname" = libqtvloraudioplugins.so.0 ] || { echo "SONAME is '$soname'"; exit 1; }
if ls "$headers" | grep -E '_p\.h$|_testing\.h$'; then echo "private headers installed"; exit 1; fi

allowed=$( (grep -ho 'namespace [A-Za-z0-9_]\+' "$headers"/*.h | awk '{print $2}'
  grep -ho 'QVLOR_PLUGINS_EXPORT [A-Za-z0-9_<>:,* &]*[ *&][A-Za-z0-9_]\+(' "$headers"/*.h | sed 's/($//; s/.*[ *&]//'
  grep -ho '\(class\|struct\) QVLOR_PLUGINS_EXPORT [A-Za-z0-9_]\+' "$headers"/*.h | awk '{print $3}'
  grep -ho 'QVLOR_PLUGINS_EXPORT const char\* const [A-Za-z0-9_]\+' "$headers"/*.h | awk '{print $NF}'
  grep -ho '^extern AUDIO_EffectFilter [A-Za-z0-9]\+' "$headers"/*.h | awk '{print $3}') | sort -u)

count=0 bad=0
while read -r kind name; do
  case $kind in U|w|v) continue;; esac
  count=$((count + 1))
  sym=$name
  for prefix in "vtable for " "typeinfo for " "typeinfo name for " "non-virtual thunk to " "guard variable for "; do
    sym=${sym#"$prefix"}
  done
  root=${sym%%[(:<]*}
  case $root in AUDIOVST_*|VLORVST3_*|VLORLV2_*|VLORFX_*|_edata|_end|__bss_start) continue;; esac
  if grep -qxF "$root" <<<"$allowed"; then
    case $sym in *::Data::*|*::Data\ *|*::Work::*) echo "private data exported: $kind $name"; bad=$((bad + 1));; esac
    continue
  fi
  case $kind:${sym#void } in
    [WVu]:std::*|[WVu]:__gnu_cxx::*|[WVu]:QMetaType::*|[WVu]:QMetaSequence::*|[WVu]:QtPrivate::*) continue;;
  esac
  echo "not public: $kind $name"; bad=$((bad + 1))
done < <(nm -D --defined-only -C "$lib" | cut -d' ' -f2-)
echo "$lib: SONAME $soname, $count symbols exported, $bad outside the public interface"
[ "$bad" -eq 0 ]
