#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Idempotent: when
# everything is present it only runs dpkg-query and exits.
set -euo pipefail

PACKAGES=(
  build-essential g++ cmake ninja-build ccache pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  rapidjson-dev libsdl2-dev
  # drawing: GL 4.5 through libepoxy, EGL surfaceless on Mesa's llvmpipe when there is no GPU
  libepoxy-dev libegl-dev libegl-mesa0 libgl1-mesa-dri
  # shader toolchain, screen text, screenshots, GUI files, math, image codecs
  libshaderc-dev glslang-dev spirv-tools libspirv-cross-c-shared-dev libfreetype-dev fonts-liberation2 libpng-dev
  libtinyxml-dev libglm-dev libstb-dev
)
# `install-deps.sh fuzz` adds what the libFuzzer build needs.
if [ "${1:-}" = "fuzz" ]; then
  PACKAGES+=(clang libclang-rt-14-dev)
fi

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then SUDO="sudo"; else
    echo "install-deps: missing packages (${missing[*]}) and no sudo to install them" >&2
    exit 1
  fi
fi
export DEBIAN_FRONTEND=noninteractive
# A fresh machine may have empty package lists; refresh them only when an install fails.
if ! $SUDO apt-get install -y --no-install-recommends "${missing[@]}"; then
  $SUDO apt-get update
  $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
fi
