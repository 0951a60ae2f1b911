#!/usr/bin/env bash
# Installs, with apt-get, only the packages this project needs and the machine
# lacks. Safe to run on every build: with everything present it does nothing.
set -euo pipefail

packages=(
  g++ cmake make pkg-config
  libglm-dev libstb-dev libpolyclipping-dev libassimp-dev libimgui-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  fonts-dejavu-core
  libembree-dev libmeshoptimizer-dev libopenmesh-dev
  glmark2-data
  nodejs
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
