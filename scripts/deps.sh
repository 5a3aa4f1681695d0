#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks for building, testing and the
# demo. Only packages that are missing are installed; nothing is downloaded
# when everything is present. Usage: scripts/deps.sh [package ...]
set -euo pipefail
base=(cmake g++ gcc make libgtest-dev libgmock-dev binutils)
pkgs=("${base[@]}" "$@")
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi
