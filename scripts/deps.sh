#!/usr/bin/env bash
# Installs the Debian packages the project builds with, when any is missing.
#   scripts/deps.sh [PACKAGE...]   also the packages named (one build's extras)
# Needs root (or sudo) only when something has to be installed.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang-14 clang-format-14 pkg-config
  zlib1g-dev libfmt-dev libcli11-dev nlohmann-json3-dev libssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev libabsl-dev help2man
  python3-dev pybind11-dev python3-pytest
  "$@"
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
