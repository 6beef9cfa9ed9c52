#!/usr/bin/env bash
# Installs a build tree into a scratch prefix and uses it as an outside project would: the include
# tree holds exactly the public headers' closure, the example builds and runs through
# find_package(MorvikLib CONFIG) and through pkg-config (the loader finding the libraries by
# itself), and /usr/bin/python3 imports the installed module.
# Usage: run.sh <build dir> <scratch dir> [c++ compiler]
set -euo pipefail

build_dir=$(realpath "$1")
work_dir=$(realpath -m "$2")
cxx=${3:-c++}
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
prefix="$work_dir/prefix"

rm -rf "$work_dir"
mkdir -p "$work_dir"

echo "== install into $prefix"
cmake --install "$build_dir" --prefix "$prefix" >"$work_dir/install.log"
cmake -DINCLUDE_DIR="$prefix/include" -P "$source_dir/cmake/CheckHeaderClosure.cmake"

echo "== example through find_package(MorvikLib CONFIG)"
generator=()
if command -v ninja >/dev/null; then generator=(-G Ninja); fi
cmake -S "$source_dir/examples" -B "$work_dir/cmake-build" "${generator[@]}" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" >"$work_dir/configure.log"
cmake --build "$work_dir/cmake-build"
from_cmake=$("$work_dir/cmake-build/mirror_demo")
echo "$from_cmake"

echo "== example through pkg-config morviklib"
pc_dir=$(dirname "$(find "$prefix" -name morviklib.pc -print -quit)")
export PKG_CONFIG_PATH="$pc_dir"
# Word splitting of the pkg-config output is intended.
# shellcheck disable=SC2046
"$cxx" -std=c++20 -Wall -Wextra -Werror "$source_dir/examples/mirror_demo.cpp" \
  -o "$work_dir/mirror_demo" $(pkg-config --cflags --libs morviklib)
from_pkg_config=$(env -u LD_LIBRARY_PATH "$work_dir/mirror_demo")
echo "$from_pkg_config"

if [[ "$from_cmake" != "$from_pkg_config" || "$from_cmake" != *"peer holds the same bytes"* ]]; then
  echo "install check: the example did not mirror its write" >&2
  exit 1
fi

echo "== installed Python module"
module_dir="$prefix/lib/python3/dist-packages"
if compgen -G "$module_dir/morvik*.so" >/dev/null; then
  PYTHONPATH="$module_dir" /usr/bin/python3 -c \
    'import morvik, sys; assert morvik.__file__.startswith(sys.argv[1]), morvik.__file__; print("imported", morvik.__file__)' \
    "$module_dir"
else
  echo "no module in this build (sanitized or without tests)"
fi
echo "install check: OK"
