#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those that are missing. Idempotent:
# on a machine that has everything it changes nothing and does not touch the network.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config clang-format clang-tidy
  zlib1g-dev nlohmann-json3-dev libglib2.0-dev libgdk-pixbuf-2.0-dev librsvg2-common
  libplist-dev libudev-dev libxcb-xfixes0-dev squashfs-tools
  libgtest-dev libgmock-dev libbenchmark-dev
  tzdata file procps dbus-daemon python3-psutil python3-dbusmock inotify-tools iproute2
  xvfb xclip umockdev libumockdev-dev libncurses-dev tmux
  clang-14 libclang-rt-14-dev lld
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
