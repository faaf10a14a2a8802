#!/usr/bin/env bash
# Installs a build into a scratch prefix and uses it the way a client would:
# every installed header on its own, the CMake package (examples/), the
# installed command, and the pkg-config file. Nothing of the build tree or of
# the MOXDEV_/MOX_ environment may be needed once installed.
#
#   check_install.sh BUILD_DIR SOURCE_DIR CXX_COMPILER [sanitize|plain]
#
# In a sanitizer build the library needs the sanitizer runtime, so everything
# compiled here against it is built with the same -fsanitize flags.
set -euo pipefail

if [ $# -lt 3 ]; then
  echo "usage: $0 BUILD_DIR SOURCE_DIR CXX_COMPILER [sanitize|plain]" >&2
  exit 1
fi
build_dir=$(cd "$1" && pwd)
source_dir=$(cd "$2" && pwd)
cxx=$3
mode=${4:-plain}

extra_flags=()
[ "$mode" = sanitize ] && extra_flags=(-fsanitize=address,undefined -fno-omit-frame-pointer)

scratch=$(mktemp -d "${TMPDIR:-/tmp}/moxdev-install.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

# No configuration of any kind may help the installed files find each other.
for variable in $(compgen -e); do
  case "$variable" in MOXDEV_* | MOX_*) unset "$variable" ;; esac
done
unset LD_LIBRARY_PATH CMAKE_PREFIX_PATH PKG_CONFIG_PATH

fail() {
  echo "FAIL: $*" >&2
  exit 1
}
step() { echo "--- $*"; }
# Whether the dynamic loader resolves the binary's libmoxdev to the install.
loads_installed_library() {
  local resolved
  resolved=$(ldd "$1" | sed -n 's/^[[:space:]]*libmoxdev\.so\.0 => \(.*\) (0x.*$/\1/p')
  [ -n "$resolved" ] && [ "$(readlink -f "$resolved")" = "$(readlink -f "$libdir/libmoxdev.so.0")" ] ||
    { ldd "$1"; return 1; }
}
# The install layout the build was configured with (lib, lib64, lib/<arch>...).
cache_value() {
  sed -n "s/^$1:[A-Z]*=//p" "$build_dir/CMakeCache.txt"
}
# An empty cache entry means the default (DATADIR defaults to DATAROOTDIR).
layout_dir() {
  local value
  value=$(cache_value "CMAKE_INSTALL_$1")
  [ -n "$value" ] || value=$2
  echo "$value"
}
libdir=$prefix/$(layout_dir LIBDIR lib)
bindir=$prefix/$(layout_dir BINDIR bin)
includedir=$prefix/$(layout_dir INCLUDEDIR include)
datadir=$prefix/$(layout_dir DATADIR "$(layout_dir DATAROOTDIR share)")/moxdev

# ------------------------------------------------------------------ install
step "install into $prefix"
cmake --install "$build_dir" --prefix "$prefix" >"$scratch/install.log" ||
  { cat "$scratch/install.log"; fail "cmake --install"; }

for file in \
  "$libdir/libmoxdev.so" "$libdir/libmoxdev.so.0" \
  "$bindir/moxdev" \
  "$includedir/moxdev/moxdev.h" \
  "$includedir/moxdev/moxdev_device_info_fields.def" \
  "$includedir/moxdev/moxdev_flash_info_fields.def" \
  "$includedir/moxdev/moxdev_hps_words.h" \
  "$includedir/host/dev_catalogue_enums.h" \
  "$datadir/programmer/mox_dev_info.pcf" \
  "$datadir/programmer/mox_flash.pcf" \
  "$datadir/programmer/mox_flash_sources.txt" \
  "$datadir/h/mox_parts.txt" \
  "$libdir/cmake/moxdev/moxdevConfig.cmake" \
  "$libdir/cmake/moxdev/moxdevConfigVersion.cmake" \
  "$libdir/cmake/moxdev/moxdevTargets.cmake" \
  "$libdir/pkgconfig/moxdev.pc"; do
  [ -e "$file" ] || fail "not installed: ${file#"$prefix"/}"
done
# The installed data must be what the build produced, byte for byte.
stage=$build_dir/${datadir#"$prefix"/}
for file in programmer/mox_dev_info.pcf programmer/mox_flash.pcf h/mox_parts.txt; do
  cmp -s "$stage/$file" "$datadir/$file" || fail "installed $file differs from the build's"
done

step "RPATHs"
# The library must not point back into the build tree; the command finds the
# library relative to itself.
if readelf -d "$libdir/libmoxdev.so" | grep -E 'R(UN)?PATH'; then
  fail "the installed library carries an RPATH"
fi
readelf -d "$bindir/moxdev" | grep -E 'R(UN)?PATH' | grep -q '\$ORIGIN' ||
  fail "the installed command has no \$ORIGIN-relative RPATH"
if readelf -d "$bindir/moxdev" | grep -E 'R(UN)?PATH' | grep -qF "$build_dir"; then
  fail "the installed command still points into the build tree"
fi

# ------------------------------------------------------------------ headers
# Each installed header must compile on its own with only the install's
# include directory: a public header that reaches an uninstalled one fails
# here.
step "every installed header is self-contained"
while IFS= read -r header; do
  relative=${header#"$includedir"/}
  echo "#include \"$relative\"" >"$scratch/header.cpp"
  "$cxx" -std=c++17 -fsyntax-only -I"$includedir" "$scratch/header.cpp" ||
    fail "$relative does not compile on its own against the install"
done < <(find "$includedir/moxdev" "$includedir/host" -name '*.h' | sort)

# ------------------------------------------------------------------ CMake package
step "build examples/ against the CMake package"
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S "$source_dir/examples" -B "$scratch/example" "${generator[@]}" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_FLAGS="${extra_flags[*]}" >"$scratch/example-configure.log" ||
  { cat "$scratch/example-configure.log"; fail "configuring examples/"; }
cmake --build "$scratch/example" >"$scratch/example-build.log" ||
  { cat "$scratch/example-build.log"; fail "building examples/"; }

step "run the example"
example=$scratch/example/host_program
loads_installed_library "$example" || fail "the example does not load the installed library"
status=0
output=$("$example") || status=$?
echo "$output"
[ "$status" -eq 0 ] || fail "the example exited with status $status"
expect() {
  grep -qF -- "$1" <<<"$output" || fail "the output lacks: $1"
}
# The databases come from the prefix, found relative to the installed library.
db_dir=$(sed -n 's/^database directory: //p' <<<"$output")
[ "$(cd "$db_dir" && pwd -P)" = "$(cd "$datadir" && pwd -P)" ] ||
  fail "the library looks for its data in $db_dir, not in $datadir"
expect "loaded 79 device records"
expect "flash 20 BA 19: MICRON MT25QL256, 268435456 bits, page program 5000 us"
expect "name kxb100: ordering part KXB100F324C6, device KXB100, OPN hash 0x119F73E9F5D0"
expect "part KXB100F324C6: record kestrel2_kxb100"

# An unknown flash ID is a plain "no", not an internal error.
status=0
"$example" kxb100 12 34 56 >"$scratch/unknown.out" || status=$?
[ "$status" -eq 1 ] && grep -qF "flash 12 34 56: unknown" "$scratch/unknown.out" ||
  { cat "$scratch/unknown.out"; fail "unknown flash ID: status $status"; }

# A damaged database reaches the client as MSG_INTERNAL_ERROR (status 2).
step "damaged database"
mkdir -p "$scratch/damaged/programmer"
head -c 20 "$datadir/programmer/mox_dev_info.pcf" >"$scratch/damaged/programmer/mox_dev_info.pcf"
status=0
MOXDEV_DEVICE_DB_DIR=$scratch/damaged "$example" >"$scratch/damaged.out" 2>&1 || status=$?
[ "$status" -eq 2 ] && grep -q "internal error: .*moxdev_dev_info_manager" "$scratch/damaged.out" ||
  { cat "$scratch/damaged.out"; fail "damaged database: status $status"; }

# ------------------------------------------------------------------ command
step "run the installed command"
loads_installed_library "$bindir/moxdev" ||
  fail "the command does not load the installed library"
output=$("$bindir/moxdev" device show kxb100) ||
  { echo "$output"; fail "moxdev device show kxb100"; }
expect "KXB100: device 284 (family Kestrel II)"
expect "served by record 21 (kestrel2_kxb100)"
output=$("$bindir/moxdev" flash identify 20 BA 19) ||
  { echo "$output"; fail "moxdev flash identify 20 BA 19"; }
expect "MICRON MT25QL256"

# ------------------------------------------------------------------ pkg-config
step "compile with pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
version=$(pkg-config --modversion moxdev) || fail "pkg-config does not know moxdev"
[ "$version" = "$(cache_value CMAKE_PROJECT_VERSION)" ] ||
  fail "moxdev.pc says version $version"
read -r -a pc_flags <<<"$(pkg-config --cflags --libs moxdev)"
echo '#include "moxdev/moxdev.h"
int main() { return ver_get_version().empty() || MOXDEV_MGR::get_opn_enum("KXB100F324C6") != 5345; }' \
  >"$scratch/one_line.cpp"
# pkg-config's flags alone: its Libs carry the RPATH that lets the program
# find the library in this prefix, with no LD_LIBRARY_PATH.
"$cxx" -std=c++"$(pkg-config --variable=cxxstd moxdev | tr -dc 0-9)" "${extra_flags[@]}" "$scratch/one_line.cpp" \
  -o "$scratch/one_line" "${pc_flags[@]}" || fail "compiling with pkg-config's flags"
loads_installed_library "$scratch/one_line" || fail "the pkg-config program does not find the installed library"
"$scratch/one_line" || fail "the pkg-config program exited with status $?"

# ------------------------------------------------------------------ python
# Where the build has the module: the installed one imports with only
# PYTHONPATH set and finds the installed library and databases by itself.
python_dir=$(cache_value MOXDEV_PYTHON_INSTALL_DIR)
if [ -n "$python_dir" ] && [ "$mode" = plain ]; then
  step "import the installed Python module"
  [ -f "$prefix/$python_dir/moxdev.pyi" ] || fail "no moxdev.pyi in $prefix/$python_dir"
  name=$(PYTHONPATH=$prefix/$python_dir /usr/bin/python3 -c \
    "import moxdev; print(moxdev.flash.identify('20 BA 19')['record']['device_name'])") ||
    fail "the installed Python module does not answer"
  [ "$name" = MT25QL256 ] || fail "the installed Python module says $name"
  module=$(PYTHONPATH=$prefix/$python_dir /usr/bin/python3 -c "import moxdev; print(moxdev.__file__)")
  loads_installed_library "$module" || fail "the installed Python module does not load the installed library"
fi

# ------------------------------------------------------------------ strip
step "install --strip"
cmake --install "$build_dir" --prefix "$scratch/stripped" --strip >/dev/null || fail "cmake --install --strip"
stripped=$scratch/stripped/${libdir#"$prefix"/}/libmoxdev.so.0
if readelf -S "$stripped" | grep -q '\.symtab'; then
  fail "the --strip install keeps the symbol table"
fi
[ "$(stat -L -c %s "$stripped")" -lt "$(stat -L -c %s "$libdir/libmoxdev.so.0")" ] ||
  fail "the --strip install is no smaller"

echo "install check passed"
