# Sourced by the commands at the root: installs Debian packages that are missing, or says plainly which ones are.
#   need PACKAGE…
need() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  local sudo=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
      echo "Missing Debian packages, and no right to install them: ${missing[*]}" >&2
      echo "Install them with: apt-get install --no-install-recommends ${missing[*]}" >&2
      exit 1
    fi
    sudo=(sudo)
  fi
  echo "Installing ${missing[*]}" >&2
  {
    "${sudo[@]}" apt-get update -qq &&
      DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -qq -y --no-install-recommends "${missing[@]}"
  } >&2
}

# Configures and builds a preset; its output shows only when something is wrong.
#   build PRESET [TARGET…]
build() {
  local preset=$1 log
  shift
  log=$(mktemp)
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    echo "Building the preset $preset failed." >&2
    exit 1
  fi
  rm -f "$log"
}

build_packages=(g++ cmake ninja-build libcli11-dev nlohmann-json3-dev libgtest-dev libbenchmark-dev python3)
