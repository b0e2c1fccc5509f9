#!/usr/bin/env bash
# Installs the Debian 12 packages librux_client needs to build, test and benchmark.
# Idempotent: when every package is present it only runs dpkg-query and returns.
set -euo pipefail
# clang's sanitizer runtimes (libclang-rt-14-dev) are only recommended by clang, and
# recommendations are not installed here: the ThreadSanitizer build and the fuzz targets
# (libFuzzer) need them.
# cpack's Debian packages need file (to find the binaries whose dependencies
# dpkg-shlibdeps reads).

packages=(
  build-essential cmake ninja-build pkg-config file
  clang libclang-rt-14-dev
  protobuf-compiler libprotobuf-dev
  libssl-dev openssl
  android-liblog-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libcli11-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
