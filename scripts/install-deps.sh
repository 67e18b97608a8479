#!/usr/bin/env bash
# Installs the Debian packages a target needs; quiet and quick when they are already present.
# Usage: scripts/install-deps.sh build|fuzz
set -euo pipefail

packages=(build-essential cmake pkg-config libssl-dev openssl nettle-dev
          libgtest-dev libgmock-dev libbenchmark-dev clang-format
          nlohmann-json3-dev mingw-w64-common
          time xxd)
# The Python client's tests, the example web site and its browser test.
packages+=(python3 python3-pytest gunicorn chromium fonts-dejavu-core)
if [[ "${1:-build}" == "fuzz" ]]; then
  packages+=(clang libclang-rt-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=""
[[ $(id -u) -ne 0 ]] && sudo="sudo"
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
