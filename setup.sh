# Sourced by the commands at the root. Several of them may run at once: one builds, the others wait for it.
packages=(g++ cmake ninja-build libcli11-dev nlohmann-json3-dev)  # what running ztlsim needs; others add theirs

# Installs Debian packages that are missing, or says plainly which ones are:  need PACKAGE…
need() (
  mkdir -p build
  exec 9>build/packages.lock
  flock 9
  missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  sudo=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
      echo "Missing Debian packages, and no right to install them: ${missing[*]}" >&2
      echo "Install them with: apt-get install --no-install-recommends ${missing[*]}" >&2
      return 1
    fi
    sudo=(sudo)
  fi
  echo "Installing ${missing[*]}" >&2
  # What a package starts must not keep the lock.
  exec "${sudo[@]}" sh -c 'apt-get update -qq && DEBIAN_FRONTEND=noninteractive \
    apt-get install -qq -y --no-install-recommends -o DPkg::Lock::Timeout=600 "$@"' apt "${missing[@]}" >&2 9>&-
)

# Whether a tree can build the targets:  configured TREE TARGET…
# The stamp says that CMake came to its end. A target may be missing: it needs a package that came later.
configured() {
  local tree=$1 target
  shift
  [ "$tree/configured" -nt CMakePresets.json ] || return 1
  for target in "$@"; do
    grep -q "^build $target:" "$tree/build.ninja" || return 1
  done
}

# Builds targets of a preset, and says so when there is something to do:  build PRESET TARGET…
build() (
  preset=$1 tree=build/$1
  shift
  mkdir -p "$tree"
  exec 9>"$tree/lock"
  flock -w 2 9 || { echo "Waiting for another build in $tree" >&2 && flock 9; }
  built=$tree/built-$1 output=/dev/null
  # Ninja knows what is to do; this only says so beforehand. What else lies in the folder costs no time.
  if [ ! -e "$built" ] || [ -n "$(find CMake* LICENSE bench cmake docs fuzz module platform simulation tests ztlsim \
    -newer "$built" -print -quit)" ]; then
    echo "Building $* in $tree" >&2
    [ -t 2 ] && output=/dev/stderr
  fi
  if ! configured "$tree" "$@"; then
    need "${packages[@]}"
    # Nothing stays of a run that was interrupted.
    rm -f "$tree/configured"
    cmake --fresh --preset "$preset" >"$output"
    touch "$tree/configured"
  fi
  # Ninja runs CMake again when its files changed. It shows its progress, or what fails alone.
  if [ "$output" = /dev/stderr ]; then
    ninja -C "$tree" "$@" >&2
  else
    ninja -C "$tree" --quiet "$@" | sed '/no work to do/d' >&2
  fi
  touch "$built"
)
