#!/usr/bin/env bash
# Installs a build tree into a scratch prefix, then builds and runs the consumer program against it
# twice: through find_package(MorvikLib CONFIG) and through pkg-config.
# Usage: run.sh <build dir> <scratch dir> [c++ compiler]
set -euo pipefail

build_dir=$(realpath "$1")
work_dir=$(realpath -m "$2")
cxx=${3:-c++}
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
prefix="$work_dir/prefix"

rm -rf "$work_dir"
mkdir -p "$work_dir"

echo "== install into $prefix"
cmake --install "$build_dir" --prefix "$prefix" >"$work_dir/install.log"

echo "== consumer through find_package(MorvikLib CONFIG)"
generator=()
if command -v ninja >/dev/null; then generator=(-G Ninja); fi
cmake -S "$source_dir" -B "$work_dir/cmake-build" "${generator[@]}" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" >"$work_dir/configure.log"
cmake --build "$work_dir/cmake-build"
from_cmake=$("$work_dir/cmake-build/morvik_consumer")
echo "$from_cmake"

echo "== consumer through pkg-config morviklib"
pc_dir=$(dirname "$(find "$prefix" -name morviklib.pc -print -quit)")
# Word splitting of the pkg-config output is intended.
# shellcheck disable=SC2046
"$cxx" -std=c++20 -Wall -Wextra -Werror "$source_dir/main.cpp" -o "$work_dir/pkg-config-consumer" \
  $(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs morviklib)
lib_dir=$(PKG_CONFIG_PATH="$pc_dir" pkg-config --variable=libdir morviklib)
from_pkg_config=$(LD_LIBRARY_PATH="$lib_dir" "$work_dir/pkg-config-consumer")
echo "$from_pkg_config"

if [[ -z "$from_cmake" || "$from_cmake" != "$from_pkg_config" ]]; then
  echo "install consumer: the two builds printed different text" >&2
  exit 1
fi
echo "install consumer: OK"
